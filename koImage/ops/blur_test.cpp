#include "koImage/ops/blur.h"

#include "koImage/testing/blur_by_hand.h"
#include "koImage/testing/test_images.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace koImage {

using namespace testing;

namespace {

struct Wraps {
    bool x;
    bool y;
};

constexpr Wraps allWraps[] = {{false, false}, {false, true}, {true, false}, {true, true}};

std::ostream& operator<<(std::ostream& out, Wraps wraps)
{
    return out << "wraps " << wraps.x << wraps.y;
}

template <class Pixel>
ImageRef<Pixel> blurred(TypedImage<Pixel> const& source, int diameter, Wraps wraps)
{
    auto result = imageOf<Pixel>({0, 0});
    imageBlur(source, *result, diameter, wraps.x, wraps.y);
    return result;
}

/// Gives every NaN one pattern: their sign and payload are not defined.
template <class Pixel>
void makeNaNsEqual(TypedImage<Pixel>& image)
{
    using Channel = typename ChannelOf<Pixel>::type;
    for (Pixel& pixel : pixelsOf<Pixel>(image)) {
        if constexpr (!std::is_integral_v<Channel>) {
            auto* const channels = reinterpret_cast<Channel*>(&pixel);
            for (std::size_t i = 0; i < sizeof(Pixel) / sizeof(Channel); ++i) {
                if (std::isnan(static_cast<float>(channels[i])))
                    channels[i] = Channel(std::numeric_limits<float>::quiet_NaN());
            }
        }
    }
}

/// Blurs as it should, NaN's sign and payload apart.
template <class Pixel>
::testing::AssertionResult blursAsByHand(TypedImage<Pixel> const& source, int diameter, Wraps wraps)
{
    auto const expected = blurByHand(source, diameter, wraps.x, wraps.y);
    auto const actual = blurred(source, diameter, wraps);
    makeNaNsEqual(*expected);
    makeNaNsEqual(*actual);
    return samePixels(*expected, *actual) << ", diameter " << diameter << ", " << wraps;
}

/// Multiples of 1/8 below 16: eight times such a value is exact in every type.
template <class Pixel>
ImageRef<Pixel> exactImage(Size size, std::uint32_t seed)
{
    using Channel = typename ChannelOf<Pixel>::type;
    auto image = imageOf<Pixel>(size);
    fillImage(*image, seed, [](Random& random) {
        auto const value = static_cast<float>(random() % 128);
        return std::is_integral_v<Channel> ? Channel(value) : Channel(value / 8);
    });
    return image;
}

ImageRef<unsigned char> byteRow(std::vector<unsigned char> const& values)
{
    auto image = imageOf<unsigned char>({static_cast<int>(values.size()), 1});
    std::copy(values.begin(), values.end(), image->pixels());
    return image;
}

ImageRef<float> floatRow(std::vector<float> const& values)
{
    auto image = imageOf<float>({static_cast<int>(values.size()), 1});
    std::copy(values.begin(), values.end(), image->pixels());
    return image;
}

template <class T>
std::vector<T> valuesOf(TypedImage<T> const& image)
{
    auto const pixels = pixelsOf<T>(image);
    return {pixels.begin(), pixels.end()};
}

}  // namespace

template <class Pixel>
class ImageBlur : public ::testing::Test {
};
TYPED_TEST_SUITE(ImageBlur, TestTypes<BlurPixels>, ById);

TYPED_TEST(ImageBlur, LeavesExactValuesAloneAtDiameterZero)
{
    for (Size const size : awkwardSizes) {
        auto const source = exactImage<TypeParam>(size, 1);
        for (Wraps const wraps : allWraps)
            EXPECT_TRUE(samePixels(*source, *blurred(*source, 0, wraps))) << wraps;
    }
}

