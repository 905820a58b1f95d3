#include "tool/testing/command.h"

#include "koImage/image/typed_image.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

namespace koTool::testing {
namespace {

using koImage::PixelTypeId;
using koImageIO::PictureFormat;
using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

std::vector<int> const sixPixels = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30, 40, 50, 60, 70, 80, 90};

TEST(Convert, KeepsThePixelsOfBytesThroughPng)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "b.png"}).exitCode);
    EXPECT_EQ(0, koimage({"convert", folder / "b.png", folder / "c.ppm"}).exitCode);
    EXPECT_EQ(sixPixels, ppmChannels(readFile(folder / "c.ppm")));
}

TEST(Convert, WritesTheFormatThatTheExtensionOrTheOptionNames)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    struct Case {
        char const* extension;
        char const* format;
        PictureFormat expected;
    };
    for (Case const& c : {Case{"exr", "exr", PictureFormat::Exr}, Case{"hdr", "hdr", PictureFormat::Hdr},
                          Case{"png", "png", PictureFormat::Png}, Case{"pfm", "pfm", PictureFormat::Pfm},
                          Case{"ppm", "pnm", PictureFormat::Pnm}}) {
        std::string const byName = folder / "b." + c.extension;
        auto const named = koimage({"convert", folder / "a.ppm", byName});
        EXPECT_EQ(0, named.exitCode) << named.err;
        EXPECT_EQ(c.expected, picture(byName).format);

        auto const asked = koimage({"convert", folder / "a.ppm", folder / "c.xyz", "--format", c.format});
        EXPECT_EQ(0, asked.exitCode) << asked.err;
        EXPECT_EQ(c.expected, picture(folder / "c.xyz").format);
    }
}

TEST(Convert, RefusesAnUnknownExtensionAndWritesNothing)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    auto const outcome = koimage({"convert", folder / "a.ppm", folder / "b.xyz"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, StartsWith("koimage: " + folder / "b.xyz" + ": "));
    EXPECT_THAT(folder.names(), ElementsAre("a.ppm"));
}

TEST(Convert, KeepsTheOldFileWhenWritingFails)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    writeFile(folder / "b.png", "old");
    // PNG has no 32 bits.
    auto const outcome = koimage({"convert", folder / "a.ppm", folder / "b.png", "--bits", "32"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, StartsWith("koimage: " + folder / "b.png" + ": "));
    EXPECT_EQ("old", readFile(folder / "b.png"));

    EXPECT_EQ(1, koimage({"convert", folder / "a.ppm", folder / "none/b.png"}).exitCode);
    EXPECT_THAT(folder.names(), ElementsAre("a.ppm", "b.png"));
}

TEST(Convert, ReadsAsTheTypeThatIsAskedFor)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(1, 1, {0.25f, 0.5f, 1}));
    auto const outcome = koimage({"convert", folder / "a.pfm", folder / "b.png", "--type", "Byte4"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(PixelTypeId::Byte4, picture(folder / "b.png").image->pixelType());
}

TEST(Convert, WritesTheBitsThatAreAskedFor)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    // Byte 24 of a PNG file is its depth.
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "b.png", "--bits", "16"}).exitCode);
    EXPECT_EQ(16, readFile(folder / "b.png")[24]);
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "b.png", "--bits", "8"}).exitCode);
    EXPECT_EQ(8, readFile(folder / "b.png")[24]);

    for (auto const& [bits, type] : {std::pair{"16", PixelTypeId::Half4}, {"32", PixelTypeId::Float3}}) {
        EXPECT_EQ(0,
                  koimage({"convert", folder / "a.ppm", folder / "b.exr", "--type", "Float3", "--bits", bits})
                      .exitCode);
        EXPECT_EQ(type, picture(folder / "b.exr").image->pixelType());
    }
}

TEST(Convert, CompressesExrAsAsked)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(64, 64, std::vector<int>(64 * 64 * 3, 77)));
    EXPECT_EQ(0,
              koimage({"convert", folder / "a.ppm", folder / "none.exr", "--compression", "none"}).exitCode);
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "piz.exr", "--compression", "piz"}).exitCode);
    EXPECT_LT(2 * readFile(folder / "piz.exr").size(), readFile(folder / "none.exr").size());
    EXPECT_EQ(info(folder / "none.exr")["mean"], info(folder / "piz.exr")["mean"]);
}

