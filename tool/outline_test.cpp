#include "koImage/testing/test_masks.h"
#include "tool/testing/command.h"

#include <gmock/gmock.h>

#include <regex>

namespace koTool::testing {
namespace {

using koImage::Byte4;
using koImage::testing::imageOf;
using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

using Loops = std::vector<std::vector<std::array<int, 2>>>;

/// The upright edges of closed outlines: what a row of pixels crosses.
///
/// A pixel is filled where an odd number of them lies to the left of its centre.
std::vector<int> filledByEvenOdd(Loops const& loops, int width, int height)
{
    std::vector<int> crossings(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (auto const& loop : loops)
        for (std::size_t i = 1; i < loop.size(); ++i) {
            auto const [x, y0] = loop[i - 1];
            auto const [xEnd, y1] = loop[i];
            EXPECT_TRUE((x == xEnd) != (y0 == y1)) << "neither level nor upright";
            if (x != xEnd)
                continue;
            for (int y = std::min(y0, y1); y < std::max(y0, y1); ++y)
                for (int right = x; right < width; ++right)
                    crossings.at(static_cast<std::size_t>(y * width + right)) ^= 1;
        }
    return crossings;
}

/// The outlines of a drawing: moves, level and upright lines, and closings are all that it may hold.
Loops loopsOfSvg(std::string const& svg)
{
    std::smatch path;
    EXPECT_TRUE(std::regex_search(svg, path, std::regex("<path fill-rule=\"evenodd\" d=\"([^\"]*)\"/>")));
    std::istringstream commands(path[1]);
    Loops loops;
    for (char command = 0; commands >> command;) {
        if (command == 'Z') {
            loops.back().push_back(loops.back().front());
            continue;
        }
        std::array<int, 2> corner = command == 'M' ? std::array<int, 2>{} : loops.back().back();
        if (command == 'M') {
            commands >> corner[0] >> corner[1];
            loops.emplace_back();
        } else if (command == 'H' || command == 'V') {
            commands >> corner[command == 'H' ? 0 : 1];
        } else {
            ADD_FAILURE() << "a command of the path: " << command;
            return loops;
        }
        loops.back().push_back(corner);
    }
    return loops;
}

struct Outline : ::testing::Test {
    Folder folder;

    std::string drawn(std::string const& mask, std::vector<std::string> const& options = {})
    {
        return outlined(mask, "o.svg", options);
    }

    json numbers(std::string const& mask, std::vector<std::string> const& options = {})
    {
        return json::parse(outlined(mask, "o.json", options));
    }

private:
    std::string outlined(std::string const& mask, std::string const& output,
                         std::vector<std::string> const& options)
    {
        std::vector<std::string> arguments = {"outline", folder / mask, "-o", folder / output};
        arguments.insert(arguments.end(), options.begin(), options.end());
        auto const outcome = koimage(arguments);
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        EXPECT_THAT(outcome.err, IsEmpty());
        return readFile(folder / output);
    }
};

// Up here is up in the picture: a drawing that stood on its head would not begin so.
TEST_F(Outline, DrawsAPixelWhereItIs)
{
    writeFile(folder / "m.pgm", pgm(3, 2,
                                    {0, 255, 0,  //
                                     0, 0, 0}));
    EXPECT_EQ("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"3\" height=\"2\" viewBox=\"0 0 3 2\">\n"
              "<path fill-rule=\"evenodd\" d=\"M1 1H2V0H1Z\n\"/>\n</svg>\n",
              drawn("m.pgm"));
    EXPECT_EQ(
        (json{{"file", folder / "m.pgm"},
              {"width", 3},
              {"height", 2},
              {"outlines",
               {{{"hole", false}, {"length", 4}, {"points", {{1, 1}, {2, 1}, {2, 0}, {1, 0}, {1, 1}}}}}}}),
        numbers("m.pgm"));
}

TEST_F(Outline, TellsHolesFromWhatIsAroundThem)
{
    writeFile(folder / "m.pgm", pgm(5, 4, {255, 255, 255, 0,   0,    //
                                           255, 0,   255, 0,   0,    //
                                           255, 255, 255, 0,   255,  //
                                           0,   0,   0,   255, 0}));
    auto const outlines = numbers("m.pgm")["outlines"];
    ASSERT_EQ(4u, outlines.size());
    std::vector<json> holes;
    for (auto const& outline : outlines) {
        EXPECT_EQ(outline["points"].front(), outline["points"].back());
        if (outline["hole"])
            holes.push_back(outline);
    }
    ASSERT_EQ(1u, holes.size());
    EXPECT_EQ(4, holes[0]["length"]);
    EXPECT_THAT(holes[0]["points"], ::testing::Contains(json({1, 1})));
    EXPECT_THAT(holes[0]["points"], ::testing::Contains(json({2, 2})));
}

// Masks of the three kinds that the library is measured with, of awkward sizes.
TEST_F(Outline, FilledByTheEvenOddRuleIsTheMaskPixelForPixel)
{
    for (auto const& kind : koImage::testing::maskKinds)
        for (auto const [width, height] : {std::array{129, 65}, {1, 9}, {64, 1}, {31, 77}}) {
            auto const mask = koImage::testing::maskOfKind(kind, {width, height});
            std::vector<int> values, inside;
            for (int y = height - 1; y >= 0; --y)
                for (int x = 0; x < width; ++x) {
                    int const value = mask->pixels()[koImage::pixelOffset(x, y, width)];
                    values.push_back(value);
                    inside.push_back(value >= 128 ? 1 : 0);
                }
            writeFile(folder / "m.pgm", pgm(width, height, values));
            EXPECT_EQ(inside, filledByEvenOdd(loopsOfSvg(drawn("m.pgm")), width, height)) << kind.name;

            Loops loops;
            auto const report = numbers("m.pgm");
            for (auto const& outline : report["outlines"])
                loops.push_back(outline["points"]);
            EXPECT_EQ(inside, filledByEvenOdd(loops, width, height)) << kind.name;
        }
}

TEST_F(Outline, TakesTheMaskAboveAThresholdItsOppositeOrAlpha)
{
    auto const image = imageOf<Byte4>({4, 1});
    image->pixels()[0] = {0, 127, 0, 255};
    image->pixels()[1] = {128, 0, 0, 0};
    image->pixels()[2] = {0, 0, 10, 1};
    image->pixels()[3] = {255, 255, 255, 128};
    koImageIO::Misfits misfits;
    ASSERT_FALSE(koImageIO::writePicture(folder / "m.png", *image, misfits));
    auto const inside = [&](std::vector<std::string> const& options) {
        return filledByEvenOdd(loopsOfSvg(drawn("m.png", options)), 4, 1);
    };
    EXPECT_THAT(inside({}), ElementsAre(0, 1, 0, 1));
    EXPECT_THAT(inside({"--threshold", "0.02"}), ElementsAre(1, 1, 1, 1));
    EXPECT_THAT(inside({"--invert"}), ElementsAre(1, 0, 1, 0));
    EXPECT_THAT(inside({"--channel", "alpha"}), ElementsAre(1, 0, 0, 1));
    EXPECT_THAT(inside({"--channel", "alpha", "--threshold", "0"}), ElementsAre(1, 0, 1, 1));
}

// Words of 16 bits are levels like bytes: the mask of a picture does not depend on its depth.
TEST_F(Outline, IsTheSameOfEightAndSixteenBits)
{
    writeFile(folder / "m.pgm", pgm(3, 1, {127, 128, 129}));
    ASSERT_EQ(0, koimage({"convert", folder / "m.pgm", folder / "m.png", "--bits", "16"}).exitCode);
    EXPECT_EQ(drawn("m.pgm"), drawn("m.png"));
}

TEST_F(Outline, SaysWhereThereIsNothing)
{
    writeFile(folder / "m.pgm", pgm(3, 1, {0, 127, 0}));
    auto const outcome = koimage({"outline", folder / "m.pgm", folder / "o.svg"});
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "m.pgm" + ": no pixel belongs to the mask, so there are no outlines\n",
              outcome.err);
    EXPECT_THAT(loopsOfSvg(readFile(folder / "o.svg")), IsEmpty());
    EXPECT_THAT(koimage({"outline", folder / "m.pgm", folder / "o.svg", "-q"}).err, IsEmpty());
    EXPECT_THAT(numbers("m.pgm", {"-q"})["outlines"], IsEmpty());
}

TEST_F(Outline, GoesFromStandardInputToStandardOutput)
{
    auto const outcome = koimage({"outline", "-", "-o", "-", "--format", "json"}, pgm(1, 1, {255}));
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ("-", json::parse(outcome.out)["file"]);
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(Outline, RefusesWhatItCannotWriteOrRead)
{
    writeFile(folder / "m.pgm", pgm(1, 1, {255}));
    writeFile(folder / "broken.png", "\x89PNG\r\n\x1a\nand no more");
    EXPECT_EQ(2, koimage({"outline", folder / "m.pgm", "-o", folder / "o.dxf"}).exitCode);
    EXPECT_EQ(2, koimage({"outline", folder / "m.pgm", "-o", "-"}).exitCode);
    EXPECT_EQ(2, koimage({"outline", folder / "m.pgm", "-o", folder / "o.svg", "--format", "pdf"}).exitCode);
    EXPECT_EQ(2, koimage({"outline", folder / "m.pgm"}).exitCode);
    auto const outcome = koimage({"outline", folder / "broken.png", "-o", folder / "o.svg"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("broken.png"));
    EXPECT_EQ(1, koimage({"outline", folder / "m.pgm", "-o", folder / "none/o.svg"}).exitCode);
    EXPECT_THAT(folder.names(), ElementsAre("broken.png", "m.pgm"));

    // Control characters of a name are told as JSON tells them.
    std::string const name = folder / "a\"\n.pgm";
    writeFile(name, pgm(1, 1, {255}));
    EXPECT_EQ(0, koimage({"outline", name, "-o", folder / "o.json"}).exitCode);
    EXPECT_EQ(name, json::parse(readFile(folder / "o.json"))["file"]);
}

}  // namespace
}  // namespace koTool::testing