TYPED_TEST(ImageBlur, KeepsTheOrderOfEverySumAtEveryDiameter)
{
    // One direction is under test; in the other one, lines of two pixels wrap.
    auto const random = randomImage<TypeParam>({70, 2}, 1);
    for (int n = 1; n <= 70; ++n) {
        auto const rows = imageOf<TypeParam>({n, 2});
        auto const columns = imageOf<TypeParam>({2, n});
        std::copy_n(random->pixels(), 2 * n, rows->pixels());
        std::copy_n(random->pixels(), 2 * n, columns->pixels());
        for (int diameter = 0; diameter <= 300; ++diameter) {
            ASSERT_TRUE(blursAsByHand(*rows, diameter, {false, true}));
            ASSERT_TRUE(blursAsByHand(*columns, diameter, {true, false}));
            ASSERT_TRUE(blursAsByHand(*rows, diameter, {true, true}));
            ASSERT_TRUE(blursAsByHand(*columns, diameter, {true, true}));
        }
    }
}

TYPED_TEST(ImageBlur, IsTheSameAtEverySizeAndWrap)
{
    for (Size const size : awkwardSizes) {
        auto const source = randomImage<TypeParam>(size, 2);
        for (int const diameter : {0, 1, 2, 3, 5, 8, 16, 33, 100, 300}) {
            for (Wraps const wraps : allWraps)
                ASSERT_TRUE(blursAsByHand(*source, diameter, wraps)) << size;
        }
    }
}

TYPED_TEST(ImageBlur, IsTheSameOnImagesOfSeveralBundles)
{
    for (Size const size : {Size{211, 157}, Size{64, 128}, Size{1, 401}, Size{401, 1}, Size{307, 83}}) {
        auto const source = randomImage<TypeParam>(size, 3);
        for (int const diameter : {1, 21, 129}) {
            for (Wraps const wraps : allWraps)
                ASSERT_TRUE(blursAsByHand(*source, diameter, wraps)) << size;
        }
    }
}

TYPED_TEST(ImageBlur, IsTheSameOnHostileValues)
{
    for (Size const size : {Size{40, 37}, Size{97, 5}, Size{5, 97}, Size{1, 50}, Size{50, 1}}) {
        for (std::uint32_t seed = 0; seed < 20; ++seed) {
            // One hostile channel in so many, else a NaN soon covers every line.
            using Channel = typename ChannelOf<TypeParam>::type;
            auto const source = imageOf<TypeParam>(size);
            fillImage(*source, seed, [odds = 1u << (seed % 11)](Random& random) {
                return random() % odds == 0 ? hostileChannel<Channel>(random)
                                            : randomChannel<Channel>(random);
            });
            for (int const diameter : {0, 1, 5, 12}) {
                for (Wraps const wraps : allWraps)
                    ASSERT_TRUE(blursAsByHand(*source, diameter, wraps)) << size << ", seed " << seed;
            }
        }
    }
}

