// The blur, whose kernel is the sum of four boxes, against four box filters of the same widths, one after
// the other.

#include "peers.h"
#include "peers_opencv.h"

#include "koImage/ops/blur.h"

#include <opencv2/imgproc.hpp>

#include <array>

namespace koImage::peers {

namespace {

/// The widths of the four boxes of a diameter, as imageBlur chooses them.
std::array<int, 4> boxWidths(int diameter)
{
    float const radius = static_cast<float>(diameter) * 0.5f + 0.5f;
    auto const width = [radius](float share) {
        return 2 * (static_cast<int>(share * radius + 128) >> 8) + 1;
    };
    return {width(65), width(122), width(176), 2 * static_cast<int>(radius) + 1};
}

/// Four passes, the last into `result`.
void fourBoxes(cv::Mat source, cv::Mat between, cv::Mat result, int diameter)
{
    for (int const width : boxWidths(diameter)) {
        cv::boxFilter(source, between, -1, {width, width}, {-1, -1}, true, cv::BORDER_REPLICATE);
        source = between;
        std::swap(between, result);
    }
}

template <class Pixel>
Race race(int diameter)
{
    auto const source = randomImage<Pixel>(largeSize, 1);
    auto const ours = imageOf<Pixel>(largeSize);
    auto const theirs = imageOf<Pixel>(largeSize);
    auto const between = imageOf<Pixel>(largeSize);
    return {pixelCount(largeSize), 2 * pixelCount(largeSize) * std::int64_t{sizeof(Pixel)},
            [=] { imageBlur(*source, *ours, diameter, false, false); },
            [=] { fourBoxes(matOf(*source), matOf(*between), matOf(*theirs), diameter); }};
}

Race halfRace(int diameter)
{
    auto const source = randomImage<Half4>(largeSize, 1);
    auto const ours = imageOf<Half4>(largeSize);
    auto const theirs = imageOf<Half4>(largeSize);
    auto const floats = imageOf<Float4>(largeSize);
    auto const between = imageOf<Float4>(largeSize);
    auto const floatResult = imageOf<Float4>(largeSize);
    return {pixelCount(largeSize), 2 * pixelCount(largeSize) * std::int64_t{sizeof(Half4)},
            [=] { imageBlur(*source, *ours, diameter, false, false); },
            [=] {
                toFloats(*source, *floats);
                fourBoxes(matOf(*floats), matOf(*between), matOf(*floatResult), diameter);
                toHalves(*floatResult, *theirs);
            }};
}

template <class Pixel>
void add(Cases& cases, int diameter)
{
    auto const name = "blur " + std::to_string(diameter);
    if constexpr (std::is_same_v<Pixel, Half4>)
        cases.push_back(
            {caseName<Half4>(name, largeSize), openCVThroughFloat, [=] { return halfRace(diameter); }});
    else
        cases.push_back({caseName<Pixel>(name, largeSize), openCV, [=] { return race<Pixel>(diameter); }});
}

}  // namespace

void addBlur(Cases& cases)
{
    for (int const diameter : {5, 33, 129}) {
        add<unsigned char>(cases, diameter);
        add<Byte4>(cases, diameter);
        add<Half4>(cases, diameter);
        add<float>(cases, diameter);
        add<Float3>(cases, diameter);
    }
}

}  // namespace koImage::peers
