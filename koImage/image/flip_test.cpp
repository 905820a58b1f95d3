#include "koImage/image/flip.h"

#include "koImage/testing/guarded_image.h"
#include "koImage/testing/repeated_memory.h"

#include <gtest/gtest.h>

namespace koImage::testing {

namespace {

struct Position {
    int x;
    int y;
};

/// Each pixel (x, y) from its place before, as bytes.
template <class Pixel, class From>
std::vector<unsigned char> movedByHand(GuardedImage<Pixel> const& image, Size size, From from)
{
    auto const before = image.bytesBefore();
    auto moved = before;
    auto const at = [&](int x, int y) {
        return static_cast<std::size_t>(pixelOffset(x, y, size.width)) * sizeof(Pixel);
    };
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            Position const source = from(x, y);
            std::memcpy(moved.data() + at(x, y), before.data() + at(source.x, source.y), sizeof(Pixel));
        }
    }
    return moved;
}

template <class Pixel>
void expectVerticalFlip(Size size, int offset)
{
    GuardedImage<Pixel> image(size, offset);
    imageFlipVertical(*image);
    EXPECT_TRUE(image.holds(movedByHand(image, size,
                                        [&](int x, int y) {
                                            return Position{x, size.height - 1 - y};
                                        })))
        << size << ", offset " << offset;
}

template <class Pixel>
void expectHorizontalFlip(Size size, int offset)
{
    GuardedImage<Pixel> image(size, offset);
    imageFlipHorizontal(*image);
    EXPECT_TRUE(image.holds(movedByHand(image, size,
                                        [&](int x, int y) {
                                            return Position{size.width - 1 - x, y};
                                        })))
        << size << ", offset " << offset;
}

template <class Pixel>
class ImageFlipVertical : public ::testing::Test {
};
TYPED_TEST_SUITE(ImageFlipVertical, TestTypes<AllPixels>, ById);

template <class Pixel>
class ImageFlipHorizontal : public ::testing::Test {
};
TYPED_TEST_SUITE(ImageFlipHorizontal, TestTypes<FlipHorizontalPixels>, ById);

}  // namespace

TYPED_TEST(ImageFlipVertical, ReversesTheRowsAtEverySizeAndAlignment)
{
    for (Size const size : awkwardSizes)
        for (int const offset : {0, 1, 3})
            expectVerticalFlip<TypeParam>(size, offset);
}

// Around the run of bytes that moves at once, and rows too long to fetch the next one ahead.
TYPED_TEST(ImageFlipVertical, ReversesRowsOfEveryLength)
{
    for (int const bytes : {255, 256, 257, 511, 512, 1000, 32768, 32769, 40000})
        for (int const pixel : {0, 1})
            expectVerticalFlip<TypeParam>({bytes / static_cast<int>(sizeof(TypeParam)) + pixel, 3}, 1);
}

TYPED_TEST(ImageFlipVertical, TwiceIsTheIdentity)
{
    GuardedImage<TypeParam> image({17, 31});
    imageFlipVertical(*image);
    EXPECT_FALSE(image.holds(image.bytesBefore()));
    imageFlipVertical(*image);
    EXPECT_TRUE(image.holds(image.bytesBefore()));
}

TYPED_TEST(ImageFlipVertical, LeavesASingleRow)
{
    GuardedImage<TypeParam> image({40, 1});
    imageFlipVertical(*image);
    EXPECT_TRUE(image.holds(image.bytesBefore()));
}

TYPED_TEST(ImageFlipVertical, DoesNothingWhereTheRowsAreNotInTheArray)
{
    for (Size const size : rowlessSizes) {
        GuardedImage<TypeParam> image(size);
        imageFlipVertical(*image);
        EXPECT_TRUE(image.holds(image.bytesBefore())) << size;
    }
}

TYPED_TEST(ImageFlipVertical, ToleratesAnImageWithoutPixels)
{
    TypedImage<TypeParam> image;
    image.borrow(nullptr, 640, 480);
    imageFlipVertical(image);
    EXPECT_EQ(image.pixels(), nullptr);
}

TYPED_TEST(ImageFlipHorizontal, ReversesEachRowAtEverySizeAndAlignment)
{
    for (Size const size : awkwardSizes)
        for (int const offset : {0, 1, 3})
            expectHorizontalFlip<TypeParam>(size, offset);
}

