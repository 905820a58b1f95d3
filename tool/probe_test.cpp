#include "koImage/envmap/cross_map.h"
#include "koImage/envmap/labelled_probe.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/sphere_map.h"
#include "koImage/testing/test_images.h"
#include "tool/testing/command.h"

#include <gmock/gmock.h>

namespace koTool::testing {
namespace {

using koImage::Float3;
using koImage::testing::imageOf;
using koImage::testing::samePixels;
using koImage::testing::Size;

TEST(Probe, DrawsTheLabelledProbeInEveryShape)
{
    Folder const folder;
    struct Case {
        std::vector<std::string> arguments;
        ko::Reference<koImage::EnvironmentMap> map;
        Size size;
    };
    for (Case const& c :
         {Case{{"latlong", "--size", "64"}, new koImage::LatLongMap(64, 32), {64, 32}},
          Case{{"sphere", "--size", "33"}, new koImage::SphereMap(33), {33, 33}},
          Case{{"cross", "--size", "20"}, new koImage::CrossMap(20, false), {60, 80}},
          Case{{"cross", "--size", "20", "--horizontal"}, new koImage::CrossMap(20, true), {80, 60}}}) {
        std::vector<std::string> arguments = {"probe", folder / "a.pfm", "--shape"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        auto const outcome = koimage(arguments);
        ASSERT_EQ(0, outcome.exitCode) << outcome.err;
        auto const expected = imageOf<Float3>(c.size);
        c.map->setImage(expected.get());
        koImage::drawLabelledProbe(*c.map);
        EXPECT_TRUE(samePixels(*expected, *colours(folder / "a.pfm"))) << c.arguments[0];
    }
}

TEST(Probe, RefusesASizeThatIsNone)
{
    EXPECT_EQ(2, koimage({"probe", "a.png", "--shape", "latlong", "--size", "63"}).exitCode);
    EXPECT_EQ(2, koimage({"probe", "a.png", "--shape", "latlong"}).exitCode);
    EXPECT_EQ(2, koimage({"probe", "a.png", "--size", "64"}).exitCode);
}

}  // namespace
}  // namespace koTool::testing
