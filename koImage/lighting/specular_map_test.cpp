#include "koImage/lighting/specular_map.h"

#include "koImage/lighting/harmonics.h"
#include "koImage/lighting/reflection_coeffs.h"
#include "koImage/testing/lighting_by_hand.h"
#include "koImage/testing/loaded_rotations.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <vector>

namespace koImage {

using namespace testing;

namespace {

using View = std::array<double, 3>;

/// Coefficients around zero, so that some sums are negative.
ImageRef<HarmonicsPixel> randomMap(Size size, std::uint32_t seed)
{
    auto map = imageOf<HarmonicsPixel>(size);
    Random random(seed);
    for (HarmonicsPixel& pixel : pixelsOf<HarmonicsPixel>(*map))
        for (int k = 0; k < 121; ++k)
            pixel[k] = {randomChannel<double>(random) - 1, randomChannel<double>(random) - 1,
                        randomChannel<double>(random) - 1};
    return map;
}

ImageRef<Float3> pictureOf(TypedImage<HarmonicsPixel> const& map, View const& view, int order = 10,
                           double scale = 1)
{
    auto picture = imageOf<Float3>({0, 0});
    computeSpecularMap(map, view.data(), order, scale, *picture);
    return picture;
}

ImageRef<Float3> pictureByHand(TypedImage<HarmonicsPixel> const& map, View const& view, int order = 10,
                               double scale = 1)
{
    auto picture = imageOf<Float3>({0, 0});
    specularMapByHand(map, view, order, scale, *picture);
    return picture;
}

::testing::AssertionResult isBlack(TypedImage<Float3> const& picture)
{
    for (Float3 const& pixel : pixelsOf<Float3>(picture))
        if (pixel != Float3{0, 0, 0})
            return ::testing::AssertionFailure() << pixel.r << ' ' << pixel.g << ' ' << pixel.b;
    return ::testing::AssertionSuccess();
}

}  // namespace

TEST(ComputeSpecularMap, IsThatOfItsDefinitionToTheBit)
{
    auto const map = randomMap({200, 100}, 1);
    for (View const& view :
         {View{0, 0, 1}, View{0, 0, -1}, View{0.3, -0.4, 0.5}, View{-1, 1e-9, 0}, View{1, -1e-9, 0},
          View{0, -1, 1e-300}, View{-0.0, -0.0, 1}, View{2, 3, 7}, View{0.1, 0.2, -9}})
        EXPECT_TRUE(samePixels(*pictureByHand(*map, view), *pictureOf(*map, view)))
            << view[0] << ' ' << view[1] << ' ' << view[2];
    for (int const order : {0, 1, 7})
        EXPECT_TRUE(
            samePixels(*pictureByHand(*map, {0, 1, 1}, order, 0.7), *pictureOf(*map, {0, 1, 1}, order, 0.7)))
            << order;
}

// A map whose pixels are all black but for one coefficient shows the basis function itself.
TEST(ComputeSpecularMap, FromAboveUsesTheFirstSamplesAlone)
{
    auto const map = imageOf<HarmonicsPixel>({200, 100});
    for (int l = 0; l <= 10; ++l)
        for (int m = -l; m <= l; ++m)
            map->pixels()[l * 200 + m + l] = HarmonicsPixel();
    for (int l = 0; l <= 10; ++l)
        for (int m = -l; m <= l; ++m)
            map->pixels()[l * 200 + m + l].at(l, m) = {1, -1, 2};
    auto const picture = pictureOf(*map, {0, 0, 1});
    for (int l = 0; l <= 10; ++l)
        for (int m = -l; m <= l; ++m) {
            double const value = harmonics::Y(l, m, 0, 0);
            Float3 const& pixel = picture->pixels()[l * 200 + m + l];
            EXPECT_EQ(pixel.r, static_cast<float>(std::max(value, 0.0))) << l << ", " << m;
            EXPECT_EQ(pixel.g, static_cast<float>(std::max(-value, 0.0))) << l << ", " << m;
            EXPECT_EQ(pixel.b, static_cast<float>(std::max(2 * value, 0.0))) << l << ", " << m;
        }
}

TEST(ComputeSpecularMap, ClampsTheHeightOfAViewThatIsTooLong)
{
    auto const map = randomMap({200, 100}, 2);
    EXPECT_TRUE(samePixels(*pictureOf(*map, {0, 0, 1}), *pictureOf(*map, {0, 0, 5})));
    EXPECT_TRUE(samePixels(*pictureOf(*map, {0, 0, -1}), *pictureOf(*map, {0, 0, -1e300})));
    auto const picture = pictureOf(*map, {3, -4, 1.0000001});
    for (Float3 const& pixel : pixelsOf<Float3>(*picture))
        ASSERT_TRUE(std::isfinite(pixel.r) && std::isfinite(pixel.g) && std::isfinite(pixel.b));
}

TEST(ComputeSpecularMap, ClampsNegativeLightInEachChannel)
{
    auto const map = imageOf<HarmonicsPixel>({1, 1});
    map->pixels()[0] = HarmonicsPixel();
    map->pixels()[0][0] = {-1, 2, -3};
    Float3 const pixel = pictureOf(*map, {0, 0, 1})->pixels()[0];
    EXPECT_EQ(pixel.r, 0.0f);
    EXPECT_EQ(pixel.g, static_cast<float>(2 * harmonics::Y(0, 0, 0, 0)));
    EXPECT_EQ(pixel.b, 0.0f);
}

TEST(ComputeSpecularMap, OfScaleZeroOrNegativeOrderIsBlack)
{
    auto const map = randomMap({200, 100}, 3);
    EXPECT_TRUE(isBlack(*pictureOf(*map, {0, 0, 1}, 10, 0)));
    EXPECT_TRUE(isBlack(*pictureOf(*map, {0, 0, 1}, -1)));
    EXPECT_TRUE(isBlack(*pictureOf(*map, {0, 0, 1}, std::numeric_limits<int>::min())));
    EXPECT_FALSE(isBlack(*pictureOf(*map, {0, 0, 1})));
}

TEST(ComputeSpecularMap, TakesOrdersAboveTenAsTen)
{
    auto const map = randomMap({20, 10}, 4);
    EXPECT_TRUE(samePixels(*pictureOf(*map, {0, 1, 1}, 10), *pictureOf(*map, {0, 1, 1}, 11)));
    EXPECT_TRUE(samePixels(*pictureOf(*map, {0, 1, 1}, 10),
                           *pictureOf(*map, {0, 1, 1}, std::numeric_limits<int>::max())));
}

TEST(ComputeSpecularMap, HasTheSizeOfTheReflectionMap)
{
    for (Size const size : awkwardSizes) {
        auto const map = randomMap(size, 5);
        auto const picture = pictureOf(*map, {1, 0, 1});
        EXPECT_EQ(picture->width(), size.width);
        EXPECT_EQ(picture->height(), size.height);
        if (size.width > 1 && size.height > 1) {
            EXPECT_TRUE(samePixels(*pictureByHand(*map, {1, 0, 1}), *picture)) << size;
        }
    }
    for (Size const size : hostileSizes) {
        auto const picture = pictureOf(*randomMap(size, 6), {1, 0, 1});
        EXPECT_EQ(picture->width(), size.width);
        EXPECT_EQ(picture->height(), size.height);
    }
}

TEST(ComputeSpecularMap, OfAMapLargerThanTheGridStaysOnTheGrid)
{
    auto const map = randomMap({230, 130}, 7);
    for (View const& view : {View{-1, -1e-9, -1}, View{1, -1e-9, -0.99}}) {
        auto const picture = pictureOf(*map, view);
        for (Float3 const& pixel : pixelsOf<Float3>(*picture))
            ASSERT_TRUE(std::isfinite(pixel.r) && std::isfinite(pixel.g) && std::isfinite(pixel.b));
    }
}

TEST(ComputeSpecularMap, OfAMapWithoutPixelsWritesNone)
{
    TypedImage<HarmonicsPixel> map;
    map.borrow(nullptr, 3, 2);
    auto const picture = pictureOf(map, {0, 0, 1});
    EXPECT_EQ(picture->width(), 3);
    EXPECT_EQ(picture->height(), 2);
}

TEST(ComputeSpecularMap, KeepsWhatIsNotANumber)
{
    auto const map = randomMap({7, 3}, 8);
    map->pixels()[4][17].g = std::nan("");
    map->pixels()[5][0].b = std::numeric_limits<double>::infinity();
    auto const picture = pictureOf(*map, {0, 1, 1});
    EXPECT_TRUE(std::isnan(picture->pixels()[4].g));
    EXPECT_TRUE(std::isfinite(picture->pixels()[4].r));
    EXPECT_EQ(picture->pixels()[5].b, std::numeric_limits<float>::infinity());
}

// The whole way from light and reflectance to the picture. Seen along the surface's own axis, only output
// order 0 shows, and column 0 of the matrices is sqrt(4 pi / (2 l + 1)) Y_lm(theta, 0): the picture is a
// convolution of the light.
TEST(SpecularMap, AlongTheSurfaceNormalIsAConvolutionOfTheLight)
{
    LoadedRotations const rotations;
    Random random(9);
    SphericalHarmonics<Double3> light(20);
    for (int i = 0; i < light.size(); ++i)
        light[i] = {randomChannel<double>(random) - 1, randomChannel<double>(random), 0.1};
    koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
    for (std::int64_t i = 0; i < brdf.size(); ++i)
        brdf.data()[i] = {randomChannel<double>(random) - 1, randomChannel<double>(random), 0.3};

    auto const map = imageOf<HarmonicsPixel>({0, 0});
    computeReflectionCoeffs(light, brdf, 20, 10, *map, nullptr);
    auto const picture = pictureOf(*map, {0, 0, 1});

    for (int t = 0; t < 100; ++t)
        for (int x = 0; x < 200; ++x) {
            double const phi = x * std::numbers::pi / 100;
            Channels expected;
            for (int l = 0; l <= 20; ++l) {
                Channels reflectance;
                for (int p = 0; p <= 10; ++p)
                    reflectance.add(std::sqrt((2 * p + 1) / (4 * std::numbers::pi)), brdf(l, p, 0));
                Channels seen;
                for (int m = -l; m <= l; ++m) {
                    double const polar =
                        std::sph_legendre(static_cast<unsigned>(l), static_cast<unsigned>(std::abs(m)),
                                          t * std::numbers::pi / 100);
                    double const y = m == 0  ? polar
                                     : m > 0 ? polar * std::numbers::sqrt2 * std::cos(m * phi)
                                             : polar * std::numbers::sqrt2 * std::sin(-m * phi);
                    seen.add(y, light.at(l, m));
                }
                double const weight =
                    std::sqrt(2 * std::numbers::pi) * std::sqrt(4 * std::numbers::pi / (2 * l + 1));
                for (std::size_t c = 0; c < 3; ++c)
                    expected.c[c] += weight * reflectance.c[c] * seen.c[c];
            }
            Float3 const& pixel = picture->pixels()[t * 200 + x];
            double const values[] = {pixel.r, pixel.g, pixel.b};
            for (std::size_t c = 0; c < 3; ++c) {
                double const right = std::max(expected.c[c], 0.0);
                ASSERT_NEAR(values[c], right, 1e-6 * std::max(1.0, right)) << t << ", " << x << ", " << c;
            }
        }
}

}  // namespace koImage
