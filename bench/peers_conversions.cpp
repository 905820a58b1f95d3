// From one pixel type to another.

#include "peers.h"
#include "peers_opencv.h"

#include "koImage/image/convert.h"
#include "koImage/image/half_runs.h"

#include <opencv2/imgproc.hpp>

namespace koImage::peers {

namespace {

template <class From, class To>
using Convert = void (*)(TypedImage<From>&, TypedImage<To>&);

template <class From, class To>
void add(Cases& cases, Convert<From, To> ours, Convert<From, To> theirs)
{
    std::string const name = std::string("convert ") + PeerPixel<From>::name + " to";
    cases.push_back({caseName<To>(name, largeSize), openCV, [=] {
                         auto const source = randomImage<From>(largeSize, 1);
                         auto const ourResult = imageOf<To>(largeSize);
                         auto const theirResult = imageOf<To>(largeSize);
                         return Race{pixelCount(largeSize),
                                     pixelCount(largeSize) * std::int64_t{sizeof(From) + sizeof(To)},
                                     [=] { ours(*source, *ourResult); },
                                     [=] { theirs(*source, *theirResult); }};
                     }});
}

/// Every value times the factor, in the channel type of the result.
template <class From, class To>
void scale(TypedImage<From>& from, TypedImage<To>& to, double factor)
{
    cv::Mat result = matOf(to);
    matOf(from).convertTo(result, CV_MAT_DEPTH(PeerPixel<To>::type), factor);
}

template <class From, class To>
void imageConvertOf(TypedImage<From>& from, TypedImage<To>& to)
{
    imageConvert(from, to);
}

}  // namespace

void addConversions(Cases& cases)
{
    // Saturates where ours wraps.
    add<float, unsigned char>(cases, imageConvertOf, [](auto& from, auto& to) { scale(from, to, 255.0); });

    add<Byte4, Float4>(cases, imageConvertOf, [](auto& from, auto& to) { scale(from, to, 1 / 255.0); });
    add<Byte4, Float3>(cases, imageConvertOf, [](auto& from, auto& to) {
        static cv::Mat colours;  // keeps its memory
        cv::cvtColor(matOf(from), colours, cv::COLOR_RGBA2RGB);
        cv::Mat result = matOf(to);
        colours.convertTo(result, CV_32F, 1 / 255.0);
    });

    // OpenCV makes alpha 1, ours makes it 0.
    add<Float3, Float4>(cases, imageConvertOf, [](auto& from, auto& to) {
        cv::Mat result = matOf(to);
        cv::cvtColor(matOf(from), result, cv::COLOR_RGB2RGBA);
    });

    // OpenCV rounds ties to even, ours rounds them away from zero.
    add<Float4, Half4>(
        cases,
        [](auto& from, auto& to) {
            floatsToHalves(&from.pixels()->r, &to.pixels()->r,
                           4 * static_cast<std::size_t>(from.pixelCount()));
        },
        [](auto& from, auto& to) { toHalves(from, to); });
    add<Half4, Float4>(
        cases,
        [](auto& from, auto& to) {
            halvesToFloats(&from.pixels()->r, &to.pixels()->r,
                           4 * static_cast<std::size_t>(from.pixelCount()));
        },
        [](auto& from, auto& to) { toFloats(from, to); });
}

}  // namespace koImage::peers