TEST(Convert, GoesThroughTheCurveUnlessItIsRaw)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(1, 1, {0, 128, 255}));
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "b.pfm", "--type", "Float3"}).exitCode);
    // The sRGB curve of IEC 61966-2-1 at 128 / 255.
    float const light = static_cast<float>(std::pow((128 / 255.0 + 0.055) / 1.055, 2.4));
    EXPECT_FLOAT_EQ(light, colours(folder / "b.pfm")->pixels()[0].g);
    EXPECT_EQ(0, koimage({"convert", folder / "b.pfm", folder / "b.ppm", "--bits", "8"}).exitCode);
    EXPECT_THAT(ppmChannels(readFile(folder / "b.ppm")), ElementsAre(0, 128, 255));

    EXPECT_EQ(0,
              koimage({"convert", folder / "a.ppm", folder / "c.pfm", "--type", "Float3", "--raw"}).exitCode);
    EXPECT_FLOAT_EQ(128.0f / 255.0f, colours(folder / "c.pfm")->pixels()[0].g);
    EXPECT_EQ(0, koimage({"convert", folder / "c.pfm", folder / "c.ppm", "--bits", "8", "--raw"}).exitCode);
    EXPECT_THAT(ppmChannels(readFile(folder / "c.ppm")), ElementsAre(0, 128, 255));
}

TEST(Convert, SaysWhatItHadToClamp)
{
    Folder const folder;
    float const nan = std::numeric_limits<float>::quiet_NaN();
    writeFile(folder / "a.pfm", pfm(2, 1, {2, -1, nan, 0.5f, 3, 4}));
    auto outcome = koimage({"convert", folder / "a.pfm", folder / "b.png"});
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "b.png" + ": values clamped: 3 too large, 1 too small, 1 not a number\n",
              outcome.err);
    EXPECT_THAT(outcome.out, IsEmpty());

    outcome = koimage({"convert", folder / "a.pfm", folder / "b.png", "--quiet"});
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_THAT(outcome.err, IsEmpty());

    // On the way to the pixels that were asked for, it is the file read that they are said of.
    outcome = koimage({"convert", folder / "a.pfm", folder / "b.png", "--type", "Byte4"});
    EXPECT_THAT(outcome.err, StartsWith("koimage: " + folder / "a.pfm" + ": values clamped: "));
}

TEST(Convert, TellsAsJsonWhatItWrote)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(2, 1, {2, -1, 0, 0.5f, 3, 4}));
    auto const outcome = koimage({"convert", folder / "a.pfm", folder / "b.png", "--json", "-q"});
    EXPECT_EQ((json{{"file", folder / "b.png"},
                    {"width", 2},
                    {"height", 1},
                    {"type", "Float3"},
                    {"clamped", {{"overflow", 3}, {"negative", 1}, {"nan", 0}}}}),
              json::parse(outcome.out));
}

TEST(Convert, GoesFromStandardInputToStandardOutput)
{
    auto const outcome = koimage({"convert", "-", "-", "--format", "pnm"}, ppm(3, 2, sixPixels));
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(sixPixels, ppmChannels(outcome.out));
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST(Convert, WorksInAPipe)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    auto const outcome =
        shell("koimage convert '" + folder / "a.ppm" + "' - --format png | koimage convert - - --format pnm");
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(sixPixels, ppmChannels(outcome.out));
}

TEST(Convert, FailsOnEmptyStandardInput)
{
    auto const outcome = koimage({"convert", "-", "-", "--format", "png"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, StartsWith("koimage: standard input: "));
    EXPECT_THAT(outcome.out, IsEmpty());
}

TEST(Convert, MayOverwriteItsOwnInput)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "a.ppm", "--bits", "8"}).exitCode);
    EXPECT_EQ(sixPixels, ppmChannels(readFile(folder / "a.ppm")));
}

}  // namespace
}  // namespace koTool::testing
