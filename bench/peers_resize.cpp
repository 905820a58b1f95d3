// Bilinear and point resizing. Ours makes a new image at every call, of memory that the last one left; OpenCV
// writes into one that it keeps, except in the cases called "fresh", where both make a new one.

#include "peers.h"
#include "peers_opencv.h"

#include "koImage/envmap/resize.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <type_traits>

namespace koImage::peers {

namespace {

struct Resizing {
    Size from;
    Size to;
    bool fresh;
};

constexpr Resizing resizings[] = {
    {{4096, 2048}, {1024, 512}, false}, {{4096, 2048}, {1024, 512}, true}, {{4096, 2048}, {200, 100}, false},
    {{1024, 512}, {4096, 2048}, false}, {{1024, 512}, {4096, 2048}, true},
};

void resizeByPeer(cv::Mat const& source, cv::Mat kept, Resizing how, bool filter)
{
    if (how.fresh)
        kept.release();
    cv::resize(source, kept, {how.to.width, how.to.height}, 0, 0,
               filter ? cv::INTER_LINEAR : cv::INTER_NEAREST);
}

/// What one call reads and writes: one or four pixels of the source for each of the result, but each only
/// once.
template <class Pixel>
std::int64_t bytesOf(Resizing how, bool filter)
{
    std::int64_t const result = pixelCount(how.to);
    std::int64_t const source = std::min(pixelCount(how.from), (filter ? 4 : 1) * result);
    return (source + result) * std::int64_t{sizeof(Pixel)};
}

template <class Pixel>
Race race(Resizing how, bool filter)
{
    auto const source = randomImage<Pixel>(how.from, 1);
    auto const theirs = imageOf<Pixel>(how.to);
    return {pixelCount(how.to), bytesOf<Pixel>(how, filter),
            [=] { ko::Reference<Image>(resize(*source, how.to.width, how.to.height, filter)); },
            [=] { resizeByPeer(matOf(*source), matOf(*theirs), how, filter); }};
}

/// Points are words to OpenCV; only blending goes through float.
Race blendedHalfRace(Resizing how)
{
    auto const source = randomImage<Half4>(how.from, 1);
    auto const floats = imageOf<Float4>(how.from);
    auto const floatResult = imageOf<Float4>(how.to);
    auto const theirs = imageOf<Half4>(how.to);
    return {pixelCount(how.to), bytesOf<Half4>(how, true),
            [=] { ko::Reference<Image>(resize(*source, how.to.width, how.to.height, true)); },
            [=] {
                toFloats(*source, *floats);
                resizeByPeer(matOf(*floats), matOf(*floatResult), {how.from, how.to, false}, true);
                cv::Mat result = matOf(*theirs);
                if (how.fresh)
                    result.release();
                cv::convertFp16(matOf(*floatResult), result);
            }};
}

template <class Pixel>
void add(Cases& cases, Resizing how, bool filter)
{
    auto const name = std::string(filter ? "bilinear " : "point ") + PeerPixel<Pixel>::name + " " +
                      text(how.from) + " to " + text(how.to) + (how.fresh ? " fresh" : "");
    if constexpr (std::is_same_v<Pixel, Half4>)
        if (filter) {
            cases.push_back({name, openCVThroughFloat, [=] { return blendedHalfRace(how); }});
            return;
        }
    cases.push_back({name, openCV, [=] { return race<Pixel>(how, filter); }});
}

}  // namespace

void addResize(Cases& cases)
{
    for (bool const filter : {true, false}) {
        for (Resizing const& how : resizings) {
            add<Byte4>(cases, how, filter);
            add<Half4>(cases, how, filter);
            add<float>(cases, how, filter);
            add<Float3>(cases, how, filter);
            add<Float4>(cases, how, filter);
        }
    }
}

}  // namespace koImage::peers
