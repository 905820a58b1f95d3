#include "koImage/image/channels.h"

#include <gtest/gtest.h>

#include <functional>

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

TEST(MapChannels, AppliesToEveryChannel)
{
    auto const twice = [](auto value) { return value * 2; };
    EXPECT_EQ(mapChannels(Float4{1, 2, 3, 4}, twice), (Float4{2, 4, 6, 8}));
    EXPECT_EQ(mapChannels(Double3{1, 2, 3}, twice), (Double3{2, 4, 6}));
}

}  // namespace koImage
