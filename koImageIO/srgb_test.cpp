#include "koImageIO/srgb.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace koImageIO {

namespace {

// The curve of the standard, written down once more.
double encodeByHand(double light)
{
    return light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

double decodeByHand(double value)
{
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

template <class Level>
SrgbLevels<Level> const& levels()
{
    if constexpr (sizeof(Level) == 1)
        return srgbBytes();
    else
        return srgbWords();
}

template <class Level>
class Srgb : public ::testing::Test {
};
using LevelTypes = ::testing::Types<std::uint8_t, std::uint16_t>;
TYPED_TEST_SUITE(Srgb, LevelTypes);

}  // namespace

TYPED_TEST(Srgb, BringsEveryLevelBackFromItsLight)
{
    auto const& srgb = levels<TypeParam>();
    for (unsigned level = 0; level <= srgb.top; ++level)
        ASSERT_EQ(srgb.level(srgb.light(static_cast<TypeParam>(level))), level);
}

TYPED_TEST(Srgb, DecodesEveryLevelByTheCurve)
{
    auto const& srgb = levels<TypeParam>();
    for (unsigned level = 0; level <= srgb.top; ++level) {
        // The quotient is rounded to float, which the slope of the curve (2.4 at most, relative) widens, and
        // so is the result.
        double const light = decodeByHand(double(level) / srgb.top);
        ASSERT_NEAR(srgb.light(static_cast<TypeParam>(level)), light, 3.4 * 0x1p-24 * light) << level;
    }
    EXPECT_EQ(srgb.light(0), 0.0f);
    EXPECT_EQ(srgb.light(srgb.top), 1.0f);
}

TYPED_TEST(Srgb, ChangesTheLevelExactlyAtEachBoundary)
{
    auto const& srgb = levels<TypeParam>();
    for (unsigned level = 1; level <= srgb.top; ++level) {
        float const boundary = srgb.boundary(static_cast<TypeParam>(level));
        ASSERT_EQ(srgb.level(boundary), level);
        ASSERT_EQ(srgb.level(std::nextafter(boundary, 0.0f)), level - 1);
    }
}

TYPED_TEST(Srgb, TakesTheNearestLevelOnTheCurve)
{
    auto const& srgb = levels<TypeParam>();
    std::mt19937 random(1);
    for (int i = 0; i < 300000; ++i) {
        // Magnitudes of every octave from 2^-26 to 2.
        float const light =
            std::ldexp(1 + static_cast<float>(random() >> 9) * 0x1p-23f, -static_cast<int>(random() % 27));
        double const exact = std::min(encodeByHand(light), 1.0) * srgb.top;

        // Boundaries are floats: half a unit of theirs, at a slope of at most top / 2.4 * 1.055 relative. The
        // two ends of the standard's curve do not meet to the last digit: 2e-8 of the range.
        double const slack = srgb.top * (0.44 * 0x1p-24 + 2e-8);
        ASSERT_NEAR(srgb.level(light), exact, 0.5 + slack) << light;
    }
}

TYPED_TEST(Srgb, ClampsWhatLiesOutside)
{
    auto const& srgb = levels<TypeParam>();
    float const infinity = std::numeric_limits<float>::infinity();
    for (float const low :
         {-0.0f, 0.0f, -1e-30f, -1.0f, -infinity, 1e-40f, 1e-7f, std::numeric_limits<float>::quiet_NaN()})
        EXPECT_EQ(srgb.level(low), 0) << low;
    for (float const high : {1.0f, std::nextafter(1.0f, 2.0f), 2.0f, 3e38f, infinity})
        EXPECT_EQ(srgb.level(high), srgb.top) << high;
}

}  // namespace koImageIO
