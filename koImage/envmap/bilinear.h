// The parts of a bilinear sample, shared by the single sample and by whole rows of them: positions, the pixel
// at a position, and the two blends, first along the row and then between two rows. Private.
#pragma once

#include "koBase/linear.h"
#include "koImage/envmap/sample_bilinear.h"
#include "koImage/image/channels.h"

#include <algorithm>
#include <functional>
#include <span>

namespace koImage {

/// Pulls the coordinate 1 just inside the last pixel.
inline constexpr float insideScale = 1.0f - koLinear::epsilonTolFlt;

/// The position of a normalised coordinate along an axis, in pixels from the first edge.
inline float positionOf(float coordinate, int size)
{
    return static_cast<float>(size) * (coordinate * insideScale);
}

/// The centre of pixel x in normalised coordinates; `step` is the image's invWidth or invHeight.
inline float centreOf(int x, float step)
{
    return (static_cast<float>(x) + 0.5f) * step;
}

/// The pixel that point sampling takes along an axis.
inline std::int32_t nearestTo(float coordinate, int size)
{
    return truncateToInt(positionOf(coordinate, size));
}

/// The two pixels that a coordinate falls between, along one axis, and how far it is from near to far.
struct Neighbours {
    std::int64_t near;
    std::int64_t far;
    float t;
};

inline Neighbours neighboursOf(float coordinate, int size, bool wrap)
{
    float const position = positionOf(coordinate, size);
    std::int64_t const near = truncateToInt(position);

    // Only the far one is wrapped or clamped, on purpose: see sample_bilinear.h.
    std::int64_t far = near + 1;
    if (far >= size || near < -1)
        far = wrap ? far % size : near >= -1 ? std::int64_t{size} - 1 : 0;

    return {near, far, position - static_cast<float>(near)};
}

/// The pixel at (x, y), or the nearest one that is in the array: see sample_bilinear.h.
template <class Pixel>
Pixel const& pixelNear(std::span<Pixel const> pixels, Image const& image, std::int64_t x, std::int64_t y)
{
    auto const count = static_cast<std::int64_t>(pixels.size());
    std::int64_t const width = image.width();
    std::int64_t const height = image.height();

    // Positions are 32-bit, or one beyond: the index fits 64 bits.
    std::int64_t index = y * width + x;
    if (index < 0 || index >= count) {
        x = std::max<std::int64_t>(std::min(x, width - 1), 0);
        y = std::max<std::int64_t>(std::min(y, height - 1), 0);
        index = std::clamp<std::int64_t>(y * width + x, 0, count - 1);
    }
    return pixels[static_cast<std::size_t>(index)];
}

/// The factors of the near and the far pixel.
struct Weights {
    explicit Weights(float t) : Weights(1.0f - t, t) {}
    Weights(float nearWeight, float farWeight) : near(nearWeight), far(farWeight) {}

    float near;
    float far;
};

/// The weights along a row, as the pixel type takes them: halves are weighted by halves.
template <class Pixel>
Weights rowWeights(float t)
{
    Weights weights(t);
    if constexpr (std::is_same_v<Pixel, Half4>) {
        weights.near = half(weights.near);
        weights.far = half(weights.far);
    }
    return weights;
}

// blendAcross blends two pixels of a row, blendDown two results of blendAcross from two rows. No weight of 0
// is skipped: 0 times infinity is NaN.

inline float blendAcross(float near, float far, Weights weights)
{
    return weights.near * near + weights.far * far;
}

inline Float3 blendAcross(Float3 const& near, Float3 const& far, Weights weights)
{
    return zipChannels(near, far, [weights](float n, float f) { return blendAcross(n, f, weights); });
}

inline Float4 blendAcross(Float4 const& near, Float4 const& far, Weights weights)
{
    return zipChannels(near, far, [weights](float n, float f) { return blendAcross(n, f, weights); });
}

// Every product rounds to half, and the sum once more.
inline Half4 blendAcross(Half4 const& near, Half4 const& far, Weights weights)
{
    return zipChannels(mapChannels(near, [weights](float n) { return weights.near * n; }),
                       mapChannels(far, [weights](float f) { return weights.far * f; }), std::plus<float>{});
}

template <class FloatingPixel>
FloatingPixel blendDown(FloatingPixel const& near, FloatingPixel const& far, Weights weights)
{
    return blendAcross(near, far, weights);
}

inline std::uint32_t truncatedProduct(std::int32_t value, float weight)
{
    return static_cast<std::uint32_t>(truncateToInt(static_cast<float>(value) * weight));
}

/// Two truncated products, summed modulo 2^32.
inline std::int32_t blendIntegers(std::int32_t near, std::int32_t far, Weights weights)
{
    return static_cast<std::int32_t>(truncatedProduct(near, weights.near) +
                                     truncatedProduct(far, weights.far));
}

inline Int4 blendAcross(Byte4 const& near, Byte4 const& far, Weights weights)
{
    return {blendIntegers(near.r, far.r, weights), blendIntegers(near.g, far.g, weights),
            blendIntegers(near.b, far.b, weights), blendIntegers(near.a, far.a, weights)};
}

inline Byte4Sample blendDown(Int4 const& near, Int4 const& far, Weights weights)
{
    auto const blend = [weights](std::int32_t n, std::int32_t f) {
        return static_cast<std::uint32_t>(blendIntegers(n, f, weights));
    };
    return {blend(near.r, far.r), blend(near.g, far.g), blend(near.b, far.b), blend(near.a, far.a)};
}

/// What sampleBilinear writes for an image of Pixel.
template <class Pixel>
using SampleOf = std::conditional_t<std::is_same_v<Pixel, Byte4>, Byte4Sample, Pixel>;

/// The sample as a pixel.
template <class Pixel>
Pixel const& pixelOf(Pixel const& sample)
{
    return sample;
}

inline Byte4 pixelOf(Byte4Sample const& sample)
{
    auto const byte = [](std::uint32_t channel) {
        return static_cast<unsigned char>(std::min<std::uint32_t>(channel, 255));
    };
    return {byte(sample[0]), byte(sample[1]), byte(sample[2]), byte(sample[3])};
}

}  // namespace koImage
