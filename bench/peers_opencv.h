// Our images as OpenCV sees them: the same pixels, not a copy.
#pragma once

#include "koImage/image/typed_image.h"
#include "koImage/testing/test_images.h"

#include <opencv2/core.hpp>

#include <string>

namespace koImage::peers {

using testing::imageOf;
using testing::ImageRef;
using testing::randomImage;
using testing::Size;

template <class Pixel>
struct PeerPixel;
template <>
struct PeerPixel<unsigned char> {
    static constexpr int type = CV_8UC1;
    static constexpr char const* name = "byte";
};
template <>
struct PeerPixel<Byte4> {
    static constexpr int type = CV_8UC4;
    static constexpr char const* name = "Byte4";
};
template <>
struct PeerPixel<Half4> {
    static constexpr int type = CV_16SC4;  // what convertFp16 takes for halves
    static constexpr char const* name = "Half4";
};
template <>
struct PeerPixel<float> {
    static constexpr int type = CV_32FC1;
    static constexpr char const* name = "float";
};
template <>
struct PeerPixel<Float3> {
    static constexpr int type = CV_32FC3;
    static constexpr char const* name = "Float3";
};
template <>
struct PeerPixel<Float4> {
    static constexpr int type = CV_32FC4;
    static constexpr char const* name = "Float4";
};

/// A view: the image must outlive it.
template <class Pixel>
cv::Mat matOf(TypedImage<Pixel>& image)
{
    return cv::Mat(image.height(), image.width(), PeerPixel<Pixel>::type, image.pixels());
}

// OpenCV computes on halves through float.

inline void toFloats(TypedImage<Half4>& halves, TypedImage<Float4>& floats)
{
    cv::Mat result = matOf(floats);
    cv::convertFp16(matOf(halves), result);
}

inline void toHalves(TypedImage<Float4>& floats, TypedImage<Half4>& halves)
{
    cv::Mat result = matOf(halves);
    cv::convertFp16(matOf(floats), result);
}

inline constexpr char const* openCV = "OpenCV";
inline constexpr char const* openCVThroughFloat = "OpenCV, through float";

inline std::string text(Size size)
{
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

/// "add Float4 4096x2048"
template <class Pixel>
std::string caseName(std::string const& operation, Size size)
{
    return operation + " " + PeerPixel<Pixel>::name + " " + text(size);
}

constexpr std::int64_t pixelCount(Size size)
{
    return std::int64_t{size.width} * size.height;
}

inline constexpr Size largeSize{4096, 2048};

/// The size whose image takes 1 MiB, or a little less: results that stay in the cache.
template <class Pixel>
constexpr Size smallSize()
{
    return {1024, (1 << 20) / 1024 / static_cast<int>(sizeof(Pixel))};
}

}  // namespace koImage::peers
