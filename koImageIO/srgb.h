// The curve between light and the levels of 8 and 16 bits that pictures store (IEC 61966-2-1).
//
//   light  v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055)^2.4, of v = level / top, evaluated in double
//   level  the one whose interval the light lies in. The intervals of two levels meet at the light of the
//          level halfway between them, so light becomes the nearest level on the curve, and every level comes
//          back from its own light.
//
// Tables of floats are made at the first use: 0.3 MB for 16 bits.
#pragma once

#include "koImageIO/export.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace koImageIO {

/// The levels 0 to top of one number of bits.
template <class Level>
class SrgbLevels {
public:
    static constexpr unsigned top = std::numeric_limits<Level>::max();

    SrgbLevels();

    float light(Level level) const { return light_[level]; }

    /// The least light that becomes this level, above 0.
    float boundary(Level level) const { return boundary_[level]; }

    /// Light below 0 and NaN give 0, above 1 the top.
    Level level(float light) const
    {
        // No branches: light of pictures is as likely on one side as on the other. NaN fails the comparison.
        light = light > gridBegin ? light : gridBegin;
        light = light < 1.0f ? light : 1.0f;

        // Between two steps of the grid the curve is nearly straight: the line finds the level or its
        // neighbour.
        Line const line = lines_[(std::bit_cast<std::uint32_t>(light) >> gridShift) - gridFirst];
        auto level = static_cast<std::uint32_t>(line.offset + line.slope * light);
        level += light >= boundary_[level + 1] ? 1U : 0U;
        level -= light < boundary_[level] ? 1U : 0U;
        return static_cast<Level>(level);
    }

private:
    struct Line {
        float offset, slope;
    };

    // 128 steps in each octave of the floats from 2^-21, below the first boundary of 16 bits, to 1.
    static constexpr float gridBegin = 0x1p-21f;
    static constexpr int gridShift = 23 - 7;
    static constexpr std::uint32_t gridFirst = std::bit_cast<std::uint32_t>(gridBegin) >> gridShift;
    static constexpr std::uint32_t gridEnd = std::bit_cast<std::uint32_t>(1.0f) >> gridShift;

    std::vector<float> light_;
    std::vector<float> boundary_;
    std::vector<Line> lines_;
};

KOIMAGEIO_EXPORT SrgbLevels<std::uint8_t> const& srgbBytes();
KOIMAGEIO_EXPORT SrgbLevels<std::uint16_t> const& srgbWords();

}  // namespace koImageIO
