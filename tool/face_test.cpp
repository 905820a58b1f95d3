#include "koImage/testing/test_images.h"
#include "tool/testing/command.h"

#include <gmock/gmock.h>

namespace koTool::testing {
namespace {

using koImage::testing::samePixels;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// A cross whose cells of 2 x 2 pixels count 10, 20, ... 120 from the upper left, and their pixels 1 to 4.
std::string numberedCross(int columns, int rows)
{
    std::vector<int> channels;
    for (int y = 0; y < 2 * rows; ++y) {
        for (int x = 0; x < 2 * columns; ++x) {
            int const cell = (y / 2 * columns + x / 2 + 1) * 10;
            int const pixel = y % 2 * 2 + x % 2 + 1;
            channels.insert(channels.end(), {cell + pixel, 0, 0});
        }
    }
    return ppm(2 * columns, 2 * rows, channels);
}

/// The red channels of a face that is copied out.
std::vector<int> faceOf(std::string const& cross, std::string const& face)
{
    auto const outcome = koimage({"face", cross, "-", "--format", "pnm", "--face", face});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    auto const channels = ppmChannels(outcome.out);
    std::vector<int> reds;
    for (std::size_t i = 0; i < channels.size(); i += 3)
        reds.push_back(channels[i]);
    return reds;
}

TEST(Face, CopiesEachFaceOutOfAVerticalCrossAndTurnsPlusY)
{
    Folder const folder;
    std::string const cross = folder / "cross.ppm";
    writeFile(cross, numberedCross(3, 4));
    EXPECT_THAT(faceOf(cross, "+z"), ElementsAre(21, 22, 23, 24));
    EXPECT_THAT(faceOf(cross, "+x"), ElementsAre(41, 42, 43, 44));
    EXPECT_THAT(faceOf(cross, "-y"), ElementsAre(51, 52, 53, 54));
    EXPECT_THAT(faceOf(cross, "-x"), ElementsAre(61, 62, 63, 64));
    EXPECT_THAT(faceOf(cross, "-z"), ElementsAre(81, 82, 83, 84));
    EXPECT_THAT(faceOf(cross, "+y"), ElementsAre(114, 113, 112, 111));
}

TEST(Face, CopiesEachFaceOutOfAHorizontalCrossAndTurnsPlusY)
{
    Folder const folder;
    std::string const cross = folder / "cross.ppm";
    writeFile(cross, numberedCross(4, 3));
    EXPECT_THAT(faceOf(cross, "-x"), ElementsAre(31, 32, 33, 34));
    EXPECT_THAT(faceOf(cross, "+y"), ElementsAre(54, 53, 52, 51));
    EXPECT_THAT(faceOf(cross, "-z"), ElementsAre(61, 62, 63, 64));
    EXPECT_THAT(faceOf(cross, "-y"), ElementsAre(71, 72, 73, 74));
    EXPECT_THAT(faceOf(cross, "+z"), ElementsAre(81, 82, 83, 84));
    EXPECT_THAT(faceOf(cross, "+x"), ElementsAre(111, 112, 113, 114));
}

TEST(Face, PutsAFaceBackWhereItCameFrom)
{
    Folder const folder;
    for (auto const& [columns, rows] : {std::pair{3, 4}, {4, 3}}) {
        std::string const cross = folder / "cross.ppm";
        std::string const file = numberedCross(columns, rows);
        for (std::string const face : {"-x", "+x", "-y", "+y", "-z", "+z"}) {
            writeFile(cross, file);
            ASSERT_EQ(0, koimage({"face", cross, folder / "face.ppm", "--face", face}).exitCode);
            ASSERT_EQ(0, koimage({"face", cross, folder / "painted.ppm", "--face", face, "--paste",
                                  folder / "face.ppm"})
                             .exitCode);
            EXPECT_EQ(file, readFile(folder / "painted.ppm")) << face;
        }
    }
}

TEST(Face, PastesAPictureAndLeavesTheOthersAlone)
{
    Folder const folder;
    writeFile(folder / "cross.ppm", numberedCross(3, 4));
    writeFile(folder / "face.ppm", ppm(2, 2, {201, 0, 0, 202, 0, 0, 203, 0, 0, 204, 0, 0}));
    ASSERT_EQ(0, koimage({"face", folder / "cross.ppm", folder / "b.ppm", "--face", "+y", "--paste",
                          folder / "face.ppm"})
                     .exitCode);
    EXPECT_THAT(faceOf(folder / "b.ppm", "+y"), ElementsAre(201, 202, 203, 204));
    EXPECT_THAT(faceOf(folder / "b.ppm", "-z"), ElementsAre(81, 82, 83, 84));
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"b.ppm", "cross.ppm", "face.ppm"}));
}

TEST(Face, TellsTheMapThatHasNoFaces)
{
    Folder const folder;
    writeFile(folder / "a.pgm", pgm(4, 2, std::vector<int>(8)));
    auto outcome = koimage({"face", folder / "a.pgm", folder / "b.pgm", "--face", "+x"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr(folder / "a.pgm" + ": is a latlong map; only crosses have faces"));

    writeFile(folder / "a.pgm", pgm(5, 2, std::vector<int>(10)));
    outcome = koimage({"face", folder / "a.pgm", folder / "b.pgm", "--face", "+x"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr(folder / "a.pgm" + ": 5 x 2 pixels are no environment map"));
}

TEST(Face, TellsTheFaceThatDoesNotFit)
{
    Folder const folder;
    writeFile(folder / "cross.ppm", numberedCross(3, 4));
    writeFile(folder / "face.ppm", ppm(1, 1, {1, 2, 3}));
    auto const outcome = koimage(
        {"face", folder / "cross.ppm", folder / "b.ppm", "--face", "+x", "--paste", folder / "face.ppm"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "face.ppm" + ": is 1 x 1; faces of " + folder / "cross.ppm" +
                  " are 2 x 2\n",
              outcome.err);
}

TEST(Face, RefusesANameThatNoFaceHas)
{
    EXPECT_EQ(2, koimage({"face", "a.ppm", "b.ppm", "--face", "up"}).exitCode);
    EXPECT_EQ(2, koimage({"face", "a.ppm", "b.ppm"}).exitCode);
}

}  // namespace
}  // namespace koTool::testing
