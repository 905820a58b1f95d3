#include "koImage/envmap/remap.h"

#include "koImage/envmap/cross_map.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/sphere_map.h"
#include "koImage/testing/test_images.h"
#include "tool/testing/command.h"

#include <gmock/gmock.h>

namespace koTool::testing {
namespace {

using koImage::Float3;
using koImage::Half4;
using koImage::Image;
using koImage::PixelTypeId;
using koImage::testing::imageOf;
using koImage::testing::samePixels;
using koImage::testing::Size;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using Map = ko::Reference<koImage::EnvironmentMap>;

/// Noise in the file `name` and as a picture of that size.
void writeNoise(std::string const& name, Size size)
{
    auto const image = koImage::testing::randomImage<Float3>(size, 3);
    koImageIO::Misfits misfits;
    ASSERT_FALSE(koImageIO::writePicture(name, *image, misfits));
}

struct Case {
    char const* name;
    std::vector<std::string> arguments;
    Map map;
    Size size;
};

std::vector<Case> everyShape()
{
    return {{"latlong", {"--shape", "latlong", "--size", "40"}, new koImage::LatLongMap(40, 20), {40, 20}},
            {"sphere", {"--shape", "sphere", "--size", "31"}, new koImage::SphereMap(31), {31, 31}},
            {"cross", {"--shape", "cross", "--size", "9"}, new koImage::CrossMap(9, false), {27, 36}},
            {"horizontal cross",
             {"--shape", "cross", "--size", "9", "--horizontal"},
             new koImage::CrossMap(9, true),
             {36, 27}}};
}

TEST(Remap, MakesTheMapThatTheLibraryMakesBetweenAnyTwoShapes)
{
    Folder const folder;
    for (Case const& from : everyShape()) {
        writeNoise(folder / "a.pfm", from.size);
        auto const source = colours(folder / "a.pfm");
        source->setWrap(true, std::string(from.name) != "latlong");
        from.map->setImage(source.get());

        for (Case const& to : everyShape()) {
            SCOPED_TRACE(std::string(from.name) + " to " + to.name);
            std::vector<std::string> arguments = {"remap", folder / "a.pfm", folder / "b.pfm"};
            arguments.insert(arguments.end(), to.arguments.begin(), to.arguments.end());
            auto const outcome = koimage(arguments);
            ASSERT_EQ(0, outcome.exitCode) << outcome.err;

            auto const expected = imageOf<Float3>(to.size);
            to.map->setImage(expected.get());
            koImage::remap(*from.map, *to.map);
            EXPECT_TRUE(samePixels(*expected, *colours(folder / "b.pfm")));
        }
    }
}

TEST(Remap, KeepsHalves)
{
    Folder const folder;
    auto const image = koImage::testing::randomImage<Half4>({8, 4}, 1);
    koImageIO::Misfits misfits;
    ASSERT_FALSE(koImageIO::writePicture(folder / "a.exr", *image, misfits));
    auto const outcome =
        koimage({"remap", folder / "a.exr", folder / "b.exr", "--shape", "cross", "--size", "4"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(PixelTypeId::Half4, picture(folder / "b.exr").image->pixelType());
}

TEST(Remap, RemapsTheLightOfBytes)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(4, 2, std::vector<int>(24, 188)));
    auto const outcome = koimage(
        {"remap", folder / "a.ppm", folder / "b.ppm", "--shape", "latlong", "--size", "6", "--bits", "8"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(std::vector<int>(54, 188), ppmChannels(readFile(folder / "b.ppm")));
}

TEST(Remap, TellsWhatTheMapIsInTheFile)
{
    Folder const folder;
    writeNoise(folder / "a.pfm", {8, 4});
    for (auto const& [name, right] : {std::pair{"sphere", "+x"}, {"latlong", "-x"}, {"cross", "-x"}}) {
        ASSERT_EQ(
            0,
            koimage({"remap", folder / "a.pfm", folder / "b.exr", "--shape", name, "--size", "8"}).exitCode);
        auto const metadata = info(folder / "b.exr")["metadata"];
        EXPECT_EQ(name, metadata["shape"]);
        EXPECT_EQ(std::string("+z up, -y in the middle, ") + right + " on the right",
                  metadata["orientation"]);
    }
}

TEST(Remap, TellsProportionsThatAreNoMap)
{
    Folder const folder;
    writeNoise(folder / "a.pfm", {7, 5});
    auto const outcome =
        koimage({"remap", folder / "a.pfm", folder / "b.pfm", "--shape", "cross", "--size", "4"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "a.pfm" +
                  ": 7 x 5 pixels are no environment map: those are 2 : 1 (latlong), 1 : 1 (sphere), "
                  "3 : 4 or 4 : 3 (cross)\n",
              outcome.err);
    EXPECT_EQ((std::vector<std::string>{"a.pfm"}), folder.names());
}

TEST(Remap, RefusesShapesAndSizesThatAreNone)
{
    for (std::vector<std::string> const& choice :
         std::vector<std::vector<std::string>>{{"--shape", "cross"},
                                               {"--size", "4"},
                                               {"--shape", "cube", "--size", "4"},
                                               {"--shape", "latlong", "--size", "5"},
                                               {"--shape", "latlong", "--size", "0"},
                                               {"--shape", "cross", "--size", "-3"},
                                               {"--shape", "sphere", "--size", "46341"},
                                               {"--shape", "cross", "--size", "13378"},
                                               {"--shape", "sphere", "--size", "4", "--horizontal"}}) {
        std::vector<std::string> arguments = {"remap", "none.exr", "b.exr"};
        arguments.insert(arguments.end(), choice.begin(), choice.end());
        EXPECT_EQ(2, koimage(arguments).exitCode) << ::testing::PrintToString(choice);
    }
}

}  // namespace
}  // namespace koTool::testing
