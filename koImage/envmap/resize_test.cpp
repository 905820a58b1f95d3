#include "koImage/envmap/resize.h"

#include "koImage/testing/bilinear_reference.h"
#include "koImage/testing/guarded_pixels.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

namespace koImage {

namespace {

using testing::hostileImage;
using testing::imageOf;
using testing::ImageRef;
using testing::randomImage;
using testing::Size;

constexpr bool bilinear = true;
constexpr bool nearest = false;

template <class Pixel>
ImageRef<Pixel> resized(TypedImage<Pixel> const& source, Size size, bool filter)
{
    return ImageRef<Pixel>(static_cast<TypedImage<Pixel>*>(resize(source, size.width, size.height, filter)));
}

template <class Pixel>
Pixel packed(Pixel const& sample)
{
    return sample;
}
Byte4 packed(Byte4Sample const& sample)
{
    auto const byte = [](std::uint32_t c) { return static_cast<unsigned char>(c > 255 ? 255 : c); };
    return {byte(sample[0]), byte(sample[1]), byte(sample[2]), byte(sample[3])};
}

/// The resized image, pixel by pixel.
template <class Pixel>
ImageRef<Pixel> resizedByHand(TypedImage<Pixel> const& source, Size size, bool filter)
{
    auto const result = imageOf<Pixel>(size);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
            float const u = (static_cast<float>(x) + 0.5f) * (1.0f / static_cast<float>(size.width));
            float const v = (static_cast<float>(y) + 0.5f) * (1.0f / static_cast<float>(size.height));
            Pixel& pixel = result->pixels()[y * size.width + x];
            if (filter)
                pixel = packed(testing::referenceSample(source, u, v));
            else {
                auto const column =
                    testing::referenceTruncation(testing::referencePosition(u, source.width()));
                auto const row = testing::referenceTruncation(testing::referencePosition(v, source.height()));
                pixel = source.pixels()[testing::referenceIndex(source, column, row)];
            }
        }
    return result;
}

template <class Pixel>
void makeNansPlain(TypedImage<Pixel>& image)
{
    using Channel = typename testing::ChannelOf<Pixel>::type;
    auto const pixels = pixelsOf<Pixel>(image);
    if (!pixels.empty())
        testing::makeNansPlain(reinterpret_cast<Channel*>(pixels.data()),
                               pixels.size_bytes() / sizeof(Channel));
}

/// Equal to the resized image by hand: to the bit for copies, up to the payload of NaNs for blends.
template <class Pixel>
::testing::AssertionResult resizesByTheRules(TypedImage<Pixel> const& source, Size size, bool filter)
{
    auto const expected = resizedByHand(source, size, filter);
    auto const actual = resized(source, size, filter);
    if (filter) {
        makeNansPlain(*expected);
        makeNansPlain(*actual);
    }
    auto same = testing::samePixels(*expected, *actual);
    if (!same)
        same << " from " << Size{source.width(), source.height()} << " to " << size << ", filter " << filter
             << ", wrap " << source.wrapHorizontal() << source.wrapVertical();
    return same;
}

template <class Pixel>
void expectTheRulesWithAllFlags(TypedImage<Pixel>& source, Size size)
{
    ASSERT_TRUE(resizesByTheRules(source, size, nearest));
    for (bool const horizontal : {false, true})
        for (bool const vertical : {false, true}) {
            source.setWrap(horizontal, vertical);
            ASSERT_TRUE(resizesByTheRules(source, size, bilinear));
        }
    source.setWrap(false, false);
}

template <class Pixel>
class Resize : public ::testing::Test {
};
TYPED_TEST_SUITE(Resize, testing::TestTypes<ResamplePixels>, testing::ById);

// Columns and rows are independent of each other: every pair of widths and every pair of heights up to 17
// occurs, each four times in different company.
TYPED_TEST(Resize, FollowsTheSamplersBetweenAllSmallSizes)
{
    constexpr int largest = 17;
    constexpr int pairs = largest * largest;
    for (int widths = 0; widths < pairs; ++widths)
        for (int company = 0; company < 4; ++company) {
            int const heights = (widths * 101 + company * 67) % pairs;  // 101 and 289 are coprime
            auto const source = randomImage<TypeParam>({1 + widths / largest, 1 + heights / largest},
                                                       static_cast<std::uint32_t>(widths));
            expectTheRulesWithAllFlags(*source, {1 + widths % largest, 1 + heights % largest});
        }
}

// Sizes around the tiles and vectors of the fast paths, reduced and enlarged in either direction. Far from
// the first row and column weights have few binary digits, and some are 0: the last four have thousands of
// them.
constexpr struct {
    Size from;
    Size to;
} largePairs[] = {{{1031, 37}, {1543, 29}}, {{515, 3}, {2051, 5}},   {{1, 1}, {1025, 3}},
                  {{2, 2}, {513, 7}},       {{4099, 2}, {1, 9}},     {{3001, 5}, {601, 2}},
                  {{129, 67}, {512, 268}},  {{768, 5}, {511, 31}},   {{701, 3}, {8209, 7}},
                  {{37, 300}, {41, 450}},   {{3, 8191}, {2, 12289}}, {{8191, 3}, {12289, 2}},
                  {{5, 16384}, {3, 8192}},  {{16384, 5}, {3000, 2}}};

TYPED_TEST(Resize, FollowsTheSamplersAcrossLargeSizes)
{
    for (auto const& [from, to] : largePairs)
        expectTheRulesWithAllFlags(*randomImage<TypeParam>(from, 1), to);
}

// Large results in memory that was written before are streamed.
TYPED_TEST(Resize, FollowsTheSamplersWhenRowsGoPastTheCache)
{
    constexpr int width = 1201;
    Size const size{width, (16 << 20) / (width * static_cast<int>(sizeof(TypeParam))) + 1};
    for (Size const from : {Size{97, 61}, Size{33, 2 * size.height + 5}})
        for (bool const filter : {bilinear, nearest}) {
            {
                auto const first = randomImage<TypeParam>(size, 2);
                auto const second = randomImage<TypeParam>(size, 3);
            }
            ASSERT_TRUE(resizesByTheRules(*randomImage<TypeParam>(from, 1), size, filter));
        }
}

TYPED_TEST(Resize, KeepsInfinitiesNansAndTinyValues)
{
    for (std::uint32_t seed = 0; seed < 20; ++seed)
        expectTheRulesWithAllFlags(*hostileImage<TypeParam>({7, 5}, seed), {19, 13});
    for (auto const& [from, to] : largePairs)
        expectTheRulesWithAllFlags(*hostileImage<TypeParam>(from, 2), to);
}

TYPED_TEST(Resize, ReadsAndWritesNothingOutsideTheSource)
{
    for (Size const size : {Size{1, 1}, Size{2, 1}, Size{5, 4}, Size{33, 3}})
        for (bool const atStart : {false, true}) {
            auto const count = static_cast<std::size_t>(size.width * size.height);
            testing::GuardedPixels<TypeParam> pixels(count, atStart);
            ImageRef<TypeParam> const source(new TypedImage<TypeParam>);
            source->borrow(pixels.data(), size.width, size.height);
            testing::randomise(*source, 3);
            for (Size const to : {Size{1, 1}, Size{3, 2}, Size{17, 9}, Size{67, 5}})
                expectTheRulesWithAllFlags(*source, to);
        }
}

TYPED_TEST(Resize, TakesPixelsOfTheLeastAlignment)
{
    using Channel = typename testing::ChannelOf<TypeParam>::type;
    auto const aligned = randomImage<TypeParam>({31, 9}, 4);
    std::vector<Channel> channels(31 * 9 * sizeof(TypeParam) / sizeof(Channel) + 1);
    std::memcpy(channels.data() + 1, aligned->data(), 31 * 9 * sizeof(TypeParam));

    ImageRef<TypeParam> const source(new TypedImage<TypeParam>);
    source->borrow(reinterpret_cast<TypeParam*>(channels.data() + 1), 31, 9);
    for (Size const to : {Size{63, 17}, Size{9, 5}})
        expectTheRulesWithAllFlags(*source, to);
}

TYPED_TEST(Resize, CopiesAnImageOfTheSameSizeWithoutTheFilter)
{
    for (Size const size : testing::awkwardSizes) {
        auto const source = hostileImage<TypeParam>(size, 5);
        EXPECT_TRUE(testing::samePixels(*source, *resized(*source, size, nearest)));
    }
    // Widths at which x + 0.5 has few bits left.
    for (Size const size : {Size{65535, 1}, Size{1, 65537}, Size{262143, 1}}) {
        auto const source = randomImage<TypeParam>(size, 6);
        EXPECT_TRUE(testing::samePixels(*source, *resized(*source, size, nearest))) << size;
    }
}

TYPED_TEST(Resize, TakesTheFirstOfTwoPixelsWhoseBorderIsTheCentre)
{
    auto const source = randomImage<TypeParam>({4, 4}, 7);
    auto const expected = imageOf<TypeParam>({2, 2});
    for (int y : {0, 1})
        for (int x : {0, 1})
            expected->pixels()[y * 2 + x] = source->pixels()[2 * y * 4 + 2 * x];
    EXPECT_TRUE(testing::samePixels(*expected, *resized(*source, {2, 2}, nearest)));
}

TYPED_TEST(Resize, RepeatsEveryPixelTwiceAtTwiceTheSize)
{
    auto const source = randomImage<TypeParam>({4, 4}, 8);
    auto const expected = imageOf<TypeParam>({8, 8});
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            expected->pixels()[y * 8 + x] = source->pixels()[y / 2 * 4 + x / 2];
    EXPECT_TRUE(testing::samePixels(*expected, *resized(*source, {8, 8}, nearest)));
}

TYPED_TEST(Resize, MakesAPlainNewImage)
{
    auto const source = randomImage<TypeParam>({5, 3}, 9);
    source->setWrap(true, true);
    for (bool const filter : {nearest, bilinear}) {
        auto const result = resized(*source, {10, 4}, filter);
        EXPECT_EQ(result->referenceCount(), 1u);  // ours
        EXPECT_EQ(result->pixelType(), source->pixelType());
        EXPECT_EQ(result->width(), 10);
        EXPECT_EQ(result->height(), 4);
        EXPECT_EQ(result->invWidth(), 1.0f / 10.0f);
        EXPECT_EQ(result->invHeight(), 1.0f / 4.0f);
        EXPECT_FALSE(result->wrapHorizontal());
        EXPECT_FALSE(result->wrapVertical());
        EXPECT_TRUE(result->ownsPixels());
    }
}

TYPED_TEST(Resize, StoresSizesOfZeroAndLessAndWritesNoPixel)
{
    auto const source = randomImage<TypeParam>({5, 3}, 10);
    for (bool const filter : {nearest, bilinear})
        for (Size const size : {Size{0, 0}, Size{0, 5}, Size{5, 0}, Size{-1, 4}, Size{3, -7}, Size{-2, -3},
                                Size{std::numeric_limits<int>::min(), 1}, Size{65536, 65536}}) {
            auto const result = resized(*source, size, filter);
            ASSERT_NE(result.get(), nullptr);
            EXPECT_EQ(result->width(), size.width);
            EXPECT_EQ(result->height(), size.height);
            EXPECT_EQ(result->pixels() != nullptr, result->pixelCount() > 0) << size;
        }
}

TYPED_TEST(Resize, WritesNothingBeyondAResultWhosePixelCountWraps)
{
    // 65536 pixels for rows of 65537.
    auto const source = randomImage<TypeParam>({5, 3}, 11);
    for (bool const filter : {nearest, bilinear}) {
        auto const result = resized(*source, {65537, 65536}, filter);
        EXPECT_EQ(result->pixelCount(), 65536);
        EXPECT_EQ(result->width(), 65537);
    }
}

TYPED_TEST(Resize, AcceptsASourceWithoutPixels)
{
    auto const expectPlain = [](TypedImage<TypeParam> const& source) {
        for (bool const filter : {nearest, bilinear}) {
            auto const result = resized(source, {7, 2}, filter);
            ASSERT_NE(result.get(), nullptr);
            EXPECT_EQ(result->pixelCount(), 14);
            EXPECT_NE(result->pixels(), nullptr);
        }
    };
    for (Size const size : {Size{0, 0}, Size{0, 5}, Size{5, 0}, Size{-1, 4}, Size{65536, 65536}})
        expectPlain(*imageOf<TypeParam>(size));

    TypedImage<TypeParam> null;
    null.borrow(nullptr, 4, 4);
    expectPlain(null);
}

TYPED_TEST(Resize, StaysInsideASourceThatItsSizesDoNotDescribe)
{
    for (Size const size :
         {Size{-2, -3}, Size{-1, -1}, Size{65537, 65536}, Size{-65535, 65537 * 2}, Size{65537 * 2, -65535}}) {
        int const count = wrappedProduct(size.width, size.height);
        ASSERT_GT(count, 0) << size;
        testing::GuardedPixels<TypeParam> pixels(static_cast<std::size_t>(count));
        ImageRef<TypeParam> const source(new TypedImage<TypeParam>);
        source->borrow(pixels.data(), size.width, size.height);
        testing::randomise(*source, 12);
        for (Size const to : {Size{1, 1}, Size{5, 7}, Size{64, 3}})
            expectTheRulesWithAllFlags(*source, to);
    }
}

TEST(ResizeByte4, NeverExceedsAByteAndKeepsWhiteNearlyWhite)
{
    auto const white = imageOf<Byte4>({5, 4});
    for (Byte4& pixel : pixelsOf<Byte4>(*white))
        pixel = {255, 255, 255, 255};
    auto const result = resized(*white, {323, 217}, bilinear);

    unsigned char least = 255;
    for (Byte4 const& pixel : pixelsOf<Byte4>(*result))
        least = std::min({least, pixel.r, pixel.g, pixel.b, pixel.a});
    EXPECT_EQ(least, 253);
}

// Significands decide which products are ties. The words are those of results that are subnormal, normal, and
// near overflow; half of the columns, and of the rows, weigh the second pixel alone.
TEST(ResizeHalf4, WeighsEverySignificandByEveryOther)
{
    auto const along = imageOf<Half4>({2, 1});
    auto const down = imageOf<Half4>({1, 2});
    for (unsigned const first : {0x0000u, 0x0400u, 0x3C00u, 0x7800u})
        for (unsigned word = first; word < first + 0x400; word += 4) {
            auto const next = [word](unsigned i) {
                return half::fromBits(static_cast<std::uint16_t>(word + i));
            };
            Half4 const pixels[] = {{0.0f, 0.0f, 0.0f, 0.0f}, {next(0), next(1), next(2), next(0x8003)}};
            std::copy_n(pixels, 2, along->pixels());
            std::copy_n(pixels, 2, down->pixels());
            ASSERT_TRUE(resizesByTheRules(*along, {4096, 1}, bilinear));
            ASSERT_TRUE(resizesByTheRules(*down, {1, 512}, bilinear));
        }
}

TEST(ResizeHalf4, DropsTheSignOfZero)
{
    auto const source = imageOf<Half4>({9, 8});
    half const minusZero = half::fromBits(0x8000);
    std::ranges::fill(pixelsOf<Half4>(*source), Half4{minusZero, minusZero, minusZero, minusZero});
    for (Size const size : {Size{19, 17}, Size{4, 3}}) {
        auto const zeros = imageOf<Half4>(size);
        std::ranges::fill(pixelsOf<Half4>(*zeros), Half4{0.0f, 0.0f, 0.0f, 0.0f});
        EXPECT_TRUE(testing::samePixels(*zeros, *resized(*source, size, bilinear)));
    }
}

TEST(ResizeFloat, OfTheSameSizeIsTheMeanOfFourPixelsToTheLowerRight)
{
    auto const source = randomImage<float>({6, 5}, 13);
    auto const result = resized(*source, {6, 5}, bilinear);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x) {
            float const* const p = source->pixels() + y * 6 + x;
            // tx and ty fall short of 0.5 by (x + 0.5) * 1e-6: corners of at most 2 move by 6e-6 in each
            // direction.
            EXPECT_NEAR(result->pixels()[y * 6 + x], (p[0] + p[1] + p[6] + p[7]) / 4, 2.5e-5)
                << x << ", " << y;
        }
}

template <class... Pixels>
void expectNullForUnsupported(PixelList<Pixels...>)
{
    auto const expectNull = [](auto const& source) {
        if (ResamplePixels::contains(source->pixelType()))
            return;
        EXPECT_EQ(resize(*source, 2, 2, nearest), nullptr) << static_cast<int>(source->pixelType());
        EXPECT_EQ(resize(*source, 2, 2, bilinear), nullptr) << static_cast<int>(source->pixelType());
    };
    (expectNull(imageOf<Pixels>({3, 3})), ...);
}

TEST(Resize, IsNullForAnUnsupportedType)
{
    expectNullForUnsupported(AllPixels{});
}

static_assert(!ResamplePixels::contains(PixelTypeId::Byte) && !ResamplePixels::contains(PixelTypeId::UInt) &&
              !ResamplePixels::contains(PixelTypeId::Int4) &&
              !ResamplePixels::contains(PixelTypeId::Double3));

}  // namespace

}  // namespace koImage
