#include "koImage/image/typed_image.h"

#include "koImage/testing/allocation_limit.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

namespace koImage::testing {
namespace {

template <class Pixel>
class TypedImageTest : public ::testing::Test {
};
TYPED_TEST_SUITE(TypedImageTest, TestTypes<AllPixels>, ById);

// Size, reciprocals and wrap flags of a new image, and no pixels of its own or anybody else's.
template <class Pixel>
void expectEmpty(TypedImage<Pixel> const& image)
{
    EXPECT_EQ(image.pixelType(), pixelTypeIdOf<Pixel>);
    EXPECT_EQ(image.width(), 0);
    EXPECT_EQ(image.height(), 0);
    EXPECT_EQ(image.invWidth(), 1.0f);
    EXPECT_EQ(image.invHeight(), 1.0f);
    EXPECT_FALSE(image.wrapHorizontal());
    EXPECT_FALSE(image.wrapVertical());
    EXPECT_EQ(image.pixels(), nullptr);
    EXPECT_TRUE(image.ownsPixels());
    EXPECT_EQ(image.memorySize(), sizeof(image));
    EXPECT_EQ(image.referenceCount(), 0u);
}

// What an image of that size must hold, all of it writable.
template <class Pixel>
void expectFresh(TypedImage<Pixel>& image, Size size)
{
    SCOPED_TRACE(::testing::Message() << size);
    auto const count = static_cast<std::int32_t>(static_cast<std::uint32_t>(size.width) *
                                                 static_cast<std::uint32_t>(size.height));
    auto const held = static_cast<std::size_t>(std::max(count, 0));
    EXPECT_EQ(image.width(), size.width);
    EXPECT_EQ(image.height(), size.height);
    EXPECT_EQ(image.pixels() != nullptr, held > 0);
    EXPECT_TRUE(image.ownsPixels());
    EXPECT_EQ(image.memorySize(), sizeof(image) + held * sizeof(Pixel));
    EXPECT_EQ(image.arrayLength(), held);
    EXPECT_EQ(pixelsOf<Pixel>(image).size(), held);
    EXPECT_EQ(pixelsOf<Pixel>(std::as_const(image)).size(), held);
    EXPECT_EQ(image.data(), image.pixels());
    EXPECT_EQ(std::as_const(image).data(), image.pixels());
    makeHostile(image, 1);
}

TYPED_TEST(TypedImageTest, StartsEmpty)
{
    expectEmpty(TypedImage<TypeParam>());
}

TYPED_TEST(TypedImageTest, HasThePixelsOfEverySize)
{
    TypedImage<TypeParam> image;
    for (Size const size : awkwardSizes) {
        image.resize(size.width, size.height);
        expectFresh(image, size);
    }
}

TYPED_TEST(TypedImageTest, HasThePixelsOfEveryHostileSize)
{
    TypedImage<TypeParam> image;
    for (Size const size : hostileSizes) {
        image.resize(size.width, size.height);
        expectFresh(image, size);
    }
}

TYPED_TEST(TypedImageTest, CreatesAnEmptyImageOfItsClass)
{
    auto const image = randomImage<TypeParam>({100, 100}, 1);
    image->setWrap(true, true);
    ko::Reference<Image> const empty(static_cast<Image const&>(*image).createEmpty());
    auto const* const typed = dynamic_cast<TypedImage<TypeParam> const*>(empty.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->referenceCount(), 1u);

    TypedImage<TypeParam>* const unreferenced = image->createEmpty();
    expectEmpty(*unreferenced);
    delete unreferenced;
}

TYPED_TEST(TypedImageTest, KeepsItsArrayWhileThePixelCountStays)
{
    auto const image = hostileImage<TypeParam>({4, 8}, 1);
    auto const* const array = image->pixels();
    auto const before = ImageRef<TypeParam>(image->clone());

    // No memory is needed, so none is asked for.
    AllocationLimit const none(0);
    for (Size const size : {Size{8, 4}, Size{-8, -4}, Size{1, 32}, Size{4, 8}}) {
        image->resize(size.width, size.height);
        EXPECT_EQ(image->pixels(), array) << size;
        EXPECT_EQ(image->width(), size.width);
        EXPECT_EQ(image->height(), size.height);
        EXPECT_EQ(image->invWidth(), size.width < 1 ? 1.0f : 1.0f / static_cast<float>(size.width));
    }
    EXPECT_TRUE(samePixels(*before, *image));
}

TYPED_TEST(TypedImageTest, ReleasesItsArrayWhenTheCountDropsBelowOne)
{
    for (Size const size : {Size{0, 7}, Size{-1, 4}, Size{65536, 65536}}) {
        auto const image = randomImage<TypeParam>({3, 2}, 1);
        std::size_t const arrays = livePixelArrays();
        image->resize(size.width, size.height);
        expectFresh(*image, size);
        EXPECT_EQ(livePixelArrays(), arrays - 1);
    }
}

TYPED_TEST(TypedImageTest, ReleasesItsArrayWithTheLastReference)
{
    std::size_t const arrays = livePixelArrays();
    {
        ko::Reference<Image> const image = randomImage<TypeParam>({3, 2}, 1);
        EXPECT_EQ(livePixelArrays(), arrays + 1);
    }
    EXPECT_EQ(livePixelArrays(), arrays);
}

// ---- borrowed memory

// Six pixels of the test's own, not aligned beyond what the type asks for.
template <class Pixel>
struct Lent {
    Lent() { image.borrow(pixels.data() + 1, 3, 2); }