TYPED_TEST(ImageBlur, TakesAnyDiameter)
{
    // The half-widths a, b and c leave the 32-bit range from 66, 35 and 24 million on, and -2^31 + 2^8 k
    // becomes 0 like every negative one.
    constexpr int most = std::numeric_limits<int>::max();
    auto const source = randomImage<TypeParam>({23, 18}, 4);
    for (int const diameter : {-1, -2, -3, -300, -most, -most - 1, 1000, 65535, 24'402'000, 24'500'000,
                               35'300'000, 66'100'000, 1'000'000'000, most - 1, most}) {
        for (Wraps const wraps : allWraps)
            EXPECT_TRUE(blursAsByHand(*source, diameter, wraps));
    }
}

TYPED_TEST(ImageBlur, TakesNegativeDiametersAsZero)
{
    auto const source = randomImage<TypeParam>({23, 18}, 5);
    for (Wraps const wraps : allWraps) {
        auto const unblurred = blurred(*source, 0, wraps);
        for (int const diameter : {-1, -5, -100, std::numeric_limits<int>::min()})
            EXPECT_TRUE(samePixels(*unblurred, *blurred(*source, diameter, wraps))) << diameter;
    }
}

TYPED_TEST(ImageBlur, MayWriteOverItsOwnSource)
{
    for (Size const size : awkwardSizes) {
        for (Wraps const wraps : allWraps) {
            auto const image = randomImage<TypeParam>(size, 6);
            auto const expected = blurred(*image, 7, wraps);
            void const* const pixels = image->data();
            imageBlur(*image, *image, 7, wraps.x, wraps.y);
            EXPECT_TRUE(samePixels(*expected, *image)) << size << ", " << wraps;
            EXPECT_EQ(image->data(), pixels);
        }
    }
}

TYPED_TEST(ImageBlur, GivesABorrowingSourceAnArrayOfItsOwnWhenWritingOverIt)
{
    auto const lent = randomImage<TypeParam>({9, 6}, 7);
    auto const before = randomImage<TypeParam>({9, 6}, 7);
    TypedImage<TypeParam> image;
    image.borrow(lent->pixels(), 9, 6);
    imageBlur(image, image, 5, false, true);
    EXPECT_TRUE(image.ownsPixels());
    EXPECT_TRUE(samePixels(*before, *lent));
    EXPECT_TRUE(samePixels(*blurred(*before, 5, {false, true}), image));
}

TYPED_TEST(ImageBlur, ReadsPixelsAtAnyAddressOfTheirChannels)
{
    using Channel = typename ChannelOf<TypeParam>::type;
    auto const source = randomImage<TypeParam>({37, 19}, 8);
    std::vector<Channel> memory(1 + 37 * 19 * sizeof(TypeParam) / sizeof(Channel));
    std::memcpy(static_cast<void*>(memory.data() + 1), source->pixels(), 37 * 19 * sizeof(TypeParam));
    TypedImage<TypeParam> shifted;
    shifted.borrow(reinterpret_cast<TypeParam*>(memory.data() + 1), 37, 19);
    for (Wraps const wraps : allWraps)
        EXPECT_TRUE(samePixels(*blurred(*source, 9, wraps), *blurred(shifted, 9, wraps))) << wraps;
}

TYPED_TEST(ImageBlur, TouchesNothingWhereRowsDoNotFitTheArray)
{
    for (Size const size : hostileSizes) {
        auto const source = randomImage<TypeParam>(size, 9);
        auto const result = imageOf<TypeParam>({2, 2});
        imageBlur(*source, *result, 5, false, true);
        EXPECT_EQ(result->width(), size.width);
        EXPECT_EQ(result->height(), size.height);

        auto const before = randomImage<TypeParam>(size, 9);
        imageBlur(*source, *source, 5, true, false);
        EXPECT_TRUE(samePixels(*before, *source)) << size;
    }
}

TYPED_TEST(ImageBlur, ToleratesASourceWithoutPixels)
{
    TypedImage<TypeParam> source;
    source.borrow(nullptr, 3, 2);
    auto const result = randomImage<TypeParam>({2, 3}, 10);
    auto const before = randomImage<TypeParam>({3, 2}, 10);
    imageBlur(source, *result, 5, false, false);
    EXPECT_TRUE(samePixels(*before, *result)) << "resized, unwritten";
}

TYPED_TEST(ImageBlur, ResizesItsResult)
{
    auto const source = randomImage<TypeParam>({6, 5}, 11);
    auto const result = randomImage<TypeParam>({50, 40}, 12);
    imageBlur(*source, *result, 3, false, false);
    EXPECT_TRUE(samePixels(*blurByHand(*source, 3, false, false), *result));
}

namespace {

/// Blurs images of every type but those of the list.
template <class... Pixels>
void expectUnsupported(PixelList<Pixels...>)
{
    (
        [] {
            if constexpr (!BlurPixels::contains(pixelTypeIdOf<Pixels>)) {
                SCOPED_TRACE(static_cast<int>(pixelTypeIdOf<Pixels>));
                auto const source = randomImage<Pixels>({4, 3}, 1);
                auto const result = randomImage<Pixels>({6, 2}, 2);
                auto const expected = randomImage<Pixels>({3, 4}, 2);
                expected->resize(4, 3);
                imageBlur(*source, *result, 5, false, false);
                EXPECT_TRUE(samePixels(*expected, *result));
            }
        }(),
        ...);
}

}  // namespace

TEST(ImageBlurTypes, ResizesButDoesNotWriteAnUnsupportedType)
{
    expectUnsupported(AllPixels{});
}

TEST(ImageBlurTypes, DoesNothingWhenTheTypesDiffer)
{
    auto const source = randomImage<unsigned char>({4, 3}, 1);
    auto const result = randomImage<float>({6, 2}, 2);
    auto const expected = randomImage<float>({6, 2}, 2);
    imageBlur(*source, *result, 5, false, false);
    EXPECT_TRUE(samePixels(*expected, *result));
}

TEST(ImageBlurKernel, WeighsTwoFourTwoAtDiameterOne)
{
    auto const source = byteRow({0, 0, 80, 0, 0});
    EXPECT_THAT(valuesOf(*blurred(*source, 1, {false, false})), ::testing::ElementsAre(0, 20, 40, 20, 0));
}

TEST(ImageBlurKernel, DividesByTheSamplesThatRemainAtAnEnd)
{
    // The first pixel counts four times and its neighbour twice; the second one has its full eight.
    auto const source = byteRow({60, 0, 0, 0, 0});
    EXPECT_THAT(valuesOf(*blurred(*source, 1, {false, false})), ::testing::ElementsAre(40, 15, 0, 0, 0));
}

TEST(ImageBlurKernel, DoesNotSampleTheCentreWhenWrappingAtDiameterFive)
{
    auto const source = byteRow({0, 0, 0, 0, 80, 0, 0, 0, 0, 0});
    EXPECT_THAT(valuesOf(*blurred(*source, 5, {true, true})),
                ::testing::ElementsAre(0, 10, 10, 20, 0, 20, 10, 10, 0, 0));
}

TEST(ImageBlurKernel, WrapsAroundTheEndsHoweverShortTheLine)
{
    // Half-widths 1, 1, 2, 3 modulo 2: six samples of the neighbour, two of the pixel itself.
    auto const source = byteRow({80, 0});
    EXPECT_THAT(valuesOf(*blurred(*source, 5, {true, true})), ::testing::ElementsAre(20, 60));
}

TEST(ImageBlurKernel, ReadsAByteImageAsTheSumOfFourBoxes)
{
    // Sums of bytes are exact: a sum formed afresh at every pixel is the running sum.
    for (int const diameter : {1, 2, 7, 30, 90}) {
        auto const source = randomImage<unsigned char>({61, 1}, 13);
        std::vector<unsigned char> expected;
        for (std::int64_t o = 0; o < 61; ++o) {
            std::int64_t sum = 0;
            std::int64_t count = 0;
            for (std::int64_t const k : boxWidthsByHand(diameter)) {
                for (std::int64_t u = std::max<std::int64_t>(o - k, 0);
                     u <= std::min<std::int64_t>(o + k, 60); ++u, ++count)
                    sum += source->pixels()[u];
            }
            expected.push_back(
                static_cast<unsigned char>(static_cast<float>(sum) * (1.0f / static_cast<float>(count))));
        }
        EXPECT_EQ(valuesOf(*blurred(*source, diameter, {false, true})), expected) << diameter;
    }
}

TEST(ImageBlurKernel, HasTheHalfWidthsOfItsDiameter)
{
    EXPECT_EQ(boxWidthsByHand(0), (BoxWidths{0, 0, 0, 0}));
    EXPECT_EQ(boxWidthsByHand(1), (BoxWidths{0, 0, 1, 1}));
    EXPECT_EQ(boxWidthsByHand(3), (BoxWidths{1, 1, 1, 2}));
    EXPECT_EQ(boxWidthsByHand(5), (BoxWidths{1, 1, 2, 3}));
}

TEST(ImageBlurKernel, LowersConstantBytesOnlyWhereTheProductRoundsDown)
{
    for (int value = 0; value < 256; ++value) {
        auto const source = imageOf<unsigned char>({40, 1});
        std::fill_n(source->pixels(), 40, static_cast<unsigned char>(value));
        for (int const diameter : {2, 6, 23, 77}) {
            auto const result = blurred(*source, diameter, {false, true});
            BoxWidths const widths = boxWidthsByHand(diameter);
            for (std::int64_t o = 0; o < 40; ++o) {
                int count = 0;
                for (std::int64_t const k : widths)
                    count += static_cast<int>(std::min<std::int64_t>(o + k, 39) -
                                              std::max<std::int64_t>(o - k, 0) + 1);
                float const mean = static_cast<float>(value * count) * (1.0f / static_cast<float>(count));
                EXPECT_EQ(result->pixels()[o], value - (mean < static_cast<float>(value) ? 1 : 0));
            }
        }
    }
}

TEST(ImageBlurKernel, KeepsAConstantFloatImageUpToRounding)
{
    // Every sum of up to `terms` samples is off by less than terms / 2 roundings of itself, and it has been
    // through as many as were added and subtracted since the line began.
    auto const source = imageOf<float>({90, 50});
    std::fill_n(source->pixels(), 90 * 50, 0.7f);
    for (Wraps const wraps : allWraps) {
        for (int const diameter : {1, 9, 40, 200}) {
            float worst = 0;
            for (float const value : valuesOf(*blurred(*source, diameter, wraps)))
                worst = std::max(worst, std::abs(value - 0.7f));
            EXPECT_LT(worst, 0.7f * 0x1p-24f * 8 * (90 + 50)) << wraps << ", diameter " << diameter;
        }
    }
}

TEST(ImageBlurKernel, KeepsWhatTheRunningSumRoundedAway)
{
    // x = 1 + 2^-23: 3x rounds up, going up and coming down, and 2^-22 of it stays in the sum of the next
    // pixel. Nothing is wrong with that, and 0 is not the answer.
    auto const source = floatRow({1 + 0x1p-23f, 0, 0});
    EXPECT_THAT(valuesOf(*blurred(*source, 0, {false, true})),
                ::testing::ElementsAre(1 + 0x1p-23f, 0x1p-24f, 0x1p-24f));
}

TEST(ImageBlurKernel, StaysInfiniteOnceASumOfHalvesIs)
{
    // Diameter 1 sums up to 8 times a sample: 8192 makes 65536, and infinity is all that is left of the line.
    auto const source = imageOf<Half4>({7, 1});
    for (int x = 0; x < 7; ++x)
        source->pixels()[x] = {half(x == 3 ? 16384.0f : 0.0f), half(1.0f), half(x == 3 ? -16384.0f : 0.0f),
                               half(0.0f)};
    auto const result = blurred(*source, 1, {false, true});
    for (int x = 0; x < 7; ++x) {
        Half4 const pixel = result->pixels()[x];
        EXPECT_EQ(pixel.r.bits(), x < 2 ? 0u : x == 2 ? half(4096.0f).bits() : 0x7C00u) << x;
        EXPECT_EQ(pixel.b.bits(), x < 2 ? 0u : x == 2 ? half(-4096.0f).bits() : 0xFC00u) << x;
        EXPECT_EQ(pixel.g.bits(), half(1.0f).bits());
        EXPECT_EQ(pixel.a.bits(), 0u);
    }
}

TEST(ImageBlurKernel, RoundsEveryHalfAsItsConversionDoes)
{
    // Each half beside a random one: diameter 1 sums up to four of either.
    auto const source = hostileImage<Half4>({2, 16384}, 15);
    for (std::size_t i = 0; i < 16384; ++i) {
        auto const word = [i](std::size_t channel) {
            return half::fromBits(static_cast<std::uint16_t>(4 * i + channel));
        };
        source->pixels()[2 * i] = {word(0), word(1), word(2), word(3)};
    }
    EXPECT_TRUE(blursAsByHand(*source, 1, {false, true}));
    EXPECT_TRUE(blursAsByHand(*source, 1, {true, true}));
}

TEST(ImageBlurKernel, NeverMakesAHalfMinusZero)
{
    auto const source = imageOf<Half4>({20, 20});
    std::fill_n(source->pixels(), 400,
                Half4{half::fromBits(0x8000), half::fromBits(0x8000), half(0.0f), half(0.0f)});
    for (Wraps const wraps : allWraps) {
        auto const result = blurred(*source, 3, wraps);
        for (Half4 const pixel : pixelsOf<Half4>(*result))
            EXPECT_EQ(pixel.r.bits() | pixel.g.bits(), 0u);
    }
}

TEST(ImageBlurKernel, SumsBytesModuloTwoToTheThirtyTwo)
{
    // Four boxes over the whole line: their sums go beyond 2^31, then beyond 2^32.
    auto const source = imageOf<unsigned char>({1, 4'300'000});
    std::fill_n(source->pixels(), 4'300'000, static_cast<unsigned char>(255));
    for (int const diameter : {6'000'000, 20'000'000})
        EXPECT_TRUE(blursAsByHand(*source, diameter, {true, false}));
}

TEST(ImageBlurKernel, CommutesWithFlipsOfClampedBytes)
{
    auto const flipped = [](TypedImage<Byte4> const& image, bool horizontally) {
        int const w = image.width();
        int const h = image.height();
        auto result = imageOf<Byte4>({w, h});
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x)
                result->pixels()[y * w + x] =
                    horizontally ? image.pixels()[y * w + w - 1 - x] : image.pixels()[(h - 1 - y) * w + x];
        }
        return result;
    };
    auto const source = randomImage<Byte4>({53, 37}, 14);
    for (int const diameter : {1, 4, 11, 60, 200}) {
        auto const result = blurred(*source, diameter, {false, false});
        for (bool const horizontally : {false, true})
            EXPECT_TRUE(samePixels(*flipped(*result, horizontally),
                                   *blurred(*flipped(*source, horizontally), diameter, {false, false})));
    }
}

