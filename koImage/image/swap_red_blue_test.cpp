#include "koImage/image/swap_red_blue.h"

#include "koImage/testing/guarded_image.h"
#include "koImage/testing/repeated_memory.h"

#include <gtest/gtest.h>

#include <utility>

namespace koImage::testing {

namespace {

std::vector<unsigned char> swappedByHand(std::vector<unsigned char> bytes)
{
    for (std::size_t i = 0; i < bytes.size(); i += 4)
        std::swap(bytes[i], bytes[i + 2]);
    return bytes;
}

char* bytesOfBuffer(GuardedImage<Byte4>& pixels)
{
    return reinterpret_cast<char*>(pixels.pixels());
}

}  // namespace

TEST(ImageSwapRedBlue, ExchangesTheFirstAndThirdByteOfAPixel)
{
    auto const image = imageOf<Byte4>({1, 1});
    *image->pixels() = {1, 2, 3, 4};
    imageSwapRedBlue(*image);
    EXPECT_EQ(*image->pixels(), (Byte4{3, 2, 1, 4}));
}

TEST(ImageSwapRedBlue, SwapsExactlyThePixelsOfABufferAtEveryCountAndAlignment)
{
    for (int count = 0; count <= 70; ++count) {
        for (int offset = 0; offset < 5; ++offset) {
            SCOPED_TRACE(::testing::Message() << count << " pixels, offset " << offset);
            GuardedImage<Byte4> pixels({count, 1}, offset);
            imageSwapRedBlue(bytesOfBuffer(pixels), count);
            ASSERT_TRUE(pixels.holds(swappedByHand(pixels.bytesBefore())));
        }
    }
}

TEST(ImageSwapRedBlue, DoesNothingToANullBufferOrACountBelowOne)
{
    imageSwapRedBlue(static_cast<char*>(nullptr), 100);
    for (int const count : {0, -1, -16, -100, INT_MIN}) {
        GuardedImage<Byte4> pixels({20, 2});
        imageSwapRedBlue(bytesOfBuffer(pixels), count);
        EXPECT_TRUE(pixels.holds(pixels.bytesBefore())) << count;
    }
}

TEST(ImageSwapRedBlue, SwapsAnImageOfEverySize)
{
    for (Size const size : awkwardSizes) {
        GuardedImage<Byte4> image(size);
        imageSwapRedBlue(*image);
        EXPECT_TRUE(image.holds(swappedByHand(image.bytesBefore()))) << size;
    }
}

// Linear, so rows do not matter: (-2, -3) is six pixels, and a wrapped product is what the array holds.
TEST(ImageSwapRedBlue, SwapsThePixelsThatTheArrayHoldsWhateverTheRowsSay)
{
    for (Size const size : rowlessSizes) {
        GuardedImage<Byte4> image(size);
        imageSwapRedBlue(*image);
        EXPECT_TRUE(image.holds(swappedByHand(image.bytesBefore()))) << size;
    }
}

TEST(ImageSwapRedBlue, TwiceIsTheIdentity)
{
    GuardedImage<Byte4> image({61, 7});
    imageSwapRedBlue(*image);
    EXPECT_FALSE(image.holds(image.bytesBefore()));
    imageSwapRedBlue(*image);
    EXPECT_TRUE(image.holds(image.bytesBefore()));
}

TEST(ImageSwapRedBlue, ToleratesAnImageWithoutPixels)
{
    TypedImage<Byte4> image;
    image.borrow(nullptr, 640, 480);
    imageSwapRedBlue(image);
    EXPECT_EQ(image.pixels(), nullptr);
}

template <class Pixel>
class ImageSwapRedBlueOfOthers : public ::testing::Test {
};
TYPED_TEST_SUITE(ImageSwapRedBlueOfOthers, TestTypes<AllPixels>, ById);

TYPED_TEST(ImageSwapRedBlueOfOthers, ChangesByte4Only)
{
    GuardedImage<TypeParam> image({17, 3});
    imageSwapRedBlue(*image);
    EXPECT_EQ(image.holds(image.bytesBefore()), (!std::is_same_v<TypeParam, Byte4>));
}

TEST(ImageSwapRedBlue, LeavesForeignTypesAlone)
{
    for (PixelTypeId const type : foreignTypes) {
        ForeignImage image(type, {16, 4});
        auto const before = image.bytes();
        imageSwapRedBlue(image);
        EXPECT_EQ(image.bytes(), before);
    }
}

// The last pixel lies 2 GiB from the first.
TEST(ImageSwapRedBlue, ReachesPixelsFarApart)
{
    constexpr int count = (1 << 29) + 1;
    RepeatedMemory memory(4 * std::size_t{count});
    unsigned char* const last = memory.start() + 4 * (std::size_t{count} - 1);
    std::memcpy(last, "abcd", 4);
    imageSwapRedBlue(reinterpret_cast<char*>(memory.start()), count);
    EXPECT_EQ(std::memcmp(last, "cbad", 4), 0);
}

}  // namespace koImage::testing
