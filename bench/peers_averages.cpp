// The mean of all pixels. OpenCV adds integers for bytes, and floats in an order of its own.

#include "peers.h"
#include "peers_opencv.h"

#include "koImage/ops/average.h"

namespace koImage::peers {

namespace {

template <class Pixel>
void add(Cases& cases)
{
    cases.push_back({caseName<Pixel>("average", largeSize), openCV, [] {
                         auto const image = randomImage<Pixel>(largeSize, 1);
                         return Race{pixelCount(largeSize),
                                     pixelCount(largeSize) * std::int64_t{sizeof(Pixel)},
                                     [=] { imageAverage(*image); }, [=] { cv::mean(matOf(*image)); }};
                     }});
}

void addHalf(Cases& cases)
{
    cases.push_back({caseName<Half4>("average", largeSize), openCVThroughFloat, [] {
                         auto const image = randomImage<Half4>(largeSize, 1);
                         auto const floats = imageOf<Float4>(largeSize);
                         return Race{pixelCount(largeSize),
                                     pixelCount(largeSize) * std::int64_t{sizeof(Half4)},
                                     [=] { imageAverage(*image); },
                                     [=] {
                                         toFloats(*image, *floats);
                                         cv::mean(matOf(*floats));
                                     }};
                     }});
}

}  // namespace

void addAverages(Cases& cases)
{
    add<unsigned char>(cases);
    add<Byte4>(cases);
    addHalf(cases);
    add<float>(cases);
    add<Float3>(cases);
    add<Float4>(cases);
}

}  // namespace koImage::peers
