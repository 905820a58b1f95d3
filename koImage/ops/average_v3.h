// Sums of one channel in storage order, to the bit, faster than one addition after the other.
//
// Let u be the unit in the last place of the running sum S. As long as S stays between two powers of two,
// S + x is S plus x rounded to a multiple of u, and that rounding depends on S in one case alone: a tie, an x
// halfway between two multiples, goes where the new sum is an even number of units. So a block of values is
// rounded side by side and added up in whole units, in any order; ties are settled by parity; and only a
// block in which S may reach a power of two is added value by value.
//
// Private: see simd.h.
#pragma once

#include "koImage/image/pixel_types.h"
#include "koImage/image/simd.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

#if KO_SIMD_V3

namespace koImage::v3 {

inline constexpr std::size_t sumBlock = 64;

// A sum has 24 bits: in units of its last place it lies in [2^23, 2^24).
inline constexpr std::int32_t firstUnits = 1 << 23;
inline constexpr std::int32_t endUnits = 1 << 24;

/// Which ties of a block would leave the sum odd, rounded as they are, and so have to go the other way.
///
///   ties      the values that are ties
///   odd       the values that were rounded to an odd number of units
///   sumIsOdd  0 or 1, before the block
///
/// Every tie leaves the sum even in the end. So one would leave it odd when there is an odd number of odd
/// values since the tie before it, itself included; or since the start, where sumIsOdd counts as well.
inline std::uint64_t tiesLeavingOdd(std::uint64_t ties, std::uint64_t odd, std::uint64_t sumIsOdd)
{
    // Bit i: whether there is an odd number of odd values among 0 .. i.
    for (int shift = 1; shift < 64; shift *= 2)
        odd ^= odd << shift;

    // Each tie hands its bit on to the next one: a carry that runs through the places in between.
    std::uint64_t const atTieBefore = ((odd & ties) << 1 | sumIsOdd) + ~ties;
    return (odd ^ atTieBefore) & ties;
}

inline std::int32_t sumOfLanes(__m256i lanes)
{
    __m128i sum = _mm_add_epi32(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0x4E));
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0xB1));
    return _mm_cvtsi128_si32(sum);
}

/// A sum of floats that takes blocks as long as it stays between two powers of two.
class FloatSum {
public:
    explicit FloatSum(float sum)
        : bits_(std::bit_cast<std::uint32_t>(sum)),
          units_(static_cast<std::int32_t>((bits_ & 0x7FFFFF) | 0x800000))
    {
        // A zero, tiny or infinite sum has no unit to count in. It takes blocks of zeros only.
        std::uint32_t const exponent = bits_ >> 23 & 0xFF;
        if (exponent <= 30 || exponent == 255)
            return;
        auto const powerOfTwo = [](std::uint32_t biased) { return std::bit_cast<float>(biased << 23); };
        unitPart_ = powerOfTwo(exponent - 23) / static_cast<float>(sumBlock);
        halfUnit_ = _mm256_set1_ps(powerOfTwo(exponent - 24));
        // 1.5 times the power of two: adding it rounds to whole units.
        base_ = _mm256_set1_ps(std::bit_cast<float>((bits_ & 0xFF800000) | 0x400000));
    }

    float value() const
    {
        return std::bit_cast<float>((bits_ & 0xFF800000) | (static_cast<std::uint32_t>(units_) & 0x7FFFFF));
    }

    /// Whether no value can change the sum any more.
    bool isFinal() const { return std::isnan(std::bit_cast<float>(bits_)); }

    /// Adds 64 values, or leaves them to be added one by one.
    bool add(float const* values)
    {
        __m256i change = _mm256_setzero_si256();
        __m256i largest = change;
        __m256i largestRest = change;
        for (std::size_t i = 0; i < sumBlock; i += 8) {
            Rounded const x = rounded(values + i);
            change = _mm256_add_epi32(change, x.units);
            largest = _mm256_max_epi32(largest, magnitude(x.value));
            largestRest = _mm256_max_epi32(largestRest, magnitude(x.rest));
        }

        // However the values follow each other, the sum must stay off the ends of its range: a value adds at
        // most its magnitude and half a unit. NaNs compare as larger than all.
        std::int32_t const margin = sumBlock;
        std::int32_t const room = std::min(units_ - firstUnits, endUnits - units_) - margin;
        __m256 const limit = _mm256_set1_ps(static_cast<float>(std::max(room, 0)) * unitPart_);
        __m256i const tooLarge = _mm256_cmpgt_epi32(largest, _mm256_castps_si256(limit));
        if (!_mm256_testz_si256(tooLarge, tooLarge))
            return false;

        __m256i const ties = _mm256_cmpeq_epi32(largestRest, _mm256_castps_si256(halfUnit_));
        std::int32_t const more = _mm256_testz_si256(ties, ties) ? 0 : unitsOfTies(values);
        units_ += sumOfLanes(change) + more;
        return true;
    }

private:
    struct Rounded {
        __m256 value;
        __m256i units;  // rounded, ties to even; positive where they enlarge the sum
        __m256 rest;    // what the rounding has cut off
    };

