// The running sums of lines that are blurred side by side, one for each lane: see blur.cpp. Private.
//
// LineSums<Channel> of each channel type has
//
//   Sample     a channel as it stands in a bundle
//   load       copies adjacent channels to a bundle
//   slide      takes the samples behind out of the sums and adds those ahead
//   collect    sets the sums to the eight samples of the wrapped kernel
//   write      writes sums times factor as channels
//
// The number of lanes is an int, or an integral_constant for full bundles, whose loops leave no remainder.
#pragma once

#include "koImage/image/half.h"
#include "koImage/ops/blur_v3.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace koImage {

inline constexpr int maxLanes = 256;

/// The rows that a step reads, boxes in turn.
template <class Sample>
struct Taps {
    std::array<Sample const*, 4> behind;
    std::array<Sample const*, 4> ahead;
};

/// Sums of floats; and of halves, kept as floats 2^112 times as large. That makes rounding to half two
/// integer instructions, right for every sum there is:
///   - half a unit is added to the magnitude and the 13 bits that a half lacks are cleared: ties go away from
///     zero;
///   - what is 65520 or more as a half is 2^128 or more here: both overflow to infinity, and infinities and
///     NaNs stay what they are;
///   - sums below 2^-14, where halves are subnormal, are exact: all halves are multiples of 2^-24;
///   - the conversion to half turns -0 into +0, but no sum is -0: it starts from +0, and x - x is +0.
template <class Channel>
class FloatSums {
public:
    using Sample = float;

    template <class Lanes>
    void slide(Taps<float> taps, Lanes lanes)
    {
        auto const [a, b, c, d] = taps.behind;
        auto const [e, f, g, h] = taps.ahead;
        for (int i = 0; i < lanes; ++i) {
            float sum = sums_[i];
            sum = rounded(sum - a[i]);
            sum = rounded(sum - b[i]);
            sum = rounded(sum - c[i]);
            sum = rounded(sum - d[i]);
            sum = rounded(sum + e[i]);
            sum = rounded(sum + f[i]);
            sum = rounded(sum + g[i]);
            sum = rounded(sum + h[i]);
            sums_[i] = sum;
        }
    }

    template <class Lanes>
    void collect(Taps<float> taps, Lanes lanes)
    {
        auto const [a, b, c, d] = taps.behind;
        auto const [e, f, g, h] = taps.ahead;
        for (int i = 0; i < lanes; ++i) {
            float sum = rounded(0.0f + e[i]);  // not e[i]: a first sample of -0 makes +0
            sum = rounded(sum + a[i]);
            sum = rounded(sum + f[i]);
            sum = rounded(sum + b[i]);
            sum = rounded(sum + g[i]);
            sum = rounded(sum + c[i]);
            sum = rounded(sum + h[i]);
            sum = rounded(sum + d[i]);
            sums_[i] = sum;
        }
    }

protected:
    alignas(64) float sums_[maxLanes] = {};

private:
    static float rounded(float sum)
    {
        if constexpr (std::is_same_v<Channel, half>)
            return std::bit_cast<float>((std::bit_cast<std::uint32_t>(sum) + 0x1000) & 0xFFFFE000);
        else
            return sum;
    }
};

template <class Channel>
class LineSums;

template <>
class LineSums<float> : public FloatSums<float> {
public:
    static void load(float const* in, float* samples, int count)
    {
        std::memcpy(samples, in, static_cast<std::size_t>(count) * sizeof(float));
    }

    template <class Lanes>
    void write(std::int64_t /*count*/, float factor, float* __restrict out, Lanes lanes) const
    {
        for (int i = 0; i < lanes; ++i)
            out[i] = sums_[i] * factor;
    }
};

template <>
class LineSums<half> : public FloatSums<half> {
public:
    static void load(half const* in, float* __restrict samples, int count)
    {
        int first = 0;
#if KO_SIMD_V3
        first = count / 4 * 4;
        v3::scaleHalves(in, scale, samples, first);
#endif
        for (int i = first; i < count; ++i)
            samples[i] = static_cast<float>(in[i]) * scale;
    }

