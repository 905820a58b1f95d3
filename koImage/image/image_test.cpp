#include "koImage/image/image.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <limits>
#include <type_traits>

namespace koImage::testing {
namespace {

static_assert(std::is_abstract_v<Image>);
static_assert(!std::is_copy_constructible_v<TypedImage<float>> &&
              !std::is_copy_assignable_v<TypedImage<float>>);

constexpr int largest = std::numeric_limits<int>::max();
constexpr int smallest = std::numeric_limits<int>::min();

TEST(Image, StartsEmptyWithReciprocalsOfOne)
{
    TypedImage<float> const image;
    EXPECT_EQ(image.pixelType(), PixelTypeId::Float);
    EXPECT_EQ(image.width(), 0);
    EXPECT_EQ(image.height(), 0);
    EXPECT_EQ(image.invWidth(), 1.0f);
    EXPECT_EQ(image.invHeight(), 1.0f);
    EXPECT_FALSE(image.wrapHorizontal());
    EXPECT_FALSE(image.wrapVertical());
    EXPECT_EQ(image.referenceCount(), 0u);
}

TEST(Image, HasTheNearestFloatsToTheReciprocalsOfItsSize)
{
    // A quotient of two floats that is rounded to double first still rounds to the nearest float.
    TypedImage<unsigned char> image;
    for (int size = 1; size <= 5000; ++size) {
        image.resize(size, 1);
        ASSERT_EQ(image.invWidth(), static_cast<float>(1.0 / size)) << size;
        image.resize(1, size);
        ASSERT_EQ(image.invHeight(), static_cast<float>(1.0 / size)) << size;
    }
    image.resize(640, 480);
    EXPECT_EQ(image.invWidth(), 0.0015625f);
    EXPECT_EQ(image.invHeight(), static_cast<float>(1.0 / 480));
}

TEST(Image, DividesOneByTheSizeAsAFloat)
{
    // 2^24 + 1 is not a float: the size is rounded before the division.
    TypedImage<unsigned char> image;
    image.resize(16777217, 0);
    EXPECT_EQ(image.invWidth(), 0x1p-24f);
    image.resize(0, largest);
    EXPECT_EQ(image.invHeight(), 0x1p-31f);
}

TEST(Image, HasReciprocalsOfOneWhereTheSizeIsBelowOne)
{
    TypedImage<float> image;
    image.resize(0, 10);
    EXPECT_EQ(image.invWidth(), 1.0f);
    EXPECT_EQ(image.invHeight(), 0.1f);
    EXPECT_EQ(image.data(), nullptr);

    image.resize(10, 0);
    EXPECT_EQ(image.invWidth(), 0.1f);
    EXPECT_EQ(image.invHeight(), 1.0f);

    image.resize(-1, smallest);
    EXPECT_EQ(image.invWidth(), 1.0f);
    EXPECT_EQ(image.invHeight(), 1.0f);
}

TEST(Image, SetsEachWrapFlagOnItsOwn)
{
    TypedImage<float> image;
    image.setWrap(true, false);
    EXPECT_TRUE(image.wrapHorizontal());
    EXPECT_FALSE(image.wrapVertical());
    image.setWrap(false, true);
    EXPECT_FALSE(image.wrapHorizontal());
    EXPECT_TRUE(image.wrapVertical());

    // Only setWrap changes them.
    image.resize(4, 4);
    EXPECT_FALSE(image.wrapHorizontal());
    EXPECT_TRUE(image.wrapVertical());
}

TEST(Image, ReportsItsRangeFromTheOrigin)
{
    TypedImage<Byte4> image;
    image.resize(7, 5);
    koUtil::IntRange2d range{9, 9, 9, 9};
    image.range(range);
    EXPECT_EQ(range, (koUtil::IntRange2d{0, 0, 7, 5}));

    image.resize(-2, -3);
    image.range(range);
    EXPECT_EQ(range, (koUtil::IntRange2d{0, 0, -2, -3}));
}

TEST(Image, CountsPixelsByTheSignedProductModulo32Bits)
{
    struct Case {
        Size size;
        int count;
    };
    TypedImage<unsigned char> image;
    for (Case const c :
         {Case{{65536, 65536}, 0}, Case{{65537, 65536}, 65536}, Case{{-2, -3}, 6}, Case{{-1, 4}, -4},
          Case{{65536, 32768}, smallest}, Case{{largest, largest}, 1}, Case{{smallest, -1}, smallest}}) {
        image.resize(c.size.width, c.size.height);
        EXPECT_EQ(image.pixelCount(), c.count) << c.size;
        EXPECT_EQ(image.data() != nullptr, c.count > 0) << c.size;
    }
}

// An image that tells when it goes.
class Watched : public TypedImage<float> {
public:
    explicit Watched(int& destroyed) : destroyed_(destroyed) {}
    ~Watched() override { ++destroyed_; }

private:
    int& destroyed_;
};

TEST(Image, HoldsItsRowsWhereItsSizesDescribeItsArray)
{
    unsigned char pixel = 0;
    TypedImage<unsigned char> image;
    EXPECT_FALSE(image.holdsItsRows());
    auto const holds = [&image](unsigned char* pixels, Size size) {
        image.borrow(pixels, size.width, size.height);
        return image.holdsItsRows();
    };
    EXPECT_TRUE(holds(&pixel, {1, 1}));
    EXPECT_TRUE(holds(&pixel, {largest, 1}));
    EXPECT_FALSE(holds(nullptr, {1, 1}));
    for (Size const size : {Size{0, 1}, Size{1, 0}, Size{-1, -1}, Size{65537, 65536}, Size{largest, largest}})
        EXPECT_FALSE(holds(&pixel, size)) << size;
}

TEST(Image, IsDestroyedByTheLastReferenceAlone)
{
    int destroyed = 0;
    auto* const image = new Watched(destroyed);
    EXPECT_EQ(image->referenceCount(), 0u);

    ko::Reference<Image> first(image);
    EXPECT_EQ(image->referenceCount(), 1u);
    {
        ko::Reference<Image const> const second = first;
        EXPECT_EQ(image->referenceCount(), 2u);
    }
    EXPECT_EQ(image->referenceCount(), 1u);
    EXPECT_EQ(destroyed, 0);

    first = nullptr;
    EXPECT_EQ(destroyed, 1);
}

#ifdef __x86_64__
// A pointer to a virtual member holds one more than the offset of its slot, in bytes. Slots 0 and 1 are the
// two destructors.
template <class Member>
std::ptrdiff_t slotOf(Member member)
{
    std::ptrdiff_t word;
    std::memcpy(&word, &member, sizeof word);
    return (word - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(Image, KeepsTheOrderOfItsVirtualOperations)
{
    EXPECT_EQ(slotOf(&Image::bytesPerPixel), 2);
    EXPECT_EQ(slotOf(&Image::memorySize), 3);
    EXPECT_EQ(slotOf(&Image::createEmpty), 4);
    EXPECT_EQ(slotOf(&Image::clone), 5);
    EXPECT_EQ(slotOf(&Image::resize), 6);
    EXPECT_EQ(slotOf(static_cast<void const* (Image::*)() const>(&Image::data)), 7);
    EXPECT_EQ(slotOf(static_cast<void* (Image::*)()>(&Image::data)), 8);
}
#endif

}  // namespace
}  // namespace koImage::testing
