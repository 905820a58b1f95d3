#include "koImage/tone/tone_map.h"

#include "koImage/testing/test_images.h"

#include <cmath>
#include <limits>
#include <vector>

namespace koImage::testing {

namespace {

ToneMap mapOf(ToneControls const& controls)
{
    ToneMap map;
    map.calculate(controls);
    return map;
}

/// Controls around their defaults, and those that give infinite, zero, negative and undefined powers.
std::vector<ToneControls> everyControl()
{
    float const infinity = std::numeric_limits<float>::infinity();
    float const nan = std::numeric_limits<float>::quiet_NaN();
    return {{},
            {.gamma = 2.2f},
            {.gamma = 0.45f, .exposure = -3.3f},
            {.gamma = 2.2f, .exposure = 1.5f, .saturation = 1.3f},
            {.gamma = 1.8f, .saturation = 0.5f},
            {.saturation = 0.0f},
            {.gamma = 0.5f, .saturation = 2.0f},
            {.gamma = 0.2f, .exposure = 20.0f, .saturation = 9.0f},
            {.gamma = 1e-3f, .exposure = -0.5f},
            {.gamma = 0.0f},
            {.gamma = -2.0f, .saturation = -1.0f},
            {.gamma = infinity, .saturation = infinity},
            {.gamma = nan, .saturation = nan},
            {.exposure = 200.0f},
            {.exposure = -200.0f}};
}

// The definition, step by step.
float powerByHand(float base, float exponent, Float3 const& /*kind*/)
{
    return powf(base, exponent);
}

float powerByHand(float base, float exponent, Float4 const& /*kind*/)
{
    return static_cast<float>(pow(double{base}, double{exponent}));
}

template <class Pixel>
Pixel mappedByHand(Pixel pixel, ToneControls const& controls)
{
    constexpr std::size_t channels = sizeof(Pixel) / sizeof(float);
    std::array<float, channels> c;
    std::memcpy(c.data(), &pixel, sizeof(Pixel));

    float const scale = exp2f(controls.exposure);
    float const invGamma = 1.0f / controls.gamma;
    for (float& value : c) {
        value = value * scale;
        value = value < 0.0f ? 0.0f : value;
        value = powerByHand(value, invGamma, pixel);
    }
    float luminance = 0.2125f * c[0] + 0.7154f * c[1];
    luminance = luminance + 0.0721f * c[2];
    if (luminance > 1e-6f) {
        float const k = 1.0f / luminance;
        for (float& value : c)
            value = powerByHand(value * k, controls.saturation, pixel) * luminance;
    }
    std::memcpy(static_cast<void*>(&pixel), c.data(), sizeof(Pixel));
    return pixel;
}

/// Bits, where every NaN counts alike.
template <class Pixel>
::testing::AssertionResult sameChannels(Pixel const& expected, Pixel const& actual)
{
    constexpr std::size_t channels = sizeof(Pixel) / sizeof(float);
    std::array<float, channels> e;
    std::array<float, channels> a;
    std::memcpy(e.data(), &expected, sizeof(Pixel));
    std::memcpy(a.data(), &actual, sizeof(Pixel));
    for (std::size_t i = 0; i < channels; ++i) {
        bool const bothNan = std::isnan(e[i]) && std::isnan(a[i]);
        if (!bothNan && std::bit_cast<std::uint32_t>(e[i]) != std::bit_cast<std::uint32_t>(a[i]))
            return ::testing::AssertionFailure()
                   << "channel " << i << ": expected " << std::hexfloat << e[i] << ", got " << a[i];
    }
    return ::testing::AssertionSuccess();
}

using TonePixels = PixelList<Float3, Float4>;

template <class Pixel>
class ToneMapApply : public ::testing::Test {
};
TYPED_TEST_SUITE(ToneMapApply, TestTypes<TonePixels>, ById);

}  // namespace

TYPED_TEST(ToneMapApply, MapsOnePixelStepByStep)
{
    for (auto const make : {randomImage<TypeParam>, hostileImage<TypeParam>}) {
        auto const image = make({61, 7}, 1);
        for (ToneControls const& controls : everyControl()) {
            ToneMap const map = mapOf(controls);
            for (TypeParam const& pixel : pixelsOf<TypeParam>(*image)) {
                TypeParam mapped = pixel;
                map.apply(mapped);
                ASSERT_TRUE(sameChannels(mappedByHand(pixel, controls), mapped))
                    << controls.gamma << ' ' << controls.exposure << ' ' << controls.saturation;
            }
        }
    }
}

TYPED_TEST(ToneMapApply, MapsARunAsItMapsItsPixels)
{
    for (auto const make : {randomImage<TypeParam>, hostileImage<TypeParam>}) {
        auto const image = make({129, 257}, 2);
        for (std::size_t const count : {0u, 1u, 63u, 64u, 65u, 33153u}) {
            for (ToneControls const& controls : everyControl()) {
                ToneMap const map = mapOf(controls);
                auto const pixels = pixelsOf<TypeParam>(*image).first(count);
                std::vector<TypeParam> run(pixels.begin(), pixels.end());
                map.apply(std::span(run));
                for (std::size_t i = 0; i < count; ++i) {
                    TypeParam mapped = pixels[i];
                    map.apply(mapped);
                    ASSERT_TRUE(sameChannels(mapped, run[i]))
                        << "pixel " << i << " of " << count << ": " << controls.gamma << ' '
                        << controls.exposure << ' ' << controls.saturation;
                }
            }
        }
    }
}

// Every 61st float that is not negative, so all binades and the whole range of a mantissa.
TYPED_TEST(ToneMapApply, TakesThePowersOfTheLibraryOverAllFloats)
{
    std::vector<TypeParam> run;
    constexpr std::size_t channels = sizeof(TypeParam) / sizeof(float);
    for (std::uint64_t bits = 0; bits + 61 * channels <= 0x7F800001; bits += 61 * channels) {
        std::array<float, channels> values;
        for (std::size_t c = 0; c < channels; ++c)
            values[c] = std::bit_cast<float>(static_cast<std::uint32_t>(bits + 61 * c));
        std::memcpy(static_cast<void*>(&run.emplace_back()), values.data(), sizeof(TypeParam));
        if (run.size() < 4096)
            continue;

        ToneControls const controls{.gamma = 2.2f};
        std::vector<TypeParam> const before = run;
        mapOf(controls).apply(std::span(run));
        for (std::size_t i = 0; i < run.size(); ++i)
            ASSERT_TRUE(sameChannels(mappedByHand(before[i], controls), run[i])) << std::hex << bits;
        run.clear();
        bits += 61 * 4096 * channels * 6;
    }
}

TYPED_TEST(ToneMapApply, MakesEverythingBlackUntilTheControlsAreCalculated)
{
    auto const image = randomImage<TypeParam>({16, 16}, 3);
    ToneMap().apply(pixelsOf<TypeParam>(*image));
    for (TypeParam const& pixel : pixelsOf<TypeParam>(*image))
        EXPECT_TRUE(sameChannels(TypeParam{}, pixel));
}

TYPED_TEST(ToneMapApply, IsTheIdentityByDefaultUpToRoundingAndClampsNegativesToZero)
{
    auto const image = randomImage<TypeParam>({61, 7}, 4);
    ToneMap const map = mapOf({});
    for (TypeParam const& pixel : pixelsOf<TypeParam>(*image)) {
        TypeParam mapped = pixel;
        mapped.g = -mapped.g;
        map.apply(mapped);
        EXPECT_NEAR(mapped.r, pixel.r, 1e-6f * pixel.r);
        EXPECT_EQ(mapped.g, 0.0f);
        EXPECT_NEAR(mapped.b, pixel.b, 1e-6f * pixel.b);
    }
}

TEST(ToneMap, HoldsItsDefaultsUntilTheControlsAreCalculated)
{
    ToneMap map;
    EXPECT_EQ(map.invGamma(), 1.0f);
    EXPECT_EQ(map.exposureScale(), 0.0f);
    EXPECT_EQ(map.saturation(), 1.0f);

    map.calculate({.gamma = 4.0f, .exposure = 3.0f, .saturation = 0.75f});
    EXPECT_EQ(map.invGamma(), 0.25f);
    EXPECT_EQ(map.exposureScale(), 8.0f);
    EXPECT_EQ(map.saturation(), 0.75f);

    map.calculate({.gamma = 0.0f});
    EXPECT_EQ(map.invGamma(), std::numeric_limits<float>::infinity());
}

TEST(ToneMap, DoublesByOneStopAndDoesNotClampAboveOne)
{
    Float3 pixel{0.25f, 0.5f, 1.0f};
    mapOf({.exposure = 1.0f}).apply(pixel);
    EXPECT_NEAR(pixel.r, 0.5f, 1e-6f);
    EXPECT_NEAR(pixel.g, 1.0f, 1e-6f);
    EXPECT_NEAR(pixel.b, 2.0f, 2e-6f);
}

TEST(ToneMap, LeavesGreysGreyUnderAGamma)
{
    Float3 pixel{0.5f, 0.5f, 0.5f};
    mapOf({.gamma = 2.2f}).apply(pixel);
    float const expected = powf(0.5f, 1.0f / 2.2f);
    EXPECT_NEAR(pixel.r, expected, 2e-7f);
    EXPECT_EQ(pixel.g, pixel.r);
    EXPECT_EQ(pixel.b, pixel.r);
}

TEST(ToneMap, MakesGreysOfTheLuminanceAtSaturationZeroAlphaIncluded)
{
    Float4 pixel{0.9f, 0.1f, 0.4f, 0.7f};
    float const luminance = (0.2125f * 0.9f + 0.7154f * 0.1f) + 0.0721f * 0.4f;
    mapOf({.saturation = 0.0f}).apply(pixel);
    EXPECT_EQ(pixel, (Float4{luminance, luminance, luminance, luminance}));
}

TEST(ToneMap, LeavesPixelsWithoutLuminanceAsTheGammaMadeThem)
{
    Float3 black{-1.0f, 0.0f, 0.0f};
    mapOf({.saturation = 0.5f}).apply(black);
    EXPECT_EQ(black, (Float3{0.0f, 0.0f, 0.0f}));

    // 1e-6 in every channel gives a luminance of the tolerance, which is not above it.
    Float3 dark{1e-6f, 1e-6f, 1e-6f};
    ASSERT_LE((0.2125f * 1e-6f + 0.7154f * 1e-6f) + 0.0721f * 1e-6f, 1e-6f);
    mapOf({.saturation = 0.5f}).apply(dark);
    EXPECT_EQ(dark, (Float3{1e-6f, 1e-6f, 1e-6f}));
}

TEST(ToneMap, MapsAlphaLikeAColour)
{
    Float4 pixel{0.5f, 0.5f, 0.5f, 0.25f};
    mapOf({.exposure = 1.0f}).apply(pixel);
    EXPECT_NEAR(pixel.a, 0.5f, 1e-6f);

    Float4 gammaOnly{1.0f, 1.0f, 1.0f, 0.25f};
    mapOf({.gamma = 2.0f}).apply(gammaOnly);
    EXPECT_NEAR(gammaOnly.a, 0.5f, 1e-6f);
}

TEST(ToneMap, LeavesImagesUnchanged)
{
    auto const image = hostileImage<Float3>({17, 31}, 5);
    auto const before = hostileImage<Float3>({17, 31}, 5);
    mapOf({.gamma = 2.2f, .exposure = 2.0f}).apply(*image);
    EXPECT_TRUE(samePixels(*before, *image));
}

}  // namespace koImage::testing
