#include "koImage/image/channels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <type_traits>

namespace koImage {

TEST(ZipChannels, RoundsHalvesOnceForEachCall)
{
    // 2048 + 1 lies halfway between two halves and goes away from zero; 1 - 1 gives +0.
    Half4 const p{half(2048.0f), half(1.0f), half(-2048.0f), half(0.5f)};
    Half4 const q{half(1.0f), half(-1.0f), half(-1.0f), half(0.25f)};
    auto const sum = zipChannels(p, q, std::plus<float>{});
    EXPECT_EQ(static_cast<float>(sum.r), 2050.0f);
    EXPECT_EQ(sum.g.bits(), 0u);
    EXPECT_EQ(static_cast<float>(sum.b), -2050.0f);
    EXPECT_EQ(static_cast<float>(sum.a), 0.75f);
}

TEST(ZipChannels, KeepsTheOrderOfItsOperands)
{
    Float3 const difference = zipChannels(Float3{5, 7, 9}, Float3{1, 2, 3}, std::minus<float>{});
    EXPECT_EQ(difference, (Float3{4, 5, 6}));
}

TEST(ZipChannels, ComputesEachChannelInItsOwnPrecision)
{
    // A third has more digits as a double; a half is computed as a float.
    Double3 const quotient = zipChannels(Double3{1, 2, 3}, Double3{3, 3, 3}, std::divides<>{});
    EXPECT_EQ(quotient, (Double3{1.0 / 3.0, 2.0 / 3.0, 1.0}));
    static_assert(std::is_same_v<ArithmeticOf<half>, float>);
    static_assert(std::is_same_v<ArithmeticOf<double>, double>);
    static_assert(std::is_same_v<ArithmeticOf<float>, float>);
}

TEST(ZipChannels, OverflowsHalvesToInfinity)
{
    half const largest(65504.0f);
    Half4 const p{largest, largest, half(-65504.0f), half::fromBits(0x7C01)};
    Half4 const q{half(15.0f), half(16.0f), half(-16.0f), half(1.0f)};
    Half4 const sum = zipChannels(p, q, std::plus<float>{});
    EXPECT_EQ(sum.r.bits(), 0x7BFFu);
    EXPECT_EQ(sum.g.bits(), 0x7C00u);
    EXPECT_EQ(sum.b.bits(), 0xFC00u);
    EXPECT_TRUE(std::isnan(static_cast<float>(sum.a)));
}

TEST(MapChannels, RoundsHalvesOnceForEachCall)
{
    // 2049 is a tie; -0 and magnitudes below 2^-25 give +0.
    Half4 const p{half(2050.0f), half(-2050.0f), half(0.0f), half(-0x1p-24f)};
    Half4 const lessOne = mapChannels(p, [](float value) { return value > 0 ? value - 1 : value + 1; });
    EXPECT_EQ(static_cast<float>(lessOne.r), 2050.0f);
    EXPECT_EQ(static_cast<float>(lessOne.g), -2050.0f);
    Half4 const quarter = mapChannels(p, [](float value) { return value * -0.25f; });
    EXPECT_EQ(quarter.b.bits(), 0u);
    EXPECT_EQ(quarter.a.bits(), 0u);
}

TEST(MapChannels, AppliesToEveryChannel)
{
    auto const twice = [](auto value) { return value * 2; };
    EXPECT_EQ(mapChannels(Float4{1, 2, 3, 4}, twice), (Float4{2, 4, 6, 8}));
    EXPECT_EQ(mapChannels(Double3{1, 2, 3}, twice), (Double3{2, 4, 6}));
}

}  // namespace koImage
