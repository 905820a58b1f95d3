// What the half conversions must give, worked out from the values of the words.
//
// A float goes to the nearest half, and one that lies halfway between two to the larger magnitude. The
// patterns of positive floats stand in the order of their values, so all floats of one half are one interval
// of patterns, which starts at the middle between that half and the one before it. A negative float takes the
// sign along, except into zero.
#pragma once

#include "koImage/image/half.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace koImage::testing {

inline constexpr unsigned infinityWord = 0x7C00;
inline constexpr std::uint32_t infinityPattern = 0x7F800000;

/// The value of a positive half; infinity counts as 65536, which would follow the largest finite half.
inline double halfValue(unsigned word)
{
    int const exponent = static_cast<int>(word >> 10);
    int const significand = static_cast<int>(word & 0x3FF);
    return exponent == 0 ? std::ldexp(significand, -24) : std::ldexp(1024 + significand, exponent - 25);
}

/// The middle between a positive half and the one before it.
inline double lowerMiddle(unsigned word)
{
    return (halfValue(word - 1) + halfValue(word)) / 2;
}

/// For each word from 0 to infinity, the first pattern of its interval.
inline std::array<std::uint32_t, infinityWord + 1> const& firstPatterns()
{
    static auto const table = [] {
        std::array<std::uint32_t, infinityWord + 1> patterns{};
        for (unsigned word = 1; word <= infinityWord; ++word)
            patterns[word] = std::bit_cast<std::uint32_t>(static_cast<float>(lowerMiddle(word)));
        return patterns;
    }();
    return table;
}

/// The words of the floats whose patterns are first, first + 1, ...
inline void expectedHalves(std::uint32_t first, std::span<std::uint16_t> words)
{
    auto const& starts = firstPatterns();
    for (std::size_t i = 0; i < words.size();) {
        std::uint32_t const pattern = first + static_cast<std::uint32_t>(i);
        std::uint32_t const magnitude = pattern & 0x7FFFFFFF;
        unsigned const sign = pattern != magnitude ? 0x8000 : 0;

        // A NaN keeps the upper ten bits of its significand, and stays a NaN where they are zero.
        if (magnitude > infinityPattern) {
            words[i++] =
                static_cast<std::uint16_t>(sign | infinityWord | std::max((magnitude >> 13) & 0x3FF, 1u));
            continue;
        }

        // Everything else shares its word with the rest of the interval.
        auto const next = std::upper_bound(starts.begin(), starts.end(), magnitude);
        auto const word = static_cast<unsigned>(next - starts.begin()) - 1;
        std::uint32_t const end = next != starts.end() ? *next : infinityPattern + 1;
        std::size_t const length = std::min<std::size_t>(end - magnitude, words.size() - i);
        std::fill_n(words.begin() + static_cast<std::ptrdiff_t>(i), length,
                    static_cast<std::uint16_t>(word == 0 ? 0 : sign | word));
        i += length;
    }
}

inline std::uint16_t expectedHalf(float value)
{
    std::uint16_t word;
    expectedHalves(std::bit_cast<std::uint32_t>(value), {&word, 1});
    return word;
}

/// Whether the conversion of a float must raise the overflow condition.
inline bool overflowsHalf(float value)
{
    return std::isfinite(value) && std::fabs(value) >= 65520.0f;
}

/// All floats are taken in sixteen parts, so that tests of them share the processors.
inline constexpr int partsOfAllFloats = 16;

/// Converts every float of a part by convert(floats, halves, count), in blocks; expects the halves of the
/// rule, and the overflow condition exactly after blocks with a finite float that overflows.
template <class Convert>
void expectTheRuleForPart(int part, Convert const& convert)
{
    constexpr std::uint32_t blockLength = 1u << 16;
    std::vector<float> floats(blockLength);
    std::vector<half> halves(blockLength);
    std::vector<std::uint16_t> expected(blockLength);

    constexpr std::uint32_t blocks =
        static_cast<std::uint32_t>((std::uint64_t{1} << 32) / blockLength) / partsOfAllFloats;
    for (std::uint32_t block = 0; block < blocks; ++block) {
        std::uint32_t const first = (static_cast<std::uint32_t>(part) * blocks + block) * blockLength;
        for (std::uint32_t i = 0; i < blockLength; ++i)
            floats[i] = std::bit_cast<float>(first + i);
        expectedHalves(first, expected);

        std::feclearexcept(FE_OVERFLOW);
        convert(floats.data(), halves.data(), halves.size());
        bool const raised = std::fetestexcept(FE_OVERFLOW) != 0;

        ASSERT_EQ(raised, std::any_of(floats.begin(), floats.end(), overflowsHalf))
            << "from " << std::hex << first;
        if (std::memcmp(halves.data(), expected.data(), blockLength * sizeof(half)) != 0) {
            for (std::uint32_t i = 0; i < blockLength; ++i)
                ASSERT_EQ(halves[i].bits(), expected[i]) << "float " << std::hex << first + i;
        }
    }
}

}  // namespace koImage::testing
