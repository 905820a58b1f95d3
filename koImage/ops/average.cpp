#include "koImage/ops/average.h"

#include "koImage/image/simd.h"
#include "koImage/image/typed_image.h"
#include "koImage/ops/average_v3.h"

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <type_traits>

namespace koImage {

namespace {

/// One sum for each channel. Channels that a pixel does not have stay 0.
using Sums = std::array<float, 4>;

void add(Sums& sums, float value)
{
    sums[0] += value;
}

void add(Sums& sums, Float3 const& p)
{
    sums[0] += p.r;
    sums[1] += p.g;
    sums[2] += p.b;
}

void add(Sums& sums, Float4 const& p)
{
    sums[0] += p.r;
    sums[1] += p.g;
    sums[2] += p.b;
    sums[3] += p.a;
}

void add(Sums& sums, Half4 const& p)
{
    // Infinity and NaN count as 1, on purpose: one broken pixel does not spoil the mean.
    auto const finite = [](half h) { return (h.bits() & 0x7C00) == 0x7C00 ? 1.0f : static_cast<float>(h); };
    add(sums, Float4{finite(p.r), finite(p.g), finite(p.b), finite(p.a)});
}

/// The sums of the channels, in storage order.
template <class Pixel>
Sums sumsOf(std::span<Pixel const> pixels)
{
    Sums sums{};
#if KO_SIMD_V3
    if constexpr (std::is_same_v<Pixel, float>)
        return {v3::sumInOrder<v3::FloatSum>(pixels.data(), pixels.size())};
    if constexpr (std::is_same_v<Pixel, unsigned char>)
        return {v3::sumInOrder<v3::ByteSum>(pixels.data(), pixels.size())};
    if constexpr (std::is_same_v<Pixel, Half4>) {
        std::size_t const taken = pixels.size() - pixels.size() % 8;
        v3::sumHalves(pixels.data(), taken, sums.data());
        pixels = pixels.subspan(taken);
    }
#endif
    // In short runs: g++ keeps the sums of a long loop in memory, at four times the cost.
    constexpr std::size_t run = 16;
    for (; pixels.size() >= run; pixels = pixels.subspan(run)) {
        for (std::size_t i = 0; i < run * sizeof(Pixel); i += 64)
            prefetchAhead(reinterpret_cast<char const*>(pixels.data()) + i);
        for (Pixel const& pixel : pixels.first(run))
            add(sums, pixel);
    }
    for (Pixel const& pixel : pixels)
        add(sums, pixel);
    return sums;
}

template <class Pixel>
Float4 meanOf(std::span<Pixel const> pixels, float inverseCount)
{
    Sums const sums = sumsOf(pixels);
    return {inverseCount * sums[0], inverseCount * sums[1], inverseCount * sums[2], inverseCount * sums[3]};
}

Float4 meanOf(std::span<Byte4 const> pixels, float inverseCount)
{
    // Exact modulo 2^32: they wrap beyond 16,843,009 pixels of full scale.
    std::array<std::uint32_t, 4> sums{};
#if KO_SIMD_V3
    std::size_t const taken = pixels.size() - pixels.size() % 8;
    v3::sumBytes(pixels.data(), taken, sums.data());
    pixels = pixels.subspan(taken);
#endif
    for (Byte4 const& p : pixels) {
        sums[0] += p.r;
        sums[1] += p.g;
        sums[2] += p.b;
        sums[3] += p.a;
    }

    // Whole numbers, on purpose: the mean of 1 and 2 is 1, although that of a byte image is 1.5.
    auto const whole = [=](std::uint32_t sum) {
        return static_cast<float>(truncateToInt(static_cast<float>(sum) * inverseCount));
    };
    return {whole(sums[0]), whole(sums[1]), whole(sums[2]), whole(sums[3])};
}

}  // namespace

Float4 imageAverage(Image const& image)
{
    Float4 mean{};
    dispatchPixel(image.pixelType(), AveragePixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        int const count = image.pixelCount();
        if (count >= 1)
            mean = meanOf(pixelsOf<Pixel>(image), 1.0f / static_cast<float>(count));
        else if (std::is_same_v<Pixel, Half4>)
            // Only here: an empty image of the other types has mean 0. Callers depend on both.
            mean.r = mean.g = mean.b = mean.a = std::numeric_limits<float>::quiet_NaN();
    });
    return mean;
}

}  // namespace koImage
