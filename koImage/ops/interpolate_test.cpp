#include "koImage/ops/interpolate.h"

#include "koImage/testing/interpolate_by_hand.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <vector>

namespace koImage {

using namespace testing;

namespace {

using Byte = unsigned char;
using ByteImage = TypedImage<Byte>;
using ByteImageRef = ImageRef<Byte>;

ByteImageRef imageWith(Size size, std::initializer_list<int> values)
{
    auto image = imageOf<Byte>(size);
    std::transform(values.begin(), values.end(), image->pixels(), [](int v) { return static_cast<Byte>(v); });
    return image;
}

ByteImageRef copyOf(ByteImage const& image)
{
    return ByteImageRef(image.clone());
}

ByteImageRef interpolated(ByteImage const& mask, ByteImage const& values)
{
    auto result = copyOf(values);
    imageInterpolate(mask, *result);
    return result;
}

ByteImageRef transposed(ByteImage const& image)
{
    auto result = imageOf<Byte>({image.height(), image.width()});
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            result->pixels()[pixelOffset(y, x, image.height())] =
                image.pixels()[pixelOffset(x, y, image.width())];
    return result;
}

/// Each pixel is known with the given chance, marked by any value but 0.
ByteImageRef randomMask(Size size, int percent, std::uint32_t seed)
{
    auto mask = imageOf<Byte>(size);
    fillImage(*mask, seed, [percent](Random& random) {
        bool const known = random() % 100 < static_cast<unsigned>(percent);
        return static_cast<Byte>(known ? 1 + random() % 255 : 0);
    });
    return mask;
}

/// Known pixels only where a row and a column meet that were both drawn: most rows and columns stay empty.
ByteImageRef gridMask(Size size, int percent, std::uint32_t seed)
{
    Random random(seed);
    auto const drawn = [&](int count) {
        std::vector<bool> lines(static_cast<std::size_t>(count));
        for (std::size_t i = 0; i < lines.size(); ++i)
            lines[i] = random() % 100 < static_cast<unsigned>(percent);
        return lines;
    };
    auto const rows = drawn(size.height);
    auto const columns = drawn(size.width);

    auto mask = imageOf<Byte>(size);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            mask->pixels()[pixelOffset(x, y, size.width)] =
                rows[static_cast<std::size_t>(y)] && columns[static_cast<std::size_t>(x)] ? 255 : 0;
    return mask;
}

ByteImageRef interpolatedByHand(ByteImage const& mask, ByteImage const& values)
{
    auto result = copyOf(values);
    interpolateByHand(mask, *result);
    return result;
}

/// Calls check(mask, values) for dense, sparse and empty masks at every size, with rows and columns that stay
/// empty until the second sweep.
template <class Check>
void forManyImages(Check const& check)
{
    std::vector<Size> sizes(std::begin(awkwardSizes), std::end(awkwardSizes));
    sizes.push_back({1100, 37});  // more columns than are filled side by side
    for (Size const size : sizes) {
        SCOPED_TRACE(::testing::Message() << size);
        for (int const percent : {0, 1, 10, 50, 90, 100}) {
            SCOPED_TRACE(::testing::Message() << percent << " % known");
            check(*randomMask(size, percent, 1), *randomImage<Byte>(size, 2));
            check(*gridMask(size, percent, 3), *randomImage<Byte>(size, 4));
        }
    }
}

}  // namespace

TEST(ImageInterpolate, DrawsTheLineBetweenTwoKnownPixels)
{
    auto const result = interpolated(*imageWith({4, 1}, {1, 0, 0, 1}), *imageWith({4, 1}, {10, 99, 99, 40}));
    EXPECT_TRUE(samePixels(*imageWith({4, 1}, {10, 20, 30, 40}), *result));
}

TEST(ImageInterpolate, RoundsAnExactHalfDown)
{
    auto const result = interpolated(*imageWith({3, 1}, {1, 0, 1}), *imageWith({3, 1}, {10, 99, 11}));
    EXPECT_TRUE(samePixels(*imageWith({3, 1}, {10, 10, 11}), *result));
}

TEST(ImageInterpolate, ExtendsTheOnlyKnownPixelOfARow)
{
    auto const result = interpolated(*imageWith({8, 1}, {0, 0, 0, 1, 0, 0, 0, 0}),
                                     *imageWith({8, 1}, {1, 2, 3, 77, 5, 6, 7, 8}));
    EXPECT_TRUE(samePixels(*imageWith({8, 1}, {77, 77, 77, 77, 77, 77, 77, 77}), *result));
}

TEST(ImageInterpolate, TakesTheMeanOfTheRowAndTheColumn)
{
    auto const mask = imageWith({3, 3}, {0, 1, 0, 1, 0, 1, 0, 1, 0});
    auto const result = interpolated(*mask, *imageWith({3, 3}, {9, 0, 9, 100, 9, 100, 9, 0, 9}));
    EXPECT_EQ(int{result->pixels()[4]}, 50);
    EXPECT_EQ(int{result->pixels()[0]}, 50);
}

TEST(ImageInterpolate, RoundsTheMeanDown)
{
    auto const mask = imageWith({2, 2}, {1, 0, 0, 1});
    auto const result = interpolated(*mask, *imageWith({2, 2}, {10, 0, 0, 11}));
    EXPECT_TRUE(samePixels(*imageWith({2, 2}, {10, 10, 10, 11}), *result));
}

TEST(ImageInterpolate, FillsTheWholeImageFromOnePixel)
{
    auto const result = interpolated(*imageWith({3, 3}, {0, 0, 0, 0, 1, 0, 0, 0, 0}),
                                     *imageWith({3, 3}, {1, 2, 3, 4, 55, 6, 7, 8, 9}));
    EXPECT_TRUE(samePixels(*imageWith({3, 3}, {55, 55, 55, 55, 55, 55, 55, 55, 55}), *result));
}

TEST(ImageInterpolate, LeavesTheImageAloneWhenNothingIsKnown)
{
    for (Size const size : awkwardSizes) {
        SCOPED_TRACE(::testing::Message() << size);
        auto const values = randomImage<Byte>(size, 1);
        EXPECT_TRUE(samePixels(*values, *interpolated(*randomMask(size, 0, 2), *values)));
    }
}

TEST(ImageInterpolate, LeavesTheImageAloneWhenSizesDiffer)
{
    for (Size const size : {Size{4, 5}, Size{5, 4}, Size{8, 2}, Size{2, 8}}) {
        SCOPED_TRACE(::testing::Message() << size);
        auto const values = randomImage<Byte>(size, 1);
        EXPECT_TRUE(samePixels(*values, *interpolated(*randomMask({4, 4}, 50, 2), *values)));
    }
}

TEST(ImageInterpolate, ToleratesImagesWithoutPixels)
{
    ByteImage none;
    none.borrow(nullptr, 4, 4);
    auto const values = randomImage<Byte>({4, 4}, 1);
    EXPECT_TRUE(samePixels(*values, *interpolated(none, *values)));

    imageInterpolate(*randomMask({4, 4}, 50, 2), none);
    EXPECT_EQ(none.pixels(), nullptr);
    ByteImage otherNone;
    otherNone.borrow(nullptr, 4, 4);
    imageInterpolate(otherNone, none);
    EXPECT_EQ(none.pixels(), nullptr);
}

TEST(ImageInterpolate, LeavesTheImageAloneWhenItIsItsOwnMask)
{
    auto const mask = randomMask({9, 7}, 50, 1);
    auto const before = copyOf(*mask);
    imageInterpolate(*mask, *mask);
    EXPECT_TRUE(samePixels(*before, *mask));
}

TEST(ImageInterpolate, LeavesTheImageAloneWhenItsMaskSharesItsMemory)
{
    for (int const offset : {0, 1, 62, 63}) {
        SCOPED_TRACE(::testing::Message() << "apart by " << offset);
        auto const memory = randomMask({127, 1}, 50, 1);
        auto const before = copyOf(*memory);
        ByteImage low;
        ByteImage high;
        low.borrow(memory->pixels(), 9, 7);
        high.borrow(memory->pixels() + offset, 9, 7);
        if (offset < 63) {
            imageInterpolate(low, high);
            imageInterpolate(high, low);
            EXPECT_TRUE(samePixels(*before, *memory));
        } else {
            auto const expected = interpolatedByHand(low, high);
            imageInterpolate(low, high);
            EXPECT_TRUE(samePixels(*expected, high));
        }
    }
}

TEST(ImageInterpolate, WritesNothingAtHostileSizes)
{
    for (Size const size : hostileSizes) {
        SCOPED_TRACE(::testing::Message() << size);
        auto const mask = randomMask(size, 50, 1);
        auto const values = randomImage<Byte>(size, 2);
        EXPECT_TRUE(samePixels(*values, *interpolated(*mask, *values)));
    }
}

TEST(ImageInterpolate, StaysInsideBorrowedArraysOfAnyAlignment)
{
    constexpr int guard = 40;
    for (Size const size : {Size{13, 11}, Size{64, 3}, Size{65, 64}, Size{130, 5}}) {
        for (int shift = 0; shift < 9; shift += 4) {
            SCOPED_TRACE(::testing::Message() << size << " shifted by " << shift);
            int const count = size.width * size.height;
            auto const mask = randomMask({count + 2 * guard, 1}, 20, 1);
            auto const memory = randomImage<Byte>({count + 2 * guard, 1}, 2);
            auto const expected = copyOf(*memory);
            ByteImage borrowedMask;
            ByteImage borrowed;
            borrowedMask.borrow(mask->pixels() + guard - shift, size.width, size.height);
            borrowed.borrow(memory->pixels() + guard + shift, size.width, size.height);

            auto const filled = interpolatedByHand(borrowedMask, borrowed);
            std::copy_n(filled->pixels(), count, expected->pixels() + guard + shift);
            imageInterpolate(borrowedMask, borrowed);
            EXPECT_TRUE(samePixels(*expected, *memory));
        }
    }
}

TEST(ImageInterpolate, AgreesWithItsDefinitionOnEverySmallMask)
{
    for (int const side : {3, 4}) {
        auto mask = imageOf<Byte>({side, side});
        auto values = imageOf<Byte>({side, side});
        Random random(7);
        for (unsigned bits = 0; bits < 1u << (side * side); ++bits) {
            for (int i = 0; i < side * side; ++i) {
                mask->pixels()[i] = (bits >> i & 1) != 0 ? 255 : 0;
                values->pixels()[i] = static_cast<Byte>(random());
            }
            ASSERT_TRUE(samePixels(*interpolatedByHand(*mask, *values), *interpolated(*mask, *values)))
                << "mask " << bits << " of side " << side;
        }
    }
}

TEST(ImageInterpolate, AgreesWithItsDefinitionOnImagesOfAnySize)
{
    forManyImages([](ByteImage const& mask, ByteImage const& values) {
        EXPECT_TRUE(samePixels(*interpolatedByHand(mask, values), *interpolated(mask, values)));
    });
}

// Every pair of ends, with one to eleven holes between them, as the rows of an image and as its columns.
TEST(ImageInterpolate, AgreesWithItsDefinitionOnEveryLine)
{
    for (int distance = 2; distance <= 12; ++distance) {
        SCOPED_TRACE(::testing::Message() << "ends " << distance << " apart");
        Size const size{distance + 1, 256 * 256};
        auto const mask = randomMask(size, 0, 1);
        auto const values = randomImage<Byte>(size, 2);
        for (int y = 0; y < size.height; ++y) {
            auto const first = pixelOffset(0, y, size.width);
            mask->pixels()[first] = mask->pixels()[first + distance] = 1;
            values->pixels()[first] = static_cast<Byte>(y & 255);
            values->pixels()[first + distance] = static_cast<Byte>(y >> 8);
        }
        auto const expected = interpolatedByHand(*mask, *values);
        ASSERT_TRUE(samePixels(*expected, *interpolated(*mask, *values)));
        ASSERT_TRUE(
            samePixels(*transposed(*expected), *interpolated(*transposed(*mask), *transposed(*values))));
    }
}

TEST(ImageInterpolate, AgreesWithItsDefinitionOnLongGaps)
{
    for (int const gap : {63, 64, 65, 127, 128, 253, 254, 255, 256, 509, 510, 511, 764, 765, 766, 3000}) {
        SCOPED_TRACE(::testing::Message() << gap << " holes");
        int const first = 300;
        Size const size{3, first + gap + 700};
        auto mask = randomMask(size, 0, 1);
        auto const values = randomImage<Byte>(size, static_cast<std::uint32_t>(gap));
        for (int const y : {first, first + gap + 1, first + gap + 400})
            mask->pixels()[pixelOffset(0, y, 3)] = mask->pixels()[pixelOffset(2, y - 5, 3)] = 1;

        EXPECT_TRUE(samePixels(*interpolatedByHand(*mask, *values), *interpolated(*mask, *values)));
        auto const rows = transposed(*mask);
        auto const rowValues = transposed(*values);
        EXPECT_TRUE(samePixels(*interpolatedByHand(*rows, *rowValues), *interpolated(*rows, *rowValues)));
    }
}

TEST(ImageInterpolate, NeverChangesAKnownPixel)
{
    forManyImages([](ByteImage const& mask, ByteImage const& values) {
        auto const result = interpolated(mask, values);
        for (int i = 0; i < values.pixelCount(); ++i)
            if (mask.pixels()[i] != 0) {
                EXPECT_EQ(values.pixels()[i], result->pixels()[i]) << "pixel " << i;
            }
    });
}

TEST(ImageInterpolate, IgnoresWhatHolesContained)
{
    forManyImages([](ByteImage const& mask, ByteImage const& values) {
        auto const isKnown = [](Byte m) { return m != 0; };
        auto const maskPixels = pixelsOf<Byte>(mask);
        if (std::none_of(maskPixels.begin(), maskPixels.end(), isKnown))
            return;
        auto other = copyOf(values);
        for (int i = 0; i < values.pixelCount(); ++i)
            if (!isKnown(mask.pixels()[i]))
                other->pixels()[i] = static_cast<Byte>(255 - values.pixels()[i]);
        EXPECT_TRUE(samePixels(*interpolated(mask, values), *interpolated(mask, *other)));
    });
}

// Also says that every hole is filled: what holes contained lies outside.
TEST(ImageInterpolate, StaysBetweenTheSmallestAndTheLargestKnownValue)
{
    forManyImages([](ByteImage const& mask, ByteImage const& values) {
        auto image = copyOf(values);
        bool anyKnown = false;
        for (int i = 0; i < image->pixelCount(); ++i) {
            bool const known = mask.pixels()[i] != 0;
            anyKnown |= known;
            Byte const v = image->pixels()[i];
            image->pixels()[i] = static_cast<Byte>(known        ? 100 + v % 21
                                                   : v % 2 == 0 ? v % 100
                                                                : 121 + v % 100);
        }
        if (!anyKnown)
            return;
        imageInterpolate(mask, *image);
        for (Byte const v : pixelsOf<Byte>(*image)) {
            EXPECT_GE(int{v}, 100);
            EXPECT_LE(int{v}, 120);
        }
    });
}

// Rows and columns are symmetric: the mean does not depend on which of the two came first.
TEST(ImageInterpolate, TransposesWithItsProblem)
{
    forManyImages([](ByteImage const& mask, ByteImage const& values) {
        EXPECT_TRUE(samePixels(*transposed(*interpolated(mask, values)),
                               *interpolated(*transposed(mask), *transposed(values))));
    });
}

}  // namespace koImage
