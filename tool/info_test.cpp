#include "koImage/image/fill.h"
#include "koImage/testing/test_images.h"
#include "tool/testing/packets.h"

#include <gmock/gmock.h>

#include <limits>
#include <sstream>

namespace koTool::testing {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

constexpr float inf = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

TEST(Info, TellsSizeTypeFormatAndValues)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(3, 1, {1, 2, -3, 0.5f, 4, -1, 3, -6, 1}));
    auto const about = info(folder / "a.pfm");
    EXPECT_EQ(folder / "a.pfm", about["file"]);
    EXPECT_EQ("pfm", about["format"]);
    EXPECT_EQ(3, about["width"]);
    EXPECT_EQ(1, about["height"]);
    EXPECT_EQ("Float3", about["type"]);
    EXPECT_EQ(json(nullptr), about["shape"]);
    EXPECT_EQ(json({0.5, -6, -3}), about["min"]);
    EXPECT_EQ(json({3, 4, 1}), about["max"]);
    EXPECT_EQ(json({1.5, 0, -1}), about["mean"]);
    EXPECT_EQ(0, about["nan"]);
    EXPECT_EQ(0, about["infinite"]);
    EXPECT_EQ(3, about["negative"]);
}

TEST(Info, CountsWhatIsNotFiniteAndLeavesItOutOfTheValues)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(2, 2, {nan, inf, nan, 1, -inf, nan, 3, 2, nan, -4, inf, nan}));
    auto const about = info(folder / "a.pfm");
    EXPECT_EQ(5, about["nan"]);
    EXPECT_EQ(3, about["infinite"]);
    EXPECT_EQ(2, about["negative"]);
    EXPECT_EQ(json({-4, 2, nullptr}), about["min"]);
    EXPECT_EQ(json({3, 2, nullptr}), about["max"]);
    EXPECT_EQ(json({0, 2, nullptr}), about["mean"]);
}

TEST(Info, TellsBytesAsTheFileStoresThem)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(2, 1, {0, 128, 255, 10, 128, 5}));
    auto about = info(folder / "a.ppm");
    EXPECT_EQ("Byte4", about["type"]);
    EXPECT_EQ(json({0, 128, 5, 255}), about["min"]);
    EXPECT_EQ(json({5, 128, 130, 255}), about["mean"]);

    writeFile(folder / "a.pgm", pgm(2, 1, {7, 8}));
    about = info(folder / "a.pgm");
    EXPECT_EQ("Byte", about["type"]);
    EXPECT_EQ(json({7.5}), about["mean"]);
}

TEST(Info, ReadsAsTheTypeThatIsAskedFor)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(1, 1, {0, 51, 255}));
    auto const outcome = koimage({"info", "--json", "--type", "Float3", "--raw", folder / "a.ppm"});
    auto const about = json::parse(outcome.out);
    EXPECT_EQ("Float3", about["type"]);
    EXPECT_EQ(json({0.0, 51.0f / 255.0f, 1.0}), about["max"]);
}

TEST(Info, RecognisesTheShapeByTheProportions)
{
    Folder const folder;
    struct Case {
        int width;
        int height;
        json shape;
    };
    for (Case const& c : {Case{4, 2, "latlong"}, Case{3, 3, "sphere"}, Case{6, 8, "cross"},
                          Case{8, 6, "horizontal cross"}, Case{3, 2, nullptr}, Case{4, 4, "sphere"}}) {
        writeFile(folder / "a.pgm",
                  pgm(c.width, c.height, std::vector<int>(static_cast<std::size_t>(c.width * c.height))));
        EXPECT_EQ(c.shape, info(folder / "a.pgm")["shape"]) << c.width << " x " << c.height;
    }
}

TEST(Info, PrintsEveryPictureOneAfterTheOther)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(2, 1, {1, 2, 3, 4, 5, 6}));
    writeFile(folder / "b.pgm", pgm(1, 1, {9}));
    auto const text = koimage({"info", folder / "a.ppm", folder / "b.pgm"});
    EXPECT_EQ(0, text.exitCode) << text.err;
    EXPECT_EQ(folder / "a.ppm" +
                  "\n"
                  "  format        pnm\n"
                  "  size          2 x 1\n"
                  "  type          Byte4\n"
                  "  shape         latlong\n"
                  "  min           1  2  3  255\n"
                  "  max           4  5  6  255\n"
                  "  mean          2.5  3.5  4.5  255\n"
                  "  nan           0\n"
                  "  infinite      0\n"
                  "  negative      0\n" +
                  folder / "b.pgm" +
                  "\n"
                  "  format        pnm\n"
                  "  size          1 x 1\n"
                  "  type          Byte\n"
                  "  shape         sphere\n"
                  "  min           9\n"
                  "  max           9\n"
                  "  mean          9\n"
                  "  nan           0\n"
                  "  infinite      0\n"
                  "  negative      0\n",
              text.out);

    std::istringstream lines(koimage({"info", "--json", folder / "a.ppm", folder / "b.pgm"}).out);
    std::vector<std::string> files;
    for (std::string line; std::getline(lines, line);)
        files.push_back(json::parse(line)["file"]);
    EXPECT_EQ((std::vector{folder / "a.ppm", folder / "b.pgm"}), files);
}

