#include "koImage/image/fill.h"

#include "koImage/testing/guarded_image.h"
#include "koImage/testing/repeated_memory.h"

#include <gtest/gtest.h>

namespace koImage::testing {

namespace {

/// The white pixel of a type; of Double3 the Float4 that takes its place.
template <class Pixel>
auto whitePixel()
{
    if constexpr (std::is_integral_v<Pixel>)
        return Pixel{255};
    else if constexpr (std::is_same_v<Pixel, Byte4>)
        return Byte4{255, 255, 255, 255};
    else if constexpr (std::is_same_v<Pixel, Int4>)
        return Int4{255, 255, 255, 255};
    else if constexpr (std::is_same_v<Pixel, Half4>)
        return std::array<std::uint16_t, 4>{0x3C00, 0x3C00, 0x3C00, 0x3C00};
    else if constexpr (std::is_same_v<Pixel, float>)
        return 1.0f;
    else if constexpr (std::is_same_v<Pixel, Float3>)
        return Float3{1, 1, 1};
    else
        return Float4{1, 1, 1, 1};
}

/// Writes `filling` as often as the image has pixels, one behind the other from the start of the array.
template <class Pixel, class Filling>
std::vector<unsigned char> filledByHand(GuardedImage<Pixel> const& image, Filling filling)
{
    auto bytes = image.bytesBefore();
    for (std::size_t i = 0; i < bytes.size() / sizeof(Pixel); ++i)
        std::memcpy(bytes.data() + i * sizeof filling, &filling, sizeof filling);
    return bytes;
}

template <class Pixel>
void expectBothFills(Size size, int offset)
{
    SCOPED_TRACE(::testing::Message() << size << ", offset " << offset);
    GuardedImage<Pixel> white(size, offset);
    fillWhite(*white);
    EXPECT_TRUE(white.holds(filledByHand(white, whitePixel<Pixel>())));

    GuardedImage<Pixel> black(size, offset);
    fillBlack(*black);
    EXPECT_TRUE(black.holds(filledByHand(black, std::array<char, sizeof(whitePixel<Pixel>())>{})));
}

template <class Pixel>
class Fill : public ::testing::Test {
};
TYPED_TEST_SUITE(Fill, TestTypes<StoredPixels>, ById);

}  // namespace

TYPED_TEST(Fill, WritesEveryPixelAndNothingElseAtEverySizeAndAlignment)
{
    for (Size const size : awkwardSizes)
        for (int const offset : {0, 1, 3})
            expectBothFills<TypeParam>(size, offset);
}

// Linear, so rows do not matter: (-2, -3) is six pixels, and a wrapped product is what the array holds.
TYPED_TEST(Fill, FillsThePixelsThatTheArrayHoldsWhateverTheRowsSay)
{
    for (Size const size : rowlessSizes)
        expectBothFills<TypeParam>(size, 0);
}

// From 16 MiB on white is written past the cache, from the first whole line to the last.
TYPED_TEST(Fill, WritesEveryPixelOfALargeImage)
{
    constexpr int count = (16 << 20) / static_cast<int>(sizeof(whitePixel<TypeParam>())) + 5;
    expectBothFills<TypeParam>({count, 1}, 1);
}

TYPED_TEST(Fill, ToleratesAnImageWithoutPixels)
{
    TypedImage<TypeParam> image;
    image.borrow(nullptr, 640, 480);
    fillWhite(image);
    fillBlack(image);
    EXPECT_EQ(image.pixels(), nullptr);
}

TEST(FillWhite, Is255ForUnsignedIntegers)
{
    auto const image = imageOf<unsigned int>({1, 1});
    fillWhite(*image);
    EXPECT_EQ(*image->pixels(), 255u);
}

TEST(FillWhite, IsOneForHalves)
{
    auto const image = imageOf<Half4>({1, 1});
    fillWhite(*image);
    EXPECT_EQ(image->pixels()->r.bits(), 0x3C00);
    EXPECT_EQ(image->pixels()->a.bits(), 0x3C00);
}

TEST(FillWhite, PutsTwoFloatsOfOneIntoEachDoubleItReaches)
{
    auto const image = imageOf<Double3>({2, 1});
    *image->pixels() = {7, 7, 7};
    image->pixels()[1] = {7, 7, 7};
    fillWhite(*image);
    auto const twoFloats = std::bit_cast<double>(std::array<float, 2>{1, 1});
    EXPECT_EQ(image->pixels()[0], (Double3{twoFloats, twoFloats, twoFloats}));
    EXPECT_EQ(image->pixels()[1], (Double3{twoFloats, 7, 7}));
}

TEST(FillBlack, LeavesTheLastThirdOfADouble3Image)
{
    auto const image = imageOf<Double3>({2, 1});
    image->pixels()[0] = {1, 2, 3};
    image->pixels()[1] = {4, 5, 6};
    fillBlack(*image);
    EXPECT_EQ(image->pixels()[0], (Double3{0, 0, 0}));
    EXPECT_EQ(image->pixels()[1], (Double3{0, 5, 6}));
}

TEST(Fill, LeavesHarmonicsAlone)
{
    GuardedImage<HarmonicsPixel> image({3, 2});
    fillWhite(*image);
    fillBlack(*image);
    EXPECT_TRUE(image.holds(image.bytesBefore()));
}

TEST(Fill, LeavesForeignTypesAlone)
{
    for (PixelTypeId const type : foreignTypes) {
        ForeignImage image(type, {4, 4});
        auto const before = image.bytes();
        fillWhite(image);
        fillBlack(image);
        EXPECT_EQ(image.bytes(), before);
    }
}

// The last pixel lies 2 GiB from the first.
TEST(Fill, ReachesPixelsFarApart)
{
    constexpr int count = (1 << 27) + 1;
    RepeatedMemory memory(sizeof(Float4) * std::size_t{count});
    TypedImage<Float4> image;
    image.borrow(reinterpret_cast<Float4*>(memory.start()), count, 1);
    Float4 const& last = image.pixels()[count - 1];

    fillWhite(image);
    EXPECT_EQ(last, (Float4{1, 1, 1, 1}));
    fillBlack(image);
    EXPECT_EQ(last, (Float4{0, 0, 0, 0}));
}

}  // namespace koImage::testing
