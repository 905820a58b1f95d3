// The 16-bit floating-point number.
//
//   bit 15      sign
//   bits 14-10  exponent, bias 15: 0 zero and subnormals, 31 infinity and NaN
//   bits 9-0    significand
//
//   word      value                          word      value
//   0x0001    2^-24, smallest subnormal      0x7BFF    65504, largest finite
//   0x0400    2^-14, smallest normal         0x7C00    infinity
//   0x3C00    1                              0x7C01    a NaN
//
// Half to float is exact. Float to half differs from the conversion of processors and of other libraries in
// two ways that stored files depend on:
//   - a value halfway between two halves rounds away from zero, not to even;
//   - the sign of a zero result is dropped for -0 and for magnitudes below 2^-25. Wider magnitudes keep it.
//
// Magnitudes of 65520 and above become infinity; a NaN stays a NaN.
#pragma once

#include "koImage/export.h"

#include <array>
#include <bit>
#include <cstdint>

namespace koImage {

class KOIMAGE_EXPORT half {
public:
    half() = default;  // leaves the word uninitialised

    // Both conversions are implicit: halves take part in float expressions and store their results.
    half(float value);      // NOLINT(google-explicit-constructor)
    operator float() const  // NOLINT(google-explicit-constructor)
    {
        return std::bit_cast<float>(_toFloat[bits_]);
    }

    std::uint16_t bits() const { return bits_; }

    static half fromBits(std::uint16_t bits)
    {
        half result;
        result.bits_ = bits;
        return result;
    }

    /// The pattern of the float equal to each half, indexed by the half's word.
    static std::array<std::uint32_t, 65536> const _toFloat;

    /// Indexed by a float's sign and exponent: the half's sign and exponent where they need only the rounded
    /// significand added, else 0.
    static std::array<std::uint16_t, 512> const _eLut;

    /// The half pattern, as a signed 16-bit value, for the float patterns whose `_eLut` entry is 0: results
    /// that are subnormal, may overflow, are infinite or NaN. Raises the overflow condition when finite input
    /// overflows.
    static int convert(int floatBits);

    /// Raises the processor's floating-point overflow condition; returns +infinity.
    static float overflow();

private:
    std::uint16_t bits_;
};

inline half::half(float value)
{
    // -0 gives +0 as well.
    if (value == 0.0f) {
        bits_ = 0;
        return;
    }
    auto const i = std::bit_cast<std::uint32_t>(value);
    std::uint32_t const e = _eLut[i >> 23];
    // A carry out of the significand goes into the exponent, as it should.
    bits_ = e != 0 ? static_cast<std::uint16_t>(e + (((i & 0x7FFFFF) + 0x1000) >> 13))
                   : static_cast<std::uint16_t>(convert(static_cast<int>(i)));
}

}  // namespace koImage
