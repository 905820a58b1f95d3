#include "koImage/image/alpha.h"

#include "koImage/image/alpha_v3.h"
#include "koImage/image/byte4_words.h"

#include <algorithm>

namespace koImage {

namespace {

/// How many pixels the arguments of both edits name.
std::int64_t pixelsToEdit(unsigned char const* pixels, int width, int height, int channels)
{
    bool const some = pixels != nullptr && width > 0 && height > 0 && channels == 4;
    return some ? std::int64_t{width} * height : 0;
}

/// A pixel with its colours multiplied by factorOf(its alpha), a number in 0 .. 255.
template <class FactorOf>
std::uint32_t scaledColours(std::uint32_t pixel, FactorOf factorOf)
{
    auto const channel = [pixel](int c) {
        return static_cast<std::int32_t>(pixel >> shiftOfChannel(c) & 0xFF);
    };
    float const factor = factorOf(channel(3));
    auto const scaled = [&](int c) {
        auto const value = static_cast<std::int32_t>(static_cast<float>(channel(c)) * factor);
        return static_cast<std::uint32_t>(std::min(value, 255)) << shiftOfChannel(c);
    };
    return scaled(0) | scaled(1) | scaled(2) | (pixel & 0xFFu << shiftOfChannel(3));
}

}  // namespace

void convert2PreMultipliedAlpha(unsigned char* pixels, int width, int height, int channels)
{
    std::int64_t const count = pixelsToEdit(pixels, width, height, channels);
    if (count == 0)
        return;
    std::int64_t done = 0;
#if KO_SIMD_V3
    done = v3::editLines(pixels, count, v3::preMultiplied);
#endif
    editWords(pixels + 4 * done, count - done, [](std::uint32_t pixel) {
        return scaledColours(pixel, [](std::int32_t alpha) { return static_cast<float>(alpha) / 255.0f; });
    });
}

void convert2NonPreMultipliedAlpha(unsigned char* pixels, int width, int height, int channels)
{
    std::int64_t const count = pixelsToEdit(pixels, width, height, channels);
    if (count == 0)
        return;
    std::int64_t done = 0;
#if KO_SIMD_V3
    done = v3::editLines(pixels, count, v3::unPreMultiplied);
#endif
    editWords(pixels + 4 * done, count - done, [](std::uint32_t pixel) {
        // Without alpha the divisor is 255 and the factor 1: the colour stays. A sum, for g++ does not
        // vectorise a choice here.
        return scaledColours(pixel, [](std::int32_t alpha) {
            return 255.0f / static_cast<float>(alpha + 255 * (alpha == 0));
        });
    });
}

}  // namespace koImage