    template <class Lanes>
    void write(std::int64_t /*count*/, float factor, half* __restrict out, Lanes lanes) const
    {
        int first = 0;
#if KO_SIMD_V3
        first = lanes / 8 * 8;
        v3::roundToHalves(sums_, 1 / scale, factor, out, first);
#endif
        // Not factor / scale, which can be too small for a float.
        for (int i = first; i < lanes; ++i)
            out[i] = half(sums_[i] * (1 / scale) * factor);
    }

private:
    static constexpr float scale = 0x1p112f;
};

/// Sums of bytes are exact, so the order is free and the eight samples come first. They are added in 16 bits,
/// two lanes to a word: all words as they are, modulo 2^16, and their high bytes apart. What the high bytes
/// contribute, taken from the words, leaves the low bytes.
template <>
class LineSums<unsigned char> {
public:
    using Sample = unsigned char;

    static void load(unsigned char const* in, unsigned char* samples, int count)
    {
        std::memcpy(samples, in, static_cast<std::size_t>(count));
    }

    template <class Lanes>
    void slide(Taps<unsigned char> taps, Lanes lanes)
    {
        add<-1>(taps, lanes);
    }

    template <class Lanes>
    void collect(Taps<unsigned char> taps, Lanes lanes)
    {
        std::fill_n(sums_, int{lanes}, 0u);
        add<1>(taps, lanes);
    }

    template <class Lanes>
    void write(std::int64_t count, float factor, unsigned char* out, Lanes lanes) const
    {
        // Signed words are converted to float in one instruction, unsigned ones in many.
        if (count <= std::int64_t{0x7FFFFFFF} / 255)
            write<std::int32_t>(factor, out, lanes);
        else
            write<std::uint32_t>(factor, out, lanes);
    }

private:
    /// sums += ahead + sign * behind
    template <int sign, class Lanes>
    void add(Taps<unsigned char> taps, Lanes lanes)
    {
        auto const [a, b, c, d] = taps.behind;
        auto const [e, f, g, h] = taps.ahead;
        int const words = lanes / 2;
        std::uint32_t* __restrict const lows = sums_;
        std::uint32_t* __restrict const highs = sums_ + words;
        for (int i = 0; i < words; ++i) {
            std::uint16_t both = 0;
            std::uint16_t high = 0;
            auto const take = [&both, &high, i](unsigned char const* row, int times) {
                std::uint16_t word;
                std::memcpy(&word, row + 2 * i, 2);
                both = static_cast<std::uint16_t>(both + times * word);
                high = static_cast<std::uint16_t>(high + times * (word >> 8));
            };
            take(e, 1);
            take(f, 1);
            take(g, 1);
            take(h, 1);
            take(a, sign);
            take(b, sign);
            take(c, sign);
            take(d, sign);
            lows[i] += static_cast<std::uint32_t>(static_cast<std::int16_t>(both - high * 256));
            highs[i] += static_cast<std::uint32_t>(static_cast<std::int16_t>(high));
        }
        if (lanes % 2 != 0) {
            int const i = lanes - 1;
            sums_[i] +=
                static_cast<std::uint32_t>(e[i] + f[i] + g[i] + h[i] + sign * (a[i] + b[i] + c[i] + d[i]));
        }
    }

    template <class Word, class Lanes>
    void write(float factor, unsigned char* __restrict out, Lanes lanes) const
    {
        auto const mean = [this, factor](int i) {
            return static_cast<int>(static_cast<float>(static_cast<Word>(sums_[i])) * factor);
        };
        int const words = lanes / 2;
        for (int i = 0; i < words; ++i) {
            auto const word = static_cast<std::uint16_t>(mean(i) | mean(words + i) << 8);
            std::memcpy(out + 2 * i, &word, 2);
        }
        if (lanes % 2 != 0)
            out[lanes - 1] = static_cast<unsigned char>(mean(lanes - 1));
    }

    // The low bytes of all words, then the high ones, then the lane that is left over.
    alignas(64) std::uint32_t sums_[maxLanes] = {};
};

template <class Channel>
using SampleOf = typename LineSums<Channel>::Sample;

}  // namespace koImage