    std::vector<Pixel> pixels = std::vector<Pixel>(7);
    TypedImage<Pixel> image;
};

TYPED_TEST(TypedImageTest, BorrowsMemoryThatItNeverReleases)
{
    std::size_t const arrays = livePixelArrays();
    {
        Lent<TypeParam> lent;
        EXPECT_EQ(lent.image.pixels(), lent.pixels.data() + 1);
        EXPECT_FALSE(lent.image.ownsPixels());
        EXPECT_EQ(lent.image.width(), 3);
        EXPECT_EQ(lent.image.invHeight(), 0.5f);
        EXPECT_EQ(lent.image.memorySize(), sizeof(lent.image) + 6 * sizeof(TypeParam));
        makeHostile(lent.image, 1);
    }
    EXPECT_EQ(livePixelArrays(), arrays);
}

TYPED_TEST(TypedImageTest, ReleasesItsArrayWhenItBorrowsAnother)
{
    std::size_t const arrays = livePixelArrays();
    Lent<TypeParam> lent;
    TypedImage<TypeParam> image;
    image.resize(5, 5);
    image.borrow(lent.pixels.data(), 7, 1);
    EXPECT_EQ(livePixelArrays(), arrays);
    EXPECT_EQ(image.width(), 7);
}

TYPED_TEST(TypedImageTest, ReplacesBorrowedMemoryEvenAtTheSameSize)
{
    for (Size const size : {Size{3, 2}, Size{6, 1}, Size{9, 9}}) {
        Lent<TypeParam> lent;
        makeHostile(lent.image, 1);
        std::vector<TypeParam> const before = lent.pixels;

        lent.image.resize(size.width, size.height);
        EXPECT_NE(lent.image.pixels(), lent.pixels.data() + 1);
        expectFresh(lent.image, size);
        EXPECT_EQ(std::memcmp(lent.pixels.data(), before.data(), 7 * sizeof(TypeParam)), 0);
    }
}

TYPED_TEST(TypedImageTest, KeepsBorrowedMemoryWhenTheCountDropsBelowOne)
{
    for (Size const size : {Size{0, 2}, Size{-3, 2}, Size{65536, 65536}}) {
        Lent<TypeParam> lent;
        lent.image.resize(size.width, size.height);
        EXPECT_EQ(lent.image.pixels(), lent.pixels.data() + 1);
        EXPECT_FALSE(lent.image.ownsPixels());
        EXPECT_EQ(lent.image.width(), size.width);
        EXPECT_EQ(lent.image.memorySize(), sizeof(lent.image));
        EXPECT_TRUE(pixelsOf<TypeParam>(lent.image).empty());

        lent.image.resize(2, 2);
        expectFresh(lent.image, {2, 2});
    }
}

// ---- clone

TYPED_TEST(TypedImageTest, ClonesSizeFlagsAndBytes)
{
    auto const image = hostileImage<TypeParam>({3, 2}, 1);
    image->setWrap(true, false);
    ko::Reference<Image> const copy(static_cast<Image const&>(*image).clone());

    EXPECT_TRUE(samePixels(*image, *copy));
    EXPECT_EQ(copy->invWidth(), image->invWidth());
    EXPECT_EQ(copy->invHeight(), image->invHeight());
    EXPECT_TRUE(copy->wrapHorizontal());
    EXPECT_FALSE(copy->wrapVertical());
    EXPECT_EQ(copy->memorySize(), image->memorySize());
    EXPECT_EQ(copy->referenceCount(), 1u);
    auto* const typed = dynamic_cast<TypedImage<TypeParam>*>(copy.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_TRUE(typed->ownsPixels());

    // Neither sees what happens to the other.
    auto const before = ImageRef<TypeParam>(image->clone());
    makeHostile(*typed, 2);
    EXPECT_TRUE(samePixels(*before, *image));
    EXPECT_FALSE(samePixels(*image, *copy));
}

TYPED_TEST(TypedImageTest, ClonesEverySize)
{
    auto const expectClone = [](Size size) {
        auto const image = hostileImage<TypeParam>(size, 1);
        EXPECT_TRUE(samePixels(*image, *ImageRef<TypeParam>(image->clone()))) << size;
    };
    std::for_each(std::begin(awkwardSizes), std::end(awkwardSizes), expectClone);
    std::for_each(std::begin(hostileSizes), std::end(hostileSizes), expectClone);
}

TYPED_TEST(TypedImageTest, ClonesBorrowedPixelsIntoItsOwn)
{
    Lent<TypeParam> lent;
    makeHostile(lent.image, 1);
    ImageRef<TypeParam> const copy(lent.image.clone());
    EXPECT_TRUE(samePixels(lent.image, *copy));
    EXPECT_NE(copy->pixels(), lent.image.pixels());
    EXPECT_TRUE(copy->ownsPixels());
}

TYPED_TEST(TypedImageTest, ClonesAnImageWithoutPixelsAsOneThatOwnsNone)
{
    // A borrowed pointer that no pixel stands behind is not passed on either.
    Lent<TypeParam> lent;
    lent.image.resize(-3, 2);
    ImageRef<TypeParam> const copy(lent.image.clone());
    EXPECT_EQ(copy->pixels(), nullptr);
    EXPECT_TRUE(copy->ownsPixels());
    EXPECT_EQ(copy->width(), -3);
    EXPECT_EQ(copy->height(), 2);
}

// ---- allocation failure

TYPED_TEST(TypedImageTest, LosesItsPixelsAndKeepsItsSizeWhenResizeFails)
{
    auto const image = randomImage<TypeParam>({4, 8}, 1);
    image->setWrap(true, false);
    std::size_t const arrays = livePixelArrays();
    {
        AllocationLimit const none(0);
        EXPECT_THROW(image->resize(5, 5), std::bad_alloc);
    }
    EXPECT_EQ(livePixelArrays(), arrays - 1);
    EXPECT_EQ(image->pixels(), nullptr);
    EXPECT_TRUE(image->ownsPixels());
    EXPECT_EQ(image->width(), 4);
    EXPECT_EQ(image->height(), 8);
    EXPECT_EQ(image->invWidth(), 0.25f);
    EXPECT_EQ(image->invHeight(), 0.125f);
    EXPECT_TRUE(image->wrapHorizontal());

    // Everything else takes such an image.
    EXPECT_EQ(image->memorySize(), sizeof(*image));
    EXPECT_TRUE(pixelsOf<TypeParam>(*image).empty());
    ImageRef<TypeParam> const copy(image->clone());
    EXPECT_EQ(copy->pixels(), nullptr);
    EXPECT_EQ(copy->width(), 4);
    expectEmpty(*std::unique_ptr<TypedImage<TypeParam>>(image->createEmpty()));

    // The count decides, not the pointer: only another one brings pixels back.
    image->resize(8, 4);
    EXPECT_EQ(image->pixels(), nullptr);
    image->resize(5, 5);
    expectFresh(*image, {5, 5});
}

TYPED_TEST(TypedImageTest, StaysEmptyWhenItsFirstResizeFails)
{
    TypedImage<TypeParam> image;
    {
        AllocationLimit const limit(6 * sizeof(TypeParam) - 1);
        EXPECT_THROW(image.resize(3, 2), std::bad_alloc);
    }
    expectEmpty(image);

    AllocationLimit const limit(6 * sizeof(TypeParam));
    image.resize(3, 2);
    expectFresh(image, {3, 2});
}

TYPED_TEST(TypedImageTest, StaysBorrowedWhenResizeFails)
{
    Lent<TypeParam> lent;
    AllocationLimit const none(0);
    EXPECT_THROW(lent.image.resize(3, 2), std::bad_alloc);
    EXPECT_THROW(lent.image.resize(9, 9), std::bad_alloc);
    EXPECT_EQ(lent.image.pixels(), lent.pixels.data() + 1);
    EXPECT_FALSE(lent.image.ownsPixels());
    EXPECT_EQ(lent.image.width(), 3);
    EXPECT_EQ(lent.image.height(), 2);
}

TYPED_TEST(TypedImageTest, LeavesNothingBehindWhenCloneFails)
{
    auto const image = hostileImage<TypeParam>({3, 2}, 1);
    ImageRef<TypeParam> const before(image->clone());
    std::size_t const arrays = livePixelArrays();
    {
        AllocationLimit const none(0);
        EXPECT_THROW(static_cast<void>(image->clone()), std::bad_alloc);
    }
    EXPECT_EQ(livePixelArrays(), arrays);
    EXPECT_TRUE(samePixels(*before, *image));
}

// ---- harmonics pixels

TEST(TypedImage, PassesOnThatTheSystemHasNoMemoryLeft)
{
    // 6 TiB.
    TypedImage<HarmonicsPixel> image;
    image.resize(2, 2);
    EXPECT_THROW(image.resize(std::numeric_limits<int>::max(), 1), std::bad_alloc);
    EXPECT_EQ(image.pixels(), nullptr);
    EXPECT_EQ(image.width(), 2);
    EXPECT_EQ(image.height(), 2);
}

TEST(TypedImage, ConstructsHarmonicsPixels)
{
    TypedImage<HarmonicsPixel> image;
    HarmonicsPixel const zero;
    for (int const count : {1, 5, 40}) {
        image.resize(count, 1);
        for (HarmonicsPixel& pixel : pixelsOf<HarmonicsPixel>(image)) {
            EXPECT_EQ(std::memcmp(&pixel, &zero, sizeof zero), 0);
            std::memset(static_cast<void*>(&pixel), 0xFF, sizeof pixel);  // what the next array may find
        }
    }
    EXPECT_EQ(zero[120], (Double3{0, 0, 0}));
}

TEST(TypedImage, HasThePixelSizesOfItsTable)
{
    EXPECT_EQ(TypedImage<unsigned char>().bytesPerPixel(), 1);
    EXPECT_EQ(TypedImage<Byte4>().bytesPerPixel(), 4);
    EXPECT_EQ(TypedImage<unsigned int>().bytesPerPixel(), 4);
    EXPECT_EQ(TypedImage<Int4>().bytesPerPixel(), 16);
    EXPECT_EQ(TypedImage<Half4>().bytesPerPixel(), 8);
    EXPECT_EQ(TypedImage<float>().bytesPerPixel(), 4);
    EXPECT_EQ(TypedImage<Float3>().bytesPerPixel(), 12);
    EXPECT_EQ(TypedImage<Float4>().bytesPerPixel(), 16);
    EXPECT_EQ(TypedImage<Double3>().bytesPerPixel(), 24);
    EXPECT_EQ(TypedImage<HarmonicsPixel>().bytesPerPixel(), 2912);
}

TEST(TypedImage, HasTheTypeIdsOfItsTable)
{
    EXPECT_EQ(static_cast<int>(TypedImage<unsigned char>().pixelType()), 0);
    EXPECT_EQ(static_cast<int>(TypedImage<Byte4>().pixelType()), 1);
    EXPECT_EQ(static_cast<int>(TypedImage<unsigned int>().pixelType()), 2);
    EXPECT_EQ(static_cast<int>(TypedImage<Int4>().pixelType()), 3);
    EXPECT_EQ(static_cast<int>(TypedImage<Half4>().pixelType()), 4);
    EXPECT_EQ(static_cast<int>(TypedImage<float>().pixelType()), 5);
    EXPECT_EQ(static_cast<int>(TypedImage<Float3>().pixelType()), 6);
    EXPECT_EQ(static_cast<int>(TypedImage<Float4>().pixelType()), 7);
    EXPECT_EQ(static_cast<int>(TypedImage<Double3>().pixelType()), 8);
    EXPECT_EQ(static_cast<int>(TypedImage<HarmonicsPixel>().pixelType()), 9);
}

}  // namespace
}  // namespace koImage::testing
