// Real light probes, lat-long maps of 1024 x 512 floats with suns, lamps and night skies: read, taken apart
// into the faces of a cross, and put together again.

#include "tool/testing/command.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <numbers>

namespace koTool::testing {
namespace {

using koImage::Float3;
using Colours = ko::Reference<koImage::TypedImage<Float3>>;

constexpr int width = 1024;
constexpr int height = 512;

std::string probe(std::string const& name)
{
    return std::string(KOIMAGE_PROBES) + "/" + name + ".exr";
}

/// How far two maps of that size are apart, over the sphere: each pixel counts by its solid angle.
struct Distance {
    double ofLight;   ///< of the means of their light, as a part of it
    double ofPixels;  ///< median of the pixels' distances, as parts of their brightest channel
};

double channelDistance(Float3 const& a, Float3 const& b)
{
    return std::max({std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)});
}

/// `aside`: pixels by which the copy is looked at to the right, and above.
Distance distanceOf(Colours const& original, Colours const& copy, int aside = 0)
{
    double light = 0.0;
    double difference = 0.0;
    std::vector<std::pair<double, double>> distances;  // with solid angles
    double sphere = 0.0;
    for (int y = 0; y < height; ++y) {
        double const weight = std::sin((y + 0.5) * std::numbers::pi / height);
        for (int x = 0; x < width; ++x) {
            auto const& a = original->pixels()[koImage::pixelOffset(x, y, width)];
            auto const& b = copy->pixels()[koImage::pixelOffset((x + aside) % width,
                                                                std::min(y + aside, height - 1), width)];
            light += weight * (double{a.r} + a.g + a.b);
            difference += weight * (double{b.r} - a.r + b.g - a.g + b.b - a.b);
            double const brightness = std::max({a.r, a.g, a.b, 1e-6f});
            distances.emplace_back(channelDistance(a, b) / brightness, weight);
            sphere += weight;
        }
    }

    std::sort(distances.begin(), distances.end());
    double below = 0.0;
    auto const median = std::find_if(distances.begin(), distances.end(),
                                     [&](auto const& d) { return (below += d.second) >= sphere / 2; });
    return {std::abs(difference) / light, median->first};
}

struct RealProbe : ::testing::TestWithParam<char const*> {};

TEST_P(RealProbe, SurvivesTheWayThroughACross)
{
    Folder const folder;
    std::string const file = probe(GetParam());
    auto const about = koimage({"info", "--json", file});
    ASSERT_EQ(0, about.exitCode) << about.err << "(.ci/probes fetches the probes)";
    auto const json = nlohmann::json::parse(about.out);
    EXPECT_EQ("latlong", json["shape"]);
    EXPECT_EQ(width, json["width"]);
    EXPECT_EQ(height, json["height"]);
    EXPECT_EQ(0, json["nan"]);
    EXPECT_EQ(0, json["infinite"]);

    auto outcome = koimage({"remap", file, folder / "cross.exr", "--shape", "cross", "--size", "512"});
    ASSERT_EQ(0, outcome.exitCode) << outcome.err;
    outcome =
        koimage({"remap", folder / "cross.exr", folder / "back.exr", "--shape", "latlong", "--size", "1024"});
    ASSERT_EQ(0, outcome.exitCode) << outcome.err;

    auto const original = colours(file);
    auto const distance = distanceOf(original, colours(folder / "back.exr"));
    auto const neighbour = distanceOf(original, original, 1);
    std::cout << GetParam() << ": light " << 100 * distance.ofLight << " %, pixels "
              << 100 * distance.ofPixels << " %, which is " << distance.ofPixels / neighbour.ofPixels
              << " of the next pixel's\n";

    // A bilinear sample at the centre of a pixel is the mean of it and its neighbours to the right and above:
    // half a pixel aside. The cross has twice the pixels to a degree, so the way there and back is three
    // quarters of a pixel of the original, to the right and up. How far that is depends on how fine the
    // picture is (2 % in a street, 20 % among leaves), so the yardstick is the picture itself, one pixel to
    // the right and up: 0.54 to 0.60 of it in all eight.
    EXPECT_LE(distance.ofPixels, 0.65 * neighbour.ofPixels);
    EXPECT_GE(distance.ofPixels, 0.25 * 0.65 * neighbour.ofPixels);

    // The light of a sun of a few pixels depends on how the samples meet it: 0.8 % at sunrise, less
    // elsewhere.
    EXPECT_LE(distance.ofLight, 0.01);
}

INSTANTIATE_TEST_SUITE_P(OfBlender, RealProbe,
                         ::testing::Values("city", "courtyard", "forest", "interior", "night", "studio",
                                           "sunrise", "sunset"),
                         [](auto const& parameter) { return std::string(parameter.param); });

}  // namespace
}  // namespace koTool::testing
