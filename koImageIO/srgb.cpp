#include "koImageIO/srgb.h"

#include <cmath>

namespace koImageIO {

namespace {

double decode(double value)
{
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

double encode(double light)
{
    return light <= 0.04045 / 12.92 ? light * 12.92 : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

}  // namespace

template <class Level>
SrgbLevels<Level>::SrgbLevels()
{
    // The quotient is a float, as imageConvert divides bytes.
    for (unsigned level = 0; level <= top; ++level) {
        light_.push_back(
            static_cast<float>(decode(double{static_cast<float>(level) / static_cast<float>(top)})));
        boundary_.push_back(level == 0 ? -std::numeric_limits<float>::infinity()
                                       : static_cast<float>(decode((level - 0.5) / top)));
    }
    // What the search may look at beyond the top.
    boundary_.push_back(std::numeric_limits<float>::infinity());

    for (std::uint32_t step = gridFirst; step < gridEnd; ++step) {
        double const from = std::bit_cast<float>(step << gridShift);
        double const to = std::bit_cast<float>((step + 1) << gridShift);
        double const slope = top * (encode(to) - encode(from)) / (to - from);
        double const offset = top * encode(from) + 0.5 - slope * from;
        lines_.push_back({static_cast<float>(offset), static_cast<float>(slope)});
    }
    lines_.push_back({static_cast<float>(top), 0.0f});
}

SrgbLevels<std::uint8_t> const& srgbBytes()
{
    static SrgbLevels<std::uint8_t> const levels;
    return levels;
}

SrgbLevels<std::uint16_t> const& srgbWords()
{
    static SrgbLevels<std::uint16_t> const levels;
    return levels;
}

}  // namespace koImageIO