// Around every number of pixels that moves at once, and rows too long to fetch the next one ahead.
TYPED_TEST(ImageFlipHorizontal, ReversesRowsOfEveryLength)
{
    for (int width = 1; width <= 200; ++width)
        expectHorizontalFlip<TypeParam>({width, 2}, 1);
    for (int const bytes : {32767, 32768, 32769, 40000})
        expectHorizontalFlip<TypeParam>({bytes / static_cast<int>(sizeof(TypeParam)) + 1, 2}, 1);
}

TYPED_TEST(ImageFlipHorizontal, TwiceIsTheIdentity)
{
    GuardedImage<TypeParam> image({61, 7});
    imageFlipHorizontal(*image);
    EXPECT_FALSE(image.holds(image.bytesBefore()));
    imageFlipHorizontal(*image);
    EXPECT_TRUE(image.holds(image.bytesBefore()));
}

TYPED_TEST(ImageFlipHorizontal, CommutesWithTheVerticalFlip)
{
    for (Size const size : awkwardSizes) {
        GuardedImage<TypeParam> image(size);
        imageFlipHorizontal(*image);
        imageFlipVertical(*image);

        GuardedImage<TypeParam> other(size);
        imageFlipVertical(*other);
        imageFlipHorizontal(*other);
        EXPECT_TRUE(samePixels(*image, *other)) << size;
    }
}

TYPED_TEST(ImageFlipHorizontal, DoesNothingWhereTheRowsAreNotInTheArray)
{
    for (Size const size : rowlessSizes) {
        GuardedImage<TypeParam> image(size);
        imageFlipHorizontal(*image);
        EXPECT_TRUE(image.holds(image.bytesBefore())) << size;
    }
}

TYPED_TEST(ImageFlipHorizontal, ToleratesAnImageWithoutPixels)
{
    TypedImage<TypeParam> image;
    image.borrow(nullptr, 640, 480);
    imageFlipHorizontal(image);
    EXPECT_EQ(image.pixels(), nullptr);
}

TEST(ImageFlipVertical, ExchangesTheOuterOfThreeRows)
{
    auto const image = imageOf<unsigned int>({1, 3});
    std::copy_n(std::array{1u, 2u, 3u}.begin(), 3, image->pixels());
    imageFlipVertical(*image);
    EXPECT_EQ(image->pixels()[0], 3u);
    EXPECT_EQ(image->pixels()[1], 2u);
    EXPECT_EQ(image->pixels()[2], 1u);
}

TEST(ImageFlipVertical, MovesRowsOfForeignTypes)
{
    for (PixelTypeId const type : foreignTypes) {
        ForeignImage image(type, {5, 3});
        auto expected = image.bytes();
        std::swap_ranges(expected.begin(), expected.begin() + 15, expected.begin() + 30);
        imageFlipVertical(image);
        EXPECT_EQ(image.bytes(), expected);
    }
}

TEST(ImageFlipHorizontal, LeavesDouble3Alone)
{
    GuardedImage<Double3> image({5, 3});
    imageFlipHorizontal(*image);
    EXPECT_TRUE(image.holds(image.bytesBefore()));
}

TEST(ImageFlipHorizontal, LeavesHarmonicsAlone)
{
    GuardedImage<HarmonicsPixel> image({5, 3});
    imageFlipHorizontal(*image);
    EXPECT_TRUE(image.holds(image.bytesBefore()));
}

TEST(ImageFlipHorizontal, LeavesForeignTypesAlone)
{
    for (PixelTypeId const type : foreignTypes) {
        ForeignImage image(type, {16, 4});
        auto const before = image.bytes();
        imageFlipHorizontal(image);
        EXPECT_EQ(image.bytes(), before);
    }
}

// The last row lies 2 GiB from the first.
TEST(ImageFlip, ReachesRowsFarApart)
{
    constexpr int width = 1 << 20;
    constexpr int height = 129;
    RepeatedMemory memory(sizeof(Float4) * std::size_t{width} * height);
    TypedImage<Float4> image;
    image.borrow(reinterpret_cast<Float4*>(memory.start()), width, height);
    Float4* const lastRow = image.pixels() + pixelOffset(0, height - 1, width);

    lastRow[0] = {1, 2, 3, 4};
    imageFlipHorizontal(image);
    EXPECT_EQ(lastRow[0], (Float4{0, 0, 0, 0}));
    EXPECT_EQ(lastRow[width - 1], (Float4{1, 2, 3, 4}));

    image.pixels()[0] = {5, 6, 7, 8};
    imageFlipVertical(image);
    EXPECT_EQ(lastRow[0], (Float4{5, 6, 7, 8}));
    EXPECT_EQ(lastRow[width - 1], (Float4{0, 0, 0, 0}));
}

}  // namespace koImage::testing
