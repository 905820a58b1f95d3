#include "koImage/envmap/sample_bilinear.h"

#include "koImage/testing/bilinear_reference.h"
#include "koImage/testing/guarded_pixels.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace koImage {

namespace {

using testing::hostileImage;
using testing::imageOf;
using testing::ImageRef;
using testing::Random;
using testing::randomImage;
using testing::Sample;
using testing::Size;

template <class Pixel>
auto sampleChannels(Sample<Pixel> const& sample)
{
    return testing::channelsOf<typename testing::SampleTypes<Pixel>::Channel>(sample);
}

template <class Pixel>
Sample<Pixel> sampleAt(TypedImage<Pixel> const& image, float u, float v)
{
    Sample<Pixel> sample;
    sampleBilinear(image, u, v, sample);
    return sample;
}

template <class Pixel>
::testing::AssertionResult matchesReference(TypedImage<Pixel> const& image, float u, float v)
{
    auto expected = sampleChannels<Pixel>(testing::referenceSample(image, u, v));
    auto actual = sampleChannels<Pixel>(sampleAt(image, u, v));
    testing::makeNansPlain(expected.data(), expected.size());
    testing::makeNansPlain(actual.data(), actual.size());
    if (std::memcmp(expected.data(), actual.data(), sizeof(expected)) == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "(" << u << ", " << v << ") of " << Size{image.width(), image.height()} << ", wrap "
           << image.wrapHorizontal() << image.wrapVertical() << ": expected "
           << testing::bytesText(expected.data(), sizeof(expected)) << "got "
           << testing::bytesText(actual.data(), sizeof(actual));
}

// Inside, at and beyond the edges, and every coordinate that is no place at all.
std::vector<float> coordinates(std::uint32_t seed)
{
    float const infinity = std::numeric_limits<float>::infinity();
    std::vector<float> values = {0.0f,   -0.0f, 0.5f,     1.0f,      0.99999994f,   1.0000001f,
                                 -0.1f,  -1.0f, 1.5f,     2.0f,      1e-30f,        -1e-30f,
                                 1e9f,   -1e9f, 2.1e9f,   -2.1e9f,   3e38f,         -3e38f,
                                 1e-45f, 7.25f, infinity, -infinity, std::nanf(""), -std::nanf("1")};
    Random random(seed);
    for (int i = 0; i < 24; ++i)
        values.push_back(static_cast<float>(random() % 4096) / 1024.0f - 1.5f);
    return values;
}

template <class Pixel>
void expectReferenceEverywhere(TypedImage<Pixel>& image, std::uint32_t seed)
{
    for (bool const horizontal : {false, true})
        for (bool const vertical : {false, true}) {
            image.setWrap(horizontal, vertical);
            for (float const u : coordinates(seed))
                for (float const v : coordinates(seed + 1))
                    ASSERT_TRUE(matchesReference(image, u, v));
        }
}

template <class Pixel>
class SampleBilinear : public ::testing::Test {
};
TYPED_TEST_SUITE(SampleBilinear, testing::TestTypes<ResamplePixels>, testing::ById);

TYPED_TEST(SampleBilinear, IsTheBlendOfFourPixelsInsideAndOutsideTheImage)
{
    for (Size const size : testing::awkwardSizes) {
        auto const image = randomImage<TypeParam>(size, 1);
        if (image->pixelCount() > 0)
            expectReferenceEverywhere(*image, 2);
    }
}

TYPED_TEST(SampleBilinear, KeepsInfinitiesNansAndTinyValues)
{
    for (Size const size : {Size{1, 1}, Size{3, 5}, Size{17, 31}})
        expectReferenceEverywhere(*hostileImage<TypeParam>(size, 3), 4);
}

TYPED_TEST(SampleBilinear, ReadsNothingOutsideThePixels)
{
    for (Size const size : {Size{1, 1}, Size{2, 3}, Size{5, 4}})
        for (bool const atStart : {false, true}) {
            auto const count = static_cast<std::size_t>(size.width * size.height);
            testing::GuardedPixels<TypeParam> pixels(count, atStart);
            ImageRef<TypeParam> const image(new TypedImage<TypeParam>);
            image->borrow(pixels.data(), size.width, size.height);
            testing::randomise(*image, 5);
            expectReferenceEverywhere(*image, 6);
        }
}

// Sizes that do not say how many pixels there are: two negative ones, one negative one of a product beyond
// 32 bits, and rows longer than the array.
TYPED_TEST(SampleBilinear, StaysInsideAnArrayThatItsSizesDoNotDescribe)
{
    for (Size const size :
         {Size{-2, -3}, Size{-1, -1}, Size{65537, 65536}, Size{-65535, 65537 * 2}, Size{65537 * 2, -65535}}) {
        ImageRef<TypeParam> const image(new TypedImage<TypeParam>);
        int const count = wrappedProduct(size.width, size.height);
        ASSERT_GT(count, 0) << size;
        testing::GuardedPixels<TypeParam> pixels(static_cast<std::size_t>(count));
        image->borrow(pixels.data(), size.width, size.height);
        testing::randomise(*image, 7);
        expectReferenceEverywhere(*image, 8);
    }
}

TYPED_TEST(SampleBilinear, LeavesTheSampleAloneWithoutPixels)
{
    auto const untouched = sampleChannels<TypeParam>(sampleAt(*randomImage<TypeParam>({1, 1}, 9), 0, 0));
    auto const expectUntouched = [&](TypedImage<TypeParam> const& image) {
        auto sample = std::bit_cast<Sample<TypeParam>>(untouched);
        sampleBilinear(image, 0.5f, 0.5f, sample);
        EXPECT_EQ(sampleChannels<TypeParam>(sample), untouched);
    };
    for (Size const size : {Size{0, 0}, Size{0, 5}, Size{5, 0}, Size{-1, 4}, Size{65536, 65536}})
        expectUntouched(*imageOf<TypeParam>(size));

    TypedImage<TypeParam> null;
    null.borrow(nullptr, 4, 4);
    expectUntouched(null);
}

// How far a sample may leave the range of its corners. Every step of a blend is monotone in the pixels, so
// the sample lies between those of two constant images, of the smallest and of the largest corner. Of a
// constant, relative to it, with u = 2^-24:
//   float    1 - t is off by u / 2 at most, the products by u in sum, their sum by u: 2.5 u a blend, two
//   blends Half4    with u = 2^-11: the weights are off by 0.75 u in sum, then as above: 2.75 u along the
//   row, 2 u
//            between the rows, whose weights stay floats
//   Byte4    a blend of equal bytes loses 0 or 1 by truncation (checked for every weight): 2 for both
struct Allowance {
    double below;
    double above;
};

template <class Pixel>
Allowance allowanceFor(double value)
{
    if (std::is_same_v<Pixel, Byte4>)
        return {2.0, 0.0};
    double const relative = std::is_same_v<Pixel, Half4> ? 4.75 * 0x1p-11 : 5.0 * 0x1p-24;
    return {relative * value, relative * value};
}

float randomCoordinate(Random& random)
{
    return static_cast<float>(random() >> 8) * 0x1p-24f;
}

TYPED_TEST(SampleBilinear, LiesWithinItsFourCorners)
{
    using Channel = typename testing::ChannelOf<TypeParam>::type;
    Random random(10);
    for (bool const wrap : {false, true}) {
        auto const image = randomImage<TypeParam>({13, 11}, 11);
        image->setWrap(wrap, wrap);
        for (int i = 0; i < 20000; ++i) {
            float const u = randomCoordinate(random);
            float const v = randomCoordinate(random);
            auto const x = testing::referenceAxis(u, 13, wrap);
            auto const y = testing::referenceAxis(v, 11, wrap);
            auto const sample = sampleChannels<TypeParam>(sampleAt(*image, u, v));

            for (std::size_t c = 0; c < sample.size(); ++c) {
                auto const corner = [&](long long column, long long row) {
                    return double(testing::channelsOf<Channel>(image->pixels()[row * 13 + column])[c]);
                };
                auto const [low, high] = std::minmax(
                    {corner(x.x0, y.x0), corner(x.x1, y.x0), corner(x.x0, y.x1), corner(x.x1, y.x1)});
                ASSERT_GE(double(sample[c]), low - allowanceFor<TypeParam>(low).below) << u << ", " << v;
                ASSERT_LE(double(sample[c]), high + allowanceFor<TypeParam>(high).above) << u << ", " << v;
            }
        }
    }
}

TYPED_TEST(SampleBilinear, OfAConstantStraysByItsRoundingsAlone)
{
    using Channel = typename testing::ChannelOf<TypeParam>::type;
    Random random(12);
    double worst = 0;  // as a fraction of the allowance
    for (std::uint32_t seed = 0; seed < 200; ++seed) {
        auto const image = imageOf<TypeParam>({3, 3});
        TypeParam const constant = randomImage<TypeParam>({1, 1}, seed)->pixels()[0];
        std::fill_n(image->pixels(), 9, constant);
        for (int i = 0; i < 1000; ++i) {
            auto const sample = sampleChannels<TypeParam>(
                sampleAt(*image, randomCoordinate(random), randomCoordinate(random)));
            for (std::size_t c = 0; c < sample.size(); ++c) {
                double const value = testing::channelsOf<Channel>(constant)[c];
                double const strayed = double(sample[c]) - value;
                auto const allowance = allowanceFor<TypeParam>(value);
                ASSERT_GE(strayed, -allowance.below);
                ASSERT_LE(strayed, allowance.above);
                if (value > 0)
                    worst = std::max(worst, -strayed / allowance.below);
            }
        }
    }
    EXPECT_GE(worst, 0.25) << "the allowance says too little";
}

// Near u = 1 the near column is the last one. Which of the other columns the sample depends on tells the far
// one.
TYPED_TEST(SampleBilinear, BlendsTheLastColumnWithItselfOrWrapsToTheFirst)
{
    auto const image = randomImage<TypeParam>({4, 1}, 13);
    for (int column = 0; column < 3; ++column)
        for (bool const wrap : {false, true}) {
            auto const changed = randomImage<TypeParam>({4, 1}, 13);
            changed->pixels()[column] = randomImage<TypeParam>({1, 1}, 14)->pixels()[0];
            image->setWrap(wrap, false);
            changed->setWrap(wrap, false);

            bool const same = sampleChannels<TypeParam>(sampleAt(*image, 0.95f, 0.5f)) ==
                              sampleChannels<TypeParam>(sampleAt(*changed, 0.95f, 0.5f));
            EXPECT_EQ(same, !(wrap && column == 0)) << column << ", wrap " << wrap;
        }
}

// A 3 x 2 image of 0 1 2 / 10 20 30.
ImageRef<float> smallImage()
{
    auto const image = imageOf<float>({3, 2});
    float const values[] = {0, 1, 2, 10, 20, 30};
    std::copy(std::begin(values), std::end(values), image->pixels());
    return image;
}

TEST(SampleBilinearFloat, HasNoHalfPixelShift)
{
    // The centre of the first pixel is the mean of four, but for the scale that keeps 1 inside.
    EXPECT_NEAR(sampleAt(*smallImage(), 0.5f / 3, 0.25f), (0 + 1 + 10 + 20) / 4.0, 1e-4);
    EXPECT_EQ(sampleAt(*smallImage(), 0.0f, 0.0f), 0.0f);
}

TEST(SampleBilinearFloat, NeverAdjustsTheNearColumn)
{
    // Just beyond column 3 of row 0, the plain index is that of the first pixel of row 1. The far column is
    // clamped to 2: 10 and 2 are blended, and 30 twice in the row below, whose near pixel is the clamped one.
    float const u = std::nextafter(1.0f + 4e-6f, 2.0f);
    auto const x = testing::referenceAxis(u, 3, false);
    ASSERT_EQ(x.x0, 3);
    ASSERT_EQ(x.x1, 2);
    EXPECT_EQ(sampleAt(*smallImage(), u, 0.0f), (1 - x.t) * 10.0f + x.t * 2.0f);
}

TEST(SampleBilinearFloat, TruncatesTowardZeroSoThatTheNearColumnOfASmallNegativeCoordinateIsTheFirst)
{
    // -0.5 of a pixel: x0 = 0, tx = -0.5, an extrapolation.
    EXPECT_NEAR(sampleAt(*smallImage(), -0.5f / 3, 0.0f), 1.5 * 0 - 0.5 * 1, 1e-5);
}

TEST(SampleBilinearByte4, LosesAtMostTwoAndNeverGains)
{
    auto const image = imageOf<Byte4>({3, 3});
    for (Byte4& pixel : pixelsOf<Byte4>(*image))
        pixel = {255, 255, 255, 255};

    std::uint32_t least = 255;
    for (int i = 0; i <= 600; ++i)
        for (int k = 0; k <= 600; ++k)
            for (std::uint32_t const channel :
                 sampleAt(*image, static_cast<float>(i) / 600.0f, static_cast<float>(k) / 600.0f)) {
                ASSERT_LE(channel, 255u);
                least = std::min(least, channel);
            }
    EXPECT_EQ(least, 253u);
}

TEST(SampleBilinearByte4, IsZeroWhereTheCoordinateIsNotANumber)
{
    // Every product is the 32-bit minimum, and two of them add to 0 modulo 2^32.
    auto const image = randomImage<Byte4>({5, 5}, 14);
    EXPECT_EQ(sampleAt(*image, std::nanf(""), 0.5f), (Byte4Sample{0, 0, 0, 0}));
}

TEST(SampleBilinearByte4, GivesNegativeSumsAsTheirPatterns)
{
    auto const image = imageOf<Byte4>({2, 1});
    image->pixels()[0] = {0, 0, 0, 0};
    image->pixels()[1] = {100, 200, 2, 0};
    // Half a pixel before the first: 1.5 times 0, minus 0.5 times the second, truncated toward zero.
    EXPECT_EQ(sampleAt(*image, -0.25000026f, 0.0f), (Byte4Sample{0u - 50u, 0u - 100u, 0u - 1u, 0}));
}

}  // namespace

}  // namespace koImage
