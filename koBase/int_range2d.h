// A rectangle of integers, with the arithmetic of its two axes.
#pragma once

#include <algorithm>
#include <cstdint>

namespace koUtil {

/// Axis 0 is x (with width), axis 1 is y (with height). A size below 1 is an empty range.
///
///   numbers   defined for all 32-bit values: sums and differences are formed in 64 bits
struct IntRange2d {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;

    constexpr std::int32_t origin(int axis) const { return axis == 0 ? x : y; }
    constexpr std::int32_t size(int axis) const { return axis == 0 ? width : height; }

    /// True when origin <= value < origin + size on that axis.
    constexpr bool contains(int axis, int value) const
    {
        std::int64_t const first = origin(axis);
        return value >= first && value < first + size(axis);
    }

    /// The nearest value inside; the origin of an empty range.
    constexpr int clamp(int axis, int value) const
    {
        std::int64_t const first = origin(axis);
        std::int64_t const last = std::max(first, first + size(axis) - 1);
        return static_cast<int>(std::clamp<std::int64_t>(value, first, last));
    }

    /// origin + ((value - origin) mod size) with a remainder of 0 and more; the origin of an empty range.
    /// In a range that runs past the largest 32-bit value, the low 32 bits of that.
    constexpr int wrap(int axis, int value) const
    {
        std::int64_t const first = origin(axis);
        std::int64_t const count = size(axis);
        if (count < 1)
            return origin(axis);
        std::int64_t const remainder = (value - first) % count;
        return static_cast<int>(first + remainder + (remainder < 0 ? count : 0));
    }

    friend constexpr bool operator==(IntRange2d const&, IntRange2d const&) = default;
};

}  // namespace koUtil