TEST(SuggestFilterDiamater, IsTheLargerRatioPlusOne)
{
    TypedImage<unsigned char> image;
    image.resize(1024, 512);
    EXPECT_EQ(suggestFilterDiamater(image, 256, 256), 5);
    EXPECT_EQ(suggestFilterDiamater(image, 1024, 64), 9);
    EXPECT_EQ(suggestFilterDiamater(image, 1024, 512), 2);
    image.resize(1000, 1000);
    EXPECT_EQ(suggestFilterDiamater(image, 300, 300), 4);
}

TEST(SuggestFilterDiamater, IsZeroWhenEitherSideGrows)
{
    TypedImage<unsigned char> image;
    image.resize(1024, 512);
    EXPECT_EQ(suggestFilterDiamater(image, 2048, 2048), 0);
    EXPECT_EQ(suggestFilterDiamater(image, 1025, 1), 0);
    EXPECT_EQ(suggestFilterDiamater(image, 1, 513), 0);
}

TEST(SuggestFilterDiamater, IsDefinedForSizesWithoutMeaning)
{
    TypedImage<unsigned char> image;
    image.resize(100, 100);
    EXPECT_EQ(suggestFilterDiamater(image, 0, 10), std::numeric_limits<int>::min());
    EXPECT_EQ(suggestFilterDiamater(image, -10, -10), -9);
    image.resize(0, 0);
    EXPECT_EQ(suggestFilterDiamater(image, 5, 5), 0);
}

}  // namespace koImage