    Rounded rounded(float const* values) const
    {
        __m256 const value = _mm256_loadu_ps(values);
        __m256 const shifted = _mm256_add_ps(value, base_);
        return {value, _mm256_sub_epi32(_mm256_castps_si256(shifted), _mm256_castps_si256(base_)),
                _mm256_sub_ps(value, _mm256_sub_ps(shifted, base_))};
    }

    /// The pattern of the absolute value: patterns compare as the values do.
    static __m256i magnitude(__m256 floats)
    {
        return _mm256_and_si256(_mm256_castps_si256(floats), _mm256_set1_epi32(0x7FFFFFFF));
    }

    /// What ties add to the sum beyond their rounding to an even number of units.
    std::int32_t unitsOfTies(float const* values) const
    {
        std::uint64_t ties = 0;
        std::uint64_t odd = 0;
        std::uint64_t below = 0;
        for (std::size_t i = 0; i < sumBlock; i += 8) {
            Rounded const x = rounded(values + i);
            auto const mask = [i](__m256i lanes) {
                auto const bits = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(lanes)));
                return std::uint64_t{bits} << i;
            };
            ties |= mask(_mm256_cmpeq_epi32(magnitude(x.rest), _mm256_castps_si256(halfUnit_)));
            odd |= mask(_mm256_slli_epi32(x.units, 31));
            below |= mask(_mm256_castps_si256(x.rest));
        }
        if (bits_ >> 31)
            below = ~below;

        std::uint64_t const moved = tiesLeavingOdd(ties, odd, static_cast<std::uint32_t>(units_) & 1);
        return std::popcount(moved & ~below) - std::popcount(moved & below);
    }

    std::uint32_t bits_;
    std::int32_t units_;
    float unitPart_ = 0.0f;
    __m256 halfUnit_ = _mm256_set1_ps(1.0f);
    __m256 base_ = _mm256_setzero_ps();
};

/// The same for bytes. Below 2^24 every sum is exact, and the unit is 1.
class ByteSum {
public:
    explicit ByteSum(float sum)
        : unitBits_(std::max(0, static_cast<int>(std::bit_width(static_cast<std::uint64_t>(sum))) - 24)),
          units_(static_cast<std::int32_t>(static_cast<std::uint64_t>(sum) >> unitBits_))
    {
        int const unit = 1 << unitBits_;
        // Within a unit of 1 there is nothing to round: a rest of 1 or 2 does not occur.
        int const half = std::max(unit / 2, 1);
        rest_ = byteLanes(unit - 1);
        half_ = byteLanes(half);
        aboveHalf_ = byteLanes(half + 1);
        whole_ = byteLanes(255 >> unitBits_);
    }

    float value() const { return static_cast<float>(std::int64_t{units_} << unitBits_); }

    /// From 2^32 on a byte is less than half a unit.
    bool isFinal() const { return unitBits_ > 8; }

    bool add(unsigned char const* values)
    {
        Rounded const low = rounded(values);
        Rounded const high = rounded(values + 32);
        std::uint64_t const ties = low.ties | std::uint64_t{high.ties} << 32;
        std::uint64_t const odd = low.odd | std::uint64_t{high.odd} << 32;
        std::uint64_t const raised = tiesLeavingOdd(ties, odd, static_cast<std::uint32_t>(units_) & 1);
        __m256i const sums = _mm256_add_epi64(low.sums, high.sums);
        std::int32_t const total = sumOfLanes(sums) + std::popcount(raised);
        if (units_ + total >= endUnits)
            return false;
        units_ += total;
        return true;
    }

private:
    struct Rounded {
        __m256i sums;        // of the values in units, rounded, ties down: four 64-bit numbers
        std::uint32_t ties;  // which values are ties
        std::uint32_t odd;   // which are an odd number of units, as rounded
    };

    static __m256i byteLanes(int value) { return _mm256_set1_epi8(static_cast<char>(value)); }

