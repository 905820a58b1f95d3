// The numeric rules that every operation shares, each in one place. They are defined for every input; vector
// code agrees with them.
#pragma once

#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace koImage {

static_assert(FLT_EVAL_METHOD == 0, "float arithmetic must be done in float: results are defined to the bit");

/// Truncates toward zero. NaN and values outside the 32-bit range give the 32-bit minimum, whose low byte is
/// 0.
constexpr std::int32_t truncateToInt(float value)
{
    // Both limits are floats; NaN fails the comparison.
    return value >= -2147483648.0f && value < 2147483648.0f ? static_cast<std::int32_t>(value)
                                                            : std::numeric_limits<std::int32_t>::min();
}

constexpr std::int32_t truncateToInt(double value)
{
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<std::int32_t>(value)
                                                         : std::numeric_limits<std::int32_t>::min();
}

/// The low 8 bits, without clamping: -127 gives 129.
constexpr unsigned char lowByte(std::int32_t value)
{
    return static_cast<unsigned char>(value & 0xFF);
}

/// The signed 32-bit product modulo 2^32, as pixel counts are formed: (65536, 65536) gives 0, (-2, -3)
/// gives 6.
constexpr std::int32_t wrappedProduct(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

/// The index of pixel (x, y) in rows of `width` pixels, in 64 bits.
constexpr std::ptrdiff_t pixelOffset(int x, int y, int width)
{
    return std::ptrdiff_t{y} * width + x;
}

}  // namespace koImage