TEST(Info, ReadsStandardInput)
{
    auto const outcome = koimage({"info", "--json", "-"}, ppm(1, 1, {1, 2, 3}));
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(1, json::parse(outcome.out)["width"]);
}

TEST(Info, ReadsAPipeThatComesPieceByPiece)
{
    Folder const folder;
    std::string const picture = ppm(200, 200, std::vector<int>(120000, 7));
    writeFile(folder / "first", picture.substr(0, 70000));
    writeFile(folder / "second", picture.substr(70000));
    auto const outcome = shell("(cat '" + folder / "first" + "'; sleep 0.1; cat '" + folder / "second" +
                               "') | koimage info --json -");
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(json({7, 7, 7, 255}), json::parse(outcome.out)["mean"]);
}

TEST(Info, PrintsMetadataThatCannotSteerATerminal)
{
    Folder const folder;
    writeFile(folder / "a.hdr",
              "#?RADIANCE\nVIEW=a\033[2Jb\nFORMAT=32-bit_rle_rgbe\n\n-Y 1 +X 1\n\1\2\3\x80");
    auto const text = koimage({"info", folder / "a.hdr"});
    EXPECT_EQ(0, text.exitCode) << text.err;
    EXPECT_THAT(text.out, HasSubstr("the file says\n    view        a?[2Jb\n"));
    EXPECT_EQ("a\033[2Jb", info(folder / "a.hdr")["metadata"]["view"]);
}

TEST(Info, WritesJsonForNamesThatAreNoUtf8)
{
    Folder const folder;
    std::string const name = folder / "\xFF\xFE.ppm";
    writeFile(name, ppm(1, 1, {1, 2, 3}));
    EXPECT_EQ(1, info(name)["width"]);
}

TEST(Info, StopsAtTheFirstFileThatCannotBeRead)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(1, 1, {1, 2, 3}));
    auto const outcome = koimage({"info", folder / "none.ppm", folder / "a.ppm"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("", outcome.out);
}

TEST(Info, TellsOfEveryImageOfAPacketFileOrTheOneThatIsNamed)
{
    Folder const folder;
    auto const first = koImage::testing::imageOf<unsigned int>({1, 1});
    first->pixels()[0] = 4000000000u;
    auto const second = koImage::testing::imageOf<koImage::Byte4>({4, 2});
    koImage::fillBlack(*second);
    auto const third = koImage::testing::imageOf<koImage::Float3>({0, 0});
    writeFile(folder / "a.packets", packetFile({first.get(), second.get(), third.get()}));

    auto outcome = koimage({"info", "--json", folder / "a.packets"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    std::istringstream lines(outcome.out);
    std::vector<json> images;
    for (std::string line; std::getline(lines, line);)
        images.push_back(json::parse(line));
    ASSERT_EQ(3u, images.size());
    EXPECT_EQ("packets", images[0]["format"]);
    EXPECT_EQ("image-1", images[0]["image"]);
    EXPECT_EQ("UInt", images[0]["type"]);
    EXPECT_EQ(json({4000000000.0}), images[0]["max"]);
    EXPECT_EQ("image-2", images[1]["image"]);
    EXPECT_EQ("latlong", images[1]["shape"]);
    EXPECT_EQ(0, images[2]["width"]);
    EXPECT_EQ(json({nullptr, nullptr, nullptr}), images[2]["max"]);

    EXPECT_EQ(images[1], json::parse(koimage({"info", "--json", folder / "a.packets", "--layer", "2"}).out));
    EXPECT_THAT(koimage({"info", folder / "a.packets"}).out,
                HasSubstr("\n  format        packets\n  image         image-2\n  size          4 x 2\n"));
}

}  // namespace
}  // namespace koTool::testing
