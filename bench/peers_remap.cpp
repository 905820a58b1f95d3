// Remapping between shapes. OpenCV remaps with a map of coordinates that is given: making that map, which
// ours does at every call, is not in its time. Its map says the same places, -1 where there is none; it
// blends by 32nds, and does not wrap at the seam.

#include "peers.h"
#include "peers_opencv.h"

#include "koImage/envmap/environment_map.h"
#include "koImage/envmap/remap.h"

#include <opencv2/imgproc.hpp>

namespace koImage::peers {

namespace {

using MapRef = ko::Reference<EnvironmentMap>;

struct Remapping {
    char const* name;
    Size from;
    Size to;
};

constexpr Size latLong{2048, 1024};
constexpr Size cross{1536, 2048};
constexpr Size sphere{1024, 1024};

constexpr Remapping remappings[] = {
    {"lat-long to cross", latLong, cross},      {"cross to lat-long", cross, latLong},
    {"lat-long to sphere", latLong, sphere},    {"sphere to lat-long", sphere, latLong},
    {"cross to sphere", cross, sphere},         {"sphere to cross", sphere, cross},
    {"lat-long to lat-long", latLong, latLong},
};

/// Where each pixel of the destination lies in the source, in pixels.
void findPlaces(EnvironmentMap const& source, EnvironmentMap const& destination, cv::Mat& places)
{
    Image const& from = *source.image();
    Image const& to = *destination.image();
    places.create(to.height(), to.width(), CV_32FC2);
    for (int y = 0; y < to.height(); ++y)
        for (int x = 0; x < to.width(); ++x) {
            koLinear::VectorFlt dir;
            cv::Vec2f& place = places.at<cv::Vec2f>(y, x);
            place = {-1, -1};
            if (destination.coordToDir((static_cast<float>(x) + 0.5f) * to.invWidth(),
                                       (static_cast<float>(y) + 0.5f) * to.invHeight(), dir)) {
                source.dirToCoord(dir, place[0], place[1]);
                place[0] *= static_cast<float>(from.width());
                place[1] *= static_cast<float>(from.height());
            }
        }
}

template <class Pixel>
Race race(Remapping how, bool fixedPoint)
{
    auto const source = randomImage<Pixel>(how.from, 1);
    auto const ours = imageOf<Pixel>(how.to);
    auto const theirs = imageOf<Pixel>(how.to);
    MapRef const from(newEnvironmentMap(*source));
    MapRef const to(newEnvironmentMap(*ours));

    cv::Mat places;
    cv::Mat fractions;
    findPlaces(*from, *to, places);
    if (fixedPoint) {
        cv::Mat whole;
        cv::convertMaps(places, cv::Mat(), whole, fractions, CV_16SC2);
        places = whole;
    }
    return {pixelCount(how.to), (pixelCount(how.from) + pixelCount(how.to)) * std::int64_t{sizeof(Pixel)},
            [=] { remap(*from, *to); },
            [=] {
                cv::Mat result = matOf(*theirs);
                cv::remap(matOf(*source), result, places, fractions, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
            }};
}

template <class Pixel>
void add(Cases& cases, Remapping how, bool fixedPoint)
{
    cases.push_back({caseName<Pixel>(how.name, how.to),
                     fixedPoint ? "OpenCV, map of integers given" : "OpenCV, map given",
                     [=] { return race<Pixel>(how, fixedPoint); }});
}

}  // namespace

void addRemap(Cases& cases)
{
    for (Remapping const& how : remappings) {
        add<Float3>(cases, how, false);
        add<Float3>(cases, how, true);
        add<Float4>(cases, how, false);
        add<float>(cases, how, false);
    }
}

}  // namespace koImage::peers