    Rounded rounded(unsigned char const* values) const
    {
        __m256i const x = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(values));
        __m256i const rest = _mm256_and_si256(x, rest_);
        __m256i const tie = _mm256_cmpeq_epi8(rest, half_);
        __m256i const up = _mm256_cmpeq_epi8(_mm256_max_epu8(rest, aboveHalf_), rest);
        __m256i const down = _mm256_and_si256(_mm256_srl_epi16(x, _mm_cvtsi32_si128(unitBits_)), whole_);
        __m256i const units = _mm256_sub_epi8(down, up);  // `up` is -1 where it is set
        return {_mm256_sad_epu8(units, _mm256_setzero_si256()),
                static_cast<std::uint32_t>(_mm256_movemask_epi8(tie)),
                static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_slli_epi16(units, 7)))};
    }

    int unitBits_;
    std::int32_t units_;
    __m256i rest_;
    __m256i half_;
    __m256i aboveHalf_;
    __m256i whole_;
};

template <class Sum, class T>
float sumInOrder(T const* values, std::size_t count)
{
    float sum = 0.0f;
    std::size_t oneByOne = sumBlock;
    for (std::size_t i = 0; i < count;) {
        Sum range(sum);
        if (range.isFinal())
            break;

        std::size_t const first = i;
        for (; count - i >= sumBlock && range.add(values + i); i += sumBlock)
            for (std::size_t line = 0; line < sumBlock * sizeof(T); line += 64)
                prefetchAhead(reinterpret_cast<char const*>(values + i) + line);

        // Where blocks are refused again and again, the attempts become fewer: they cost next to nothing.
        if (i != first) {
            sum = range.value();
            oneByOne = sumBlock;
        } else {
            oneByOne = std::min(2 * oneByOne, 8 * sumBlock);
        }
        for (std::size_t const end = i + std::min(oneByOne, count - i); i < end; ++i)
            sum += static_cast<float>(values[i]);
    }
    return sum;
}

/// Adds half pixels to four sums; infinities and NaNs count as 1. `count` is a multiple of 8.
inline void sumHalves(Half4 const* pixels, std::size_t count, float* channelSums)
{
    __m128i const exponent = _mm_set1_epi16(0x7C00);
    __m128i const one = _mm_set1_epi16(0x3C00);
    __m128 sums = _mm_loadu_ps(channelSums);
    for (std::size_t i = 0; i < count; i += 8) {
        prefetchAhead(pixels + i);
        for (std::size_t pair = i; pair < i + 8; pair += 2) {
            __m128i const halves = _mm_loadu_si128(reinterpret_cast<__m128i const*>(pixels + pair));
            __m128i const notFinite = _mm_cmpeq_epi16(_mm_and_si128(halves, exponent), exponent);
            __m256 const floats = _mm256_cvtph_ps(_mm_blendv_epi8(halves, one, notFinite));
            sums = _mm_add_ps(sums, _mm256_castps256_ps128(floats));
            sums = _mm_add_ps(sums, _mm256_extractf128_ps(floats, 1));
        }
    }
    _mm_storeu_ps(channelSums, sums);
}

/// Adds byte pixels to four sums modulo 2^32. `count` is a multiple of 8.
inline void sumBytes(Byte4 const* pixels, std::size_t count, std::uint32_t* channelSums)
{
    __m256i const lowBytes = _mm256_set1_epi16(0xFF);
    for (std::size_t i = 0; i < count;) {
        // Red and blue, green and alpha, in 16 bits: 257 bytes fit.
        __m256i redBlue = _mm256_setzero_si256();
        __m256i greenAlpha = redBlue;
        for (std::size_t const end = i + std::min<std::size_t>(count - i, 8 * 257); i < end; i += 8) {
            prefetchAhead(pixels + i);
            __m256i const bytes = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(pixels + i));
            redBlue = _mm256_add_epi16(redBlue, _mm256_and_si256(bytes, lowBytes));
            greenAlpha = _mm256_add_epi16(greenAlpha, _mm256_srli_epi16(bytes, 8));
        }
        alignas(32) std::uint16_t lanes[2][16];
        _mm256_store_si256(reinterpret_cast<__m256i*>(lanes[0]), redBlue);
        _mm256_store_si256(reinterpret_cast<__m256i*>(lanes[1]), greenAlpha);
        for (std::size_t lane = 0; lane < 16; ++lane) {
            channelSums[lane % 2 * 2] += lanes[0][lane];
            channelSums[lane % 2 * 2 + 1] += lanes[1][lane];
        }
    }
}

}  // namespace koImage::v3

#endif
