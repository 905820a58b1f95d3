#include "koImage/image/pixel_types.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <type_traits>

namespace koImage {

using namespace testing;

namespace {

/// Expects the memory of a pixel to be its channels, one after the other.
template <class Pixel, class Channel, std::size_t N>
void expectChannelsInOrder(Pixel const& pixel, Channel const (&channels)[N])
{
    ASSERT_EQ(sizeof(Pixel), sizeof channels);
    EXPECT_EQ(alignof(Pixel), alignof(Channel));
    EXPECT_EQ(std::memcmp(&pixel, channels, sizeof channels), 0) << bytesText(&pixel, sizeof pixel);
}

template <class Pixel>
class EveryPixel : public ::testing::Test {
};
TYPED_TEST_SUITE(EveryPixel, TestTypes<AllPixels>, ById);

}  // namespace

TEST(PixelTypeId, KeepsTheStoredNumbers)
{
    static_assert(std::is_same_v<std::underlying_type_t<PixelTypeId>, std::int32_t>);
    EXPECT_EQ(pixelTypeIdOf<unsigned char>, PixelTypeId{0});
    EXPECT_EQ(pixelTypeIdOf<Byte4>, PixelTypeId{1});
    EXPECT_EQ(pixelTypeIdOf<unsigned int>, PixelTypeId{2});
    EXPECT_EQ(pixelTypeIdOf<Int4>, PixelTypeId{3});
    EXPECT_EQ(pixelTypeIdOf<FloatPixel4<half>>, PixelTypeId{4});
    EXPECT_EQ(pixelTypeIdOf<float>, PixelTypeId{5});
    EXPECT_EQ(pixelTypeIdOf<FloatPixel3<float>>, PixelTypeId{6});
    EXPECT_EQ(pixelTypeIdOf<FloatPixel4<float>>, PixelTypeId{7});
    EXPECT_EQ(pixelTypeIdOf<FloatPixel3<double>>, PixelTypeId{8});
    EXPECT_EQ((pixelTypeIdOf<FixedOrderSphericalHarmonics<FloatPixel3<double>, 10>>), PixelTypeId{9});
}

TEST(PixelTypeId, IsNoneOfTheListForOtherTypes)
{
    EXPECT_EQ(pixelTypeIdOf<double>, PixelTypeId{-1});
    EXPECT_EQ(pixelTypeIdOf<half>, PixelTypeId{-1});
    EXPECT_EQ(pixelTypeIdOf<FloatPixel4<double>>, PixelTypeId{-1});
}

TEST(ChannelCount, FollowsTheTable)
{
    std::int32_t const counts[] = {1, 4, 1, 4, 4, 1, 3, 4, 3};
    for (std::int32_t id = 0; id < 9; ++id)
        EXPECT_EQ(channelCount(PixelTypeId{id}), counts[id]) << id;
}

TEST(ChannelCount, IsOneForEveryOtherValue)
{
    for (std::int32_t const id : {9, 10, 1000, 65536, -1, -9, std::numeric_limits<std::int32_t>::max(),
                                  std::numeric_limits<std::int32_t>::min()})
        EXPECT_EQ(channelCount(PixelTypeId{id}), 1) << id;
}

TYPED_TEST(EveryPixel, HasThePersistedSize)
{
    std::size_t const sizes[] = {1, 4, 4, 16, 8, 4, 12, 16, 24, 2912};
    EXPECT_EQ(sizeof(TypeParam), sizes[static_cast<int>(pixelTypeIdOf<TypeParam>)]);
    EXPECT_TRUE(std::is_trivially_copyable_v<TypeParam>);
}

TYPED_TEST(EveryPixel, HasAsManyChannelsAsChannelCountSays)
{
    constexpr PixelTypeId id = pixelTypeIdOf<TypeParam>;
    std::size_t const channels = sizeof(TypeParam) / sizeof(typename ChannelOf<TypeParam>::type);
    // The harmonics pixel counts as one.
    EXPECT_EQ(channelCount(id), id == PixelTypeId::Harmonics ? 1 : static_cast<std::int32_t>(channels));
}

TEST(PixelLayout, KeepsRedGreenBlueAlphaWithoutPadding)
{
    Byte4 byte4;
    byte4.r = 1, byte4.g = 2, byte4.b = 3, byte4.a = 4;
    expectChannelsInOrder(byte4, {std::uint8_t{1}, std::uint8_t{2}, std::uint8_t{3}, std::uint8_t{4}});

    Int4 int4;
    int4.r = -1, int4.g = 2, int4.b = 255, int4.a = 1 << 30;
    expectChannelsInOrder(int4,
                          {std::int32_t{-1}, std::int32_t{2}, std::int32_t{255}, std::int32_t{1 << 30}});

    Half4 half4;
    half4.r = 1, half4.g = -2, half4.b = 0.5f, half4.a = 65504;
    expectChannelsInOrder(
        half4, {std::uint16_t{0x3C00}, std::uint16_t{0xC000}, std::uint16_t{0x3800}, std::uint16_t{0x7BFF}});

    Float3 float3;
    float3.r = 1, float3.g = 2, float3.b = 3;
    expectChannelsInOrder(float3, {1.0f, 2.0f, 3.0f});

    Float4 float4;
    float4.r = 1, float4.g = 2, float4.b = 3, float4.a = 4;
    expectChannelsInOrder(float4, {1.0f, 2.0f, 3.0f, 4.0f});

    Double3 double3;
    double3.r = 1, double3.g = 2, double3.b = 3;
    expectChannelsInOrder(double3, {1.0, 2.0, 3.0});
}

TEST(PixelLayout, ListsChannelsInTheSameOrder)
{
    expectChannelsInOrder(Byte4{1, 2, 3, 4},
                          {std::uint8_t{1}, std::uint8_t{2}, std::uint8_t{3}, std::uint8_t{4}});
    expectChannelsInOrder(Float4{1, 2, 3, 4}, {1.0f, 2.0f, 3.0f, 4.0f});
    expectChannelsInOrder(Double3{1, 2, 3}, {1.0, 2.0, 3.0});
}

TEST(PixelEquality, LooksAtEveryChannel)
{
    EXPECT_EQ((Byte4{1, 2, 3, 4}), (Byte4{1, 2, 3, 4}));
    EXPECT_NE((Byte4{1, 2, 3, 4}), (Byte4{1, 2, 3, 5}));
    EXPECT_NE((Int4{1, 2, 3, 4}), (Int4{0, 2, 3, 4}));
    EXPECT_NE((Float3{1, 2, 3}), (Float3{1, 0, 3}));
    EXPECT_NE((Float4{1, 2, 3, 4}), (Float4{1, 2, 0, 4}));
    EXPECT_NE((Double3{1, 2, 3}), (Double3{1, 2, 4}));
}

}  // namespace koImage
