#include "koImage/image/copy.h"

#include "koImage/testing/allocation_limit.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <vector>

namespace koImage::testing {
namespace {

constexpr int largest = std::numeric_limits<int>::max();
constexpr int smallest = std::numeric_limits<int>::min();

// ---- the definition, byte by byte

using Bytes = std::vector<std::byte>;

__extension__ using Wide = __int128;  // no product of sizes overflows

Wide bytesOf(Image const& image)
{
    return image.data() == nullptr ? 0 : Wide{std::max(image.pixelCount(), 0)} * image.bytesPerPixel();
}

Bytes contentOf(Image const& image)
{
    Bytes content(static_cast<std::size_t>(bytesOf(image)));
    if (!content.empty())
        std::memcpy(content.data(), image.data(), content.size());
    return content;
}

// What the target holds after the rows of a block went from (sx, sy) of the source to (tx, ty) of the target.
Bytes copiedByHand(Image const& block, Image const& source, int sx, int sy, Image const& target, int tx,
                   int ty)
{
    Bytes const from = contentOf(source);
    Bytes const before = contentOf(target);
    Bytes to = before;
    Wide const length = Wide{block.bytesPerPixel()} * block.width();
    for (Wide row = 0; row < block.height(); ++row) {
        Wide const read = ((sy + row) * source.width() + sx) * source.bytesPerPixel();
        Wide const write = ((ty + row) * target.width() + tx) * target.bytesPerPixel();
        if (length > 0 && (read + length > bytesOf(source) || write + length > bytesOf(target)))
            return before;
        for (Wide i = 0; i < length; ++i)
            to[static_cast<std::size_t>(write + i)] = from[static_cast<std::size_t>(read + i)];
    }
    return to;
}

bool fitsByHand(Image const& block, Image const& frame, int x, int y)
{
    return x >= 0 && y >= 0 && Wide{block.width()} + x <= frame.width() &&
           Wide{block.height()} + y <= frame.height();
}

void expectCopyIn(Image const& source, Image& target, int x, int y)
{
    Bytes const expected = fitsByHand(source, target, x, y) ? copiedByHand(source, source, 0, 0, target, x, y)
                                                            : contentOf(target);
    Bytes const untouched = contentOf(source);
    imageCopyIn(source, target, x, y);
    EXPECT_EQ(contentOf(target), expected) << "in at " << x << ", " << y;
    EXPECT_EQ(contentOf(source), untouched);
}

void expectCopyOut(Image const& source, Image& target, int x, int y)
{
    Bytes const expected = fitsByHand(target, source, x, y) ? copiedByHand(target, source, x, y, target, 0, 0)
                                                            : contentOf(target);
    Bytes const untouched = contentOf(source);
    imageCopyOut(source, target, x, y);
    EXPECT_EQ(contentOf(target), expected) << "out of " << x << ", " << y;
    EXPECT_EQ(contentOf(source), untouched);
}

template <class Pixel>
class ImageCopy : public ::testing::Test {
};
TYPED_TEST_SUITE(ImageCopy, TestTypes<AllPixels>, ById);

TYPED_TEST(ImageCopy, CopiesARectangleAtEveryPlaceWhereItFits)
{
    auto const frame = hostileImage<TypeParam>({7, 6}, 1);
    auto const block = hostileImage<TypeParam>({3, 2}, 2);
    for (int y = -1; y <= 6; ++y) {
        for (int x = -1; x <= 7; ++x) {
            expectCopyIn(*block, *ImageRef<TypeParam>(frame->clone()), x, y);
            expectCopyOut(*frame, *ImageRef<TypeParam>(block->clone()), x, y);
        }
    }
}

TYPED_TEST(ImageCopy, CopiesEverySizeToEverySize)
{
    for (Size const a : awkwardSizes) {
        for (Size const b : awkwardSizes) {
            auto const from = hostileImage<TypeParam>(a, 1);
            auto const to = hostileImage<TypeParam>(b, 2);
            SCOPED_TRACE(::testing::Message() << a << " and " << b);
            expectCopyIn(*from, *to, 0, 0);
            expectCopyIn(*from, *to, (b.width - a.width) / 2, b.height - a.height);
            expectCopyOut(*from, *to, 0, 0);
            expectCopyOut(*from, *to, a.width - b.width, (a.height - b.height) / 2);
        }
    }
}

TYPED_TEST(ImageCopy, GivesBackWhatWasPasted)
{
    auto const frame = hostileImage<TypeParam>({33, 21}, 1);
    for (Size const size : {Size{1, 1}, Size{33, 21}, Size{33, 4}, Size{5, 21}, Size{8, 9}}) {
        auto const block = hostileImage<TypeParam>(size, 2);
        auto const back = imageOf<TypeParam>(size);
        int const x = 33 - size.width;
        int const y = (21 - size.height) / 2;
        imageCopyIn(*block, *frame, x, y);
        imageCopyOut(*frame, *back, x, y);
        EXPECT_TRUE(samePixels(*block, *back)) << size;
    }
}

TYPED_TEST(ImageCopy, KeepsSizeArrayAndFlagsOfTheTarget)
{
    auto const frame = randomImage<TypeParam>({4, 4}, 1);
    auto const block = randomImage<TypeParam>({2, 2}, 2);
    block->setWrap(true, true);
    auto const* const array = frame->pixels();
    AllocationLimit const none(0);
    imageCopyIn(*block, *frame, 1, 1);
    EXPECT_EQ(frame->pixels(), array);
    EXPECT_EQ(frame->width(), 4);
    EXPECT_FALSE(frame->wrapHorizontal());
}

TYPED_TEST(ImageCopy, StaysInsideArraysOfHostileSizes)
{
    // Arrays of ten pixels and less behind sizes that promise anything.
    std::vector<TypeParam> memory(10);
    TypedImage<TypeParam> hostile;
    auto const block = hostileImage<TypeParam>({3, 2}, 1);
    for (Size const size : {Size{-2, -3}, Size{-5, -2}, Size{3, -2}, Size{-1, 10}, Size{largest, largest},
                            Size{smallest, smallest}, Size{65536, 65536}, Size{smallest, largest},
                            Size{(1 << 30) + 1, 4}, Size{3, -1431655764}, Size{-2147483646, 2}}) {
        hostile.borrow(memory.data(), size.width, size.height);
        ASSERT_LE(hostile.pixelCount(), 10);
        SCOPED_TRACE(::testing::Message() << size);
        for (int const at : {0, 1, 2, 7, largest - 3, largest}) {
            expectCopyIn(*block, hostile, at, 0);
            expectCopyIn(*block, hostile, 0, at);
            expectCopyIn(hostile, *block, at, 0);
            expectCopyOut(hostile, *block, at, at);
            expectCopyOut(hostile, *block, 0, at);
            expectCopyOut(*block, hostile, 0, at);
        }
    }
}

// A frame whose rows leave its array: only a block in the first rows can be copied.
TYPED_TEST(ImageCopy, CopiesWhatARowOfAWrappedSizeHolds)
{
    auto const frame = imageOf<TypeParam>({65537, 65536});
    auto const block = hostileImage<TypeParam>({3, 1}, 1);
    auto const back = hostileImage<TypeParam>({3, 1}, 2);
    auto const tall = hostileImage<TypeParam>({3, 2}, 3);

    // 65536 pixels: the last three of them, and not one more.
    imageCopyIn(*block, *frame, 65533, 0);
    imageCopyOut(*frame, *back, 65533, 0);
    EXPECT_TRUE(samePixels(*block, *back));
    imageCopyIn(*back, *frame, 65534, 0);
    imageCopyIn(*tall, *frame, 0, 0);
    imageCopyIn(*tall, *frame, 0, 65000);
    imageCopyOut(*frame, *back, 65533, 0);
    EXPECT_TRUE(samePixels(*block, *back));
}

// ---- places

TEST(ImageCopyIn, CopiesUpToTheLastPixelAndNotBeyond)
{
    auto const source = randomImage<float>({4, 4}, 1);
    auto const target = randomImage<float>({10, 10}, 2);
    ImageRef<float> const before(target->clone());
    imageCopyIn(*source, *target, 7, 6);
    imageCopyIn(*source, *target, 6, 7);
    EXPECT_TRUE(samePixels(*before, *target));

    imageCopyIn(*source, *target, 6, 6);
    for (int y = 0; y < 10; ++y) {
        for (int x = 0; x < 10; ++x) {
            bool const pasted = x >= 6 && y >= 6;
            float const expected =
                pasted ? source->pixels()[(y - 6) * 4 + x - 6] : before->pixels()[y * 10 + x];
            EXPECT_EQ(target->pixels()[y * 10 + x], expected) << x << ", " << y;
        }
    }
}

TEST(ImageCopyOut, TakesTheRectangleOfTheTargetsSize)
{
    auto const source = randomImage<Byte4>({10, 10}, 1);
    auto const target = imageOf<Byte4>({3, 3});
    imageCopyOut(*source, *target, 2, 3);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(target->pixels()[y * 3 + x], source->pixels()[(y + 3) * 10 + x + 2]) << x << ", " << y;
}

TEST(ImageCopy, DoesNothingAtNegativeOrOverflowingPlaces)
{
    auto const frame = randomImage<Half4>({10, 10}, 1);
    auto const block = randomImage<Half4>({4, 4}, 2);
    ImageRef<Half4> const frameBefore(frame->clone());
    ImageRef<Half4> const blockBefore(block->clone());
    for (int const at : {-1, -4, smallest, largest, largest - 3, largest - 9}) {
        for (int const other : {0, at}) {
            imageCopyIn(*block, *frame, at, other);
            imageCopyIn(*block, *frame, other, at);
            imageCopyOut(*frame, *block, at, other);
            imageCopyOut(*frame, *block, other, at);
        }
    }
    EXPECT_TRUE(samePixels(*frameBefore, *frame));
    EXPECT_TRUE(samePixels(*blockBefore, *block));
}

TEST(ImageCopy, DoesNothingForAnImageThatLostItsPixels)
{
    auto const lost = imageOf<float>({4, 4});
    {
        AllocationLimit const none(0);
        EXPECT_THROW(lost->resize(5, 5), std::bad_alloc);
    }
    auto const frame = randomImage<float>({10, 10}, 1);
    auto const block = randomImage<float>({2, 2}, 2);
    ImageRef<float> const frameBefore(frame->clone());
    ImageRef<float> const blockBefore(block->clone());
    imageCopyIn(*lost, *frame, 0, 0);
    imageCopyIn(*block, *lost, 0, 0);
    imageCopyOut(*lost, *block, 0, 0);
    imageCopyOut(*frame, *lost, 0, 0);
    imageCopyIn(*lost, *lost, 0, 0);
    EXPECT_EQ(lost->data(), nullptr);
    EXPECT_TRUE(samePixels(*frameBefore, *frame));
    EXPECT_TRUE(samePixels(*blockBefore, *block));
}

// ---- types that differ

TYPED_TEST(ImageCopy, CopiesRowsOfBytesBetweenTypesWhereTheyStayInside)
{
    auto const frame = hostileImage<TypeParam>({8, 6}, 1);
    auto const check = [&](auto tag) {
        using Other = typename decltype(tag)::type;
        for (Size const size : {Size{1, 1}, Size{8, 6}, Size{2, 3}, Size{5, 1}}) {
            auto const block = hostileImage<Other>(size, 2);
            for (Size const at : {Size{0, 0}, Size{1, 2}, Size{3, 3}, Size{7, 5}}) {
                SCOPED_TRACE(::testing::Message() << static_cast<int>(pixelTypeIdOf<Other>) << ", " << size);
                expectCopyIn(*block, *ImageRef<TypeParam>(frame->clone()), at.width, at.height);
                expectCopyOut(*frame, *ImageRef<Other>(block->clone()), at.width, at.height);
            }
        }
    };
    for (int id = 0; id <= 9; ++id)
        EXPECT_TRUE(dispatchPixel(PixelTypeId{id}, AllPixels{}, check));
}

// ---- shared memory

TYPED_TEST(ImageCopy, LeavesAnImageAsItIsWhenCopiedOntoItself)
{
    for (Size const size : {Size{17, 31}, Size{-2, -3}}) {
        auto const image = hostileImage<TypeParam>(size, 1);
        ImageRef<TypeParam> const before(image->clone());
        imageCopyIn(*image, *image, 0, 0);
        imageCopyOut(*image, *image, 0, 0);
        imageCopyIn(*image, *image, 1, 0);
        imageCopyOut(*image, *image, 0, 1);
        EXPECT_TRUE(samePixels(*before, *image));
    }
}

// A 5 x 4 block and a 7 x 9 frame in one array, the block at every place: rows move one by one, row 0 first.
TYPED_TEST(ImageCopy, CopiesRowByRowInSharedMemory)
{
    constexpr std::size_t frameLength = 63;
    auto const content = hostileImage<TypeParam>({frameLength, 1}, 1);
    for (bool const in : {true, false}) {
        for (std::size_t shift = 0; shift + 20 <= frameLength; ++shift) {
            ImageRef<TypeParam> const expected(content->clone());
            ImageRef<TypeParam> const actual(content->clone());
            for (std::size_t y = 0; y < 4; ++y) {
                TypeParam row[5];
                TypeParam* const framed = expected->pixels() + (y + 3) * 7 + 1;
                TypeParam* const packed = expected->pixels() + shift + y * 5;
                std::copy_n(in ? packed : framed, 5, row);
                std::copy_n(row, 5, in ? framed : packed);
            }

            TypedImage<TypeParam> frame;
            TypedImage<TypeParam> block;
            frame.borrow(actual->pixels(), 7, 9);
            block.borrow(actual->pixels() + shift, 5, 4);
            if (in)
                imageCopyIn(block, frame, 1, 3);
            else
                imageCopyOut(frame, block, 1, 3);
            EXPECT_TRUE(samePixels(*expected, *actual)) << shift << (in ? " in" : " out");
        }
    }
}

// Whole rows that follow each other are one block only where nothing overlaps.
TEST(ImageCopy, CopiesWholeRowsOneByOneInSharedMemory)
{
    std::vector<float> memory(20);
    for (std::size_t i = 0; i < memory.size(); ++i)
        memory[i] = static_cast<float>(i);
    TypedImage<float> source;
    TypedImage<float> target;
    source.borrow(memory.data(), 4, 4);
    target.borrow(memory.data() + 4, 4, 4);

    // Each row was overwritten by the one before it.
    imageCopyIn(source, target, 0, 0);
    for (std::size_t i = 0; i < memory.size(); ++i)
        EXPECT_EQ(memory[i], static_cast<float>(i % 4)) << i;
}

// ---- images too large for the cache

template <class Pixel>
void expectLargeCopies(Size frameSize, Size blockSize, int x)
{
    auto const frame = imageOf<Pixel>(frameSize);
    auto const block = imageOf<Pixel>(blockSize);
    std::uint32_t word = 1;
    for (Image* const image : {static_cast<Image*>(frame.get()), static_cast<Image*>(block.get())})
        for (std::size_t i = 0; i < static_cast<std::size_t>(bytesOf(*image)); ++i)
            static_cast<unsigned char*>(image->data())[i] =
                static_cast<unsigned char>((word = word * 1664525u + 1013904223u) >> 24);

    ImageRef<Pixel> const pasted(frame->clone());
    imageCopyIn(*block, *pasted, x, 1);
    for (std::size_t i = 0; i < pixelsOf<Pixel>(*frame).size(); ++i) {
        int const column = static_cast<int>(i % static_cast<std::size_t>(frameSize.width)) - x;
        int const row = static_cast<int>(i / static_cast<std::size_t>(frameSize.width)) - 1;
        bool const inBlock = column >= 0 && column < blockSize.width && row >= 0 && row < blockSize.height;
        Pixel const* const expected =
            inBlock ? &block->pixels()[row * blockSize.width + column] : &frame->pixels()[i];
        ASSERT_EQ(std::memcmp(&pasted->pixels()[i], expected, sizeof(Pixel)), 0) << i;
    }

    auto const back = imageOf<Pixel>(blockSize);
    imageCopyOut(*pasted, *back, x, 1);
    EXPECT_TRUE(samePixels(*block, *back));
}

TEST(ImageCopy, CopiesLargeRectangles)
{
    expectLargeCopies<Float3>({2011, 1003}, {1501, 1001}, 77);
    expectLargeCopies<unsigned char>({5003, 4007}, {4999, 4001}, 3);
}

TEST(ImageCopy, CopiesLargeImagesOfOneRun)
{
    expectLargeCopies<Float3>({1501, 1003}, {1501, 1001}, 0);
    expectLargeCopies<unsigned char>({4999, 4007}, {4999, 4001}, 0);
}

TEST(ImageCopy, CopiesManyShortRows)
{
    expectLargeCopies<Byte4>({65, 100003}, {63, 100001}, 2);
}

}  // namespace
}  // namespace koImage::testing
