#include "koImage/lighting/irradiance.h"

#include "koImage/envmap/cross_map.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/sphere_map.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <numbers>
#include <vector>

namespace koImage {

using namespace testing;
using std::numbers::pi;

namespace {

using MapRef = ko::Reference<EnvironmentMap>;
using Coefficients = std::array<Float3, 9>;

MapRef mapOf(Image* image)
{
    return newEnvironmentMap(*image);
}

Coefficients coefficientsOf(EnvironmentMap const& map)
{
    IrradianceAlg alg;
    alg.accumulate(map);
    Coefficients coefficients;
    alg.getCoefficients(coefficients.data());
    return coefficients;
}

Irradiance irradianceOf(EnvironmentMap const& map)
{
    IrradianceAlg alg;
    alg.accumulate(map);
    Irradiance irradiance;
    alg.getIrradiance(irradiance);
    return irradiance;
}

/// An image whose pixel is light(direction) where the shape has directions, and NaN elsewhere.
template <class Light>
ImageRef<Float3> lightImage(Size size, Light const& light)
{
    auto image = imageOf<Float3>(size);
    MapRef const map = mapOf(image.get());
    Float3* out = image->pixels();
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
            koLinear::VectorFlt direction;
            float const u = (static_cast<float>(x) + 0.5f) * image->invWidth();
            float const v = (static_cast<float>(y) + 0.5f) * image->invHeight();
            float const nan = std::numeric_limits<float>::quiet_NaN();
            *out++ = map->coordToDir(u, v, direction) ? light(direction) : Float3{nan, nan, nan};
        }
    return image;
}

ImageRef<Float3> constantImage(Size size, Float3 colour)
{
    return lightImage(size, [&](auto) { return colour; });
}

// The definition, pixel by pixel and coefficient by coefficient.

std::array<float, 3> weighted(Float3 const& p, float weight)
{
    return {p.r * weight * 0.31830987f, p.g * weight * 0.31830987f, p.b * weight * 0.31830987f};
}

std::array<float, 3> weighted(Half4 const& p, float weight)
{
    auto const channel = [weight](half h) {
        return float(half(float(half(float(h) * weight)) * 0.31830987f));
    };
    return {channel(p.r), channel(p.g), channel(p.b)};
}

template <class Pixel>
Coefficients coefficientsByHand(EnvironmentMap const& map)
{
    auto const& image = *map.image();
    auto const pixels = pixelsOf<Pixel>(image);
    float sums[9][3] = {};
    std::size_t i = 0;
    for (int py = 0; py < image.height() && i < pixels.size(); ++py)
        for (int px = 0; px < image.width() && i < pixels.size(); ++px, ++i) {
            koLinear::VectorFlt d;
            float weight = 0.0f;
            if (!map.coordToDir((static_cast<float>(px) + 0.5f) * image.invWidth(),
                                (static_cast<float>(py) + 0.5f) * image.invHeight(), d, weight, true))
                continue;
            std::array<float, 3> const colour = weighted(pixels[i], weight);
            for (std::size_t k = 0; k < 3; ++k) {
                float const c = colour[k];
                sums[0][k] += 0.282095f * c;
                sums[1][k] += -0.488603f * c * d.y;
                sums[2][k] += 0.488603f * c * d.z;
                sums[3][k] += -0.488603f * c * d.x;
                sums[4][k] += 1.092548f * c * d.x * d.y;
                sums[5][k] += -1.092548f * c * d.y * d.z;
                sums[6][k] += 0.315392f * c * (3.0f * d.z * d.z - 1.0f);
                sums[7][k] += -1.092548f * c * d.x * d.z;
                sums[8][k] += 0.546274f * c * (d.x * d.x - d.y * d.y);
            }
        }
    Coefficients coefficients;
    for (std::size_t l = 0; l < 9; ++l)
        coefficients[l] = {sums[l][0], sums[l][1], sums[l][2]};
    return coefficients;
}

/// Equal to the bit, all NaNs alike.
::testing::AssertionResult sameCoefficients(Coefficients const& expected, Coefficients const& actual)
{
    for (std::size_t i = 0; i < 27; ++i) {
        float const e = (&expected[i / 3].r)[i % 3];
        float const a = (&actual[i / 3].r)[i % 3];
        bool const same = std::isnan(e) ? std::isnan(a)
                                        : std::bit_cast<std::uint32_t>(e) == std::bit_cast<std::uint32_t>(a);
        if (!same)
            return ::testing::AssertionFailure()
                   << "coefficient " << i / 3 << ", channel " << i % 3 << ": " << e << " and " << a;
    }
    return ::testing::AssertionSuccess();
}

/// What a white surface with that normal sends back, from every direction of the map's sphere: the integral
/// itself. `light` takes unit vectors.
double radianceByHand(std::function<double(koLinear::VectorFlt)> const& light, koLinear::VectorFlt normal)
{
    constexpr int rows = 400;
    double sum = 0.0;
    for (int row = 0; row < rows; ++row) {
        double const theta = (row + 0.5) * pi / rows;
        for (int column = 0; column < 2 * rows; ++column) {
            double const phi = (column + 0.5) * pi / rows;
            double const x = std::sin(theta) * std::cos(phi);
            double const y = std::sin(theta) * std::sin(phi);
            double const z = std::cos(theta);
            double const cosine = x * normal.x + y * normal.y + z * normal.z;
            if (cosine > 0.0)
                sum += cosine * std::sin(theta) *
                       light({static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)});
        }
    }
    return sum * (pi / rows) * (pi / rows) / pi;
}

std::vector<koLinear::VectorFlt> someNormals()
{
    std::vector<koLinear::VectorFlt> normals = {{1, 0, 0},  {-1, 0, 0}, {0, 1, 0},
                                                {0, -1, 0}, {0, 0, 1},  {0, 0, -1}};
    Random random(5);
    for (int i = 0; i < 20; ++i) {
        koLinear::VectorFlt n(randomChannel<float>(random) - 1.0f, randomChannel<float>(random) - 1.0f,
                              randomChannel<float>(random) - 1.0f);
        n.normalize();
        normals.push_back(n);
    }
    return normals;
}

Float3 white(double value)
{
    auto const v = static_cast<float>(value);
    return {v, v, v};
}

template <class Pixel>
class IrradianceAlgTyped : public ::testing::Test {
};
TYPED_TEST_SUITE(IrradianceAlgTyped, TestTypes<IrradiancePixels>, ById);

// Lat-long maps, discs and crosses; with rows longer than what is computed at once.
constexpr Size mapSizes[] = {{2, 1},     {4, 2},     {6, 3},     {1, 1}, {2, 2},   {5, 5},     {33, 33},
                             {600, 300}, {514, 257}, {200, 200}, {3, 4}, {12, 16}, {300, 400}, {512, 256}};

}  // namespace

TYPED_TEST(IrradianceAlgTyped, EqualsItsDefinitionToTheBit)
{
    for (Size const size : mapSizes) {
        SCOPED_TRACE(::testing::Message() << size);
        auto const image = randomImage<TypeParam>(size, 1);
        MapRef const map = mapOf(image.get());
        EXPECT_TRUE(sameCoefficients(coefficientsByHand<TypeParam>(*map), coefficientsOf(*map)));
    }
}

TYPED_TEST(IrradianceAlgTyped, EqualsItsDefinitionOnHostileValues)
{
    // One broken pixel makes all sums NaN, so most maps hold a few of them at most.
    for (std::uint32_t seed = 0; seed < 60; ++seed) {
        Size const size = mapSizes[seed % std::size(mapSizes)];
        SCOPED_TRACE(::testing::Message() << size << ", seed " << seed);
        auto const image = randomImage<TypeParam>(size, seed);
        auto const pixels = pixelsOf<TypeParam>(*image);
        auto* const channels = reinterpret_cast<typename ChannelOf<TypeParam>::type*>(pixels.data());
        Random random(seed);
        for (std::uint32_t i = 0; i < seed % 4; ++i)
            channels[random() % (pixels.size_bytes() / sizeof *channels)] =
                hostileChannel<typename ChannelOf<TypeParam>::type>(random);
        MapRef const map = mapOf(image.get());
        EXPECT_TRUE(sameCoefficients(coefficientsByHand<TypeParam>(*map), coefficientsOf(*map)));
    }
    auto const image = hostileImage<TypeParam>({64, 32}, 1);
    MapRef const map = mapOf(image.get());
    EXPECT_TRUE(sameCoefficients(coefficientsByHand<TypeParam>(*map), coefficientsOf(*map)));
}

TYPED_TEST(IrradianceAlgTyped, ReadsNothingBeyondTheArray)
{
    // Maps whose image has another shape, rows that its array does not hold, or no pixels.
    auto const check = [](EnvironmentMap& map, Image* image) {
        map.setImage(image);
        EXPECT_TRUE(sameCoefficients(coefficientsByHand<TypeParam>(map), coefficientsOf(map)));
    };
    for (auto const& sizes : {std::span<Size const>(awkwardSizes), std::span<Size const>(hostileSizes)})
        for (Size const size : sizes) {
            SCOPED_TRACE(::testing::Message() << size);
            ImageRef<TypeParam> image = imageOf<TypeParam>(size);
            randomise(*image, 3);
            MapRef latLong(new LatLongMap(8, 4));
            MapRef sphere(new SphereMap(4));
            MapRef cross(new CrossMap(4, true));
            check(*latLong, image.get());
            check(*sphere, image.get());
            check(*cross, image.get());
        }
}

TEST(IrradianceAlg, TakesAnImageOfPositiveSizeWithoutPixels)
{
    ImageRef<Float3> image(new TypedImage<Float3>);
    image->borrow(nullptr, 64, 32);
    MapRef const map = mapOf(image.get());
    EXPECT_TRUE(sameCoefficients(Coefficients{}, coefficientsOf(*map)));
}

TEST(IrradianceAlg, LeavesItsSumsForEveryOtherPixelType)
{
    auto const image = constantImage({8, 4}, {1.0f, 2.0f, 3.0f});
    MapRef const map = mapOf(image.get());
    IrradianceAlg alg;
    alg.accumulate(*map);
    Coefficients before;
    alg.getCoefficients(before.data());

    for (int id = 0; id < 10; ++id) {
        auto const type = static_cast<PixelTypeId>(id);
        if (IrradiancePixels::contains(type))
            continue;
        dispatchPixel(type, AllPixels{}, [&](auto tag) {
            auto const other = imageOf<typename decltype(tag)::type>({8, 4});
            MapRef const otherMap = mapOf(other.get());
            alg.accumulate(*otherMap);
        });
        Coefficients after;
        alg.getCoefficients(after.data());
        EXPECT_TRUE(sameCoefficients(before, after)) << "type " << id;
    }
    MapRef const noImage(new LatLongMap(8, 4));
    alg.accumulate(*noImage);
    Coefficients after;
    alg.getCoefficients(after.data());
    EXPECT_TRUE(sameCoefficients(before, after));
}

TEST(IrradianceAlg, StartsAtZero)
{
    IrradianceAlg const alg;
    Coefficients coefficients;
    coefficients.fill({1.0f, 1.0f, 1.0f});
    alg.getCoefficients(coefficients.data());
    EXPECT_TRUE(sameCoefficients(Coefficients{}, coefficients));

    Irradiance irradiance;
    irradiance.red(1, 2) = 5.0;
    alg.getIrradiance(irradiance);
    EXPECT_EQ(irradiance, Irradiance());
}

TEST(IrradianceAlg, AddsUpSeveralMaps)
{
    auto const image = constantImage({2, 1}, {1.0f, 2.0f, 0.5f});
    MapRef const map = mapOf(image.get());
    IrradianceAlg alg;
    alg.accumulate(*map);
    Coefficients once;
    alg.getCoefficients(once.data());
    alg.accumulate(*map);
    Coefficients twice;
    alg.getCoefficients(twice.data());
    EXPECT_GT(once[0].r, 0.0f);
    for (std::size_t i = 0; i < 9; ++i) {
        EXPECT_NEAR(twice[i].r, 2.0f * once[i].r, 1e-6f);
        EXPECT_NEAR(twice[i].g, 2.0f * once[i].g, 1e-6f);
        EXPECT_NEAR(twice[i].b, 2.0f * once[i].b, 1e-6f);
    }
}

TEST(IrradianceAlg, GivesConstantLightToTheFirstCoefficientAlone)
{
    auto const image = constantImage({200, 100}, {1.0f, 2.0f, 0.25f});
    MapRef const map = mapOf(image.get());
    Coefficients const c = coefficientsOf(*map);
    double const expected = 4.0 * 0.282095;
    EXPECT_NEAR(c[0].r, expected, 2e-4);
    EXPECT_NEAR(c[0].g, 2 * expected, 4e-4);
    EXPECT_NEAR(c[0].b, 0.25 * expected, 5e-5);
    for (std::size_t i = 1; i < 9; ++i)
        EXPECT_NEAR(c[i].g, 0.0, 4e-4) << i;

    Irradiance const irradiance = irradianceOf(*map);
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            EXPECT_NEAR(irradiance.red(row, column), row + column == 6 ? 1.0 : 0.0, 2e-4);
}

TEST(IrradianceAlg, GivesOneToConstantLightOnLatLongMapsAndDiscs)
{
    for (Size const size : {Size{200, 100}, Size{64, 64}, Size{128, 128}, Size{501, 501}}) {
        auto const image = constantImage(size, {1.0f, 1.0f, 1.0f});
        MapRef const map = mapOf(image.get());
        Irradiance const irradiance = irradianceOf(*map);
        for (koLinear::VectorFlt const normal : someNormals())
            EXPECT_NEAR(diffuseRadiance(irradiance, normal).r, 1.0, 2e-4) << size;
    }
}

TEST(IrradianceAlg, CountsLightFromXAndYNegatively)
{
    auto const fromX = lightImage({64, 32}, [](auto d) { return white(d.x > 0.9f ? 1.0 : 0.0); });
    auto const fromY = lightImage({64, 32}, [](auto d) { return white(d.y > 0.9f ? 1.0 : 0.0); });
    auto const fromZ = lightImage({64, 32}, [](auto d) { return white(d.z > 0.9f ? 1.0 : 0.0); });
    MapRef const x = mapOf(fromX.get());
    MapRef const y = mapOf(fromY.get());
    MapRef const z = mapOf(fromZ.get());
    EXPECT_LT(coefficientsOf(*x)[3].r, -0.01f);
    EXPECT_LT(coefficientsOf(*y)[1].r, -0.01f);
    EXPECT_GT(coefficientsOf(*z)[2].r, 0.01f);
}

TEST(IrradianceAlg, IgnoresPixelsOutsideDiscAndCross)
{
    // Those pixels hold NaN: a single one would spoil every sum.
    for (Size const size : {Size{64, 64}, Size{48, 64}}) {
        auto const image = constantImage(size, {1.0f, 1.0f, 1.0f});
        MapRef const map = mapOf(image.get());
        Coefficients const c = coefficientsOf(*map);
        EXPECT_TRUE(std::isfinite(c[0].r));
        EXPECT_GT(c[0].r, 0.5f);
    }
}

// The test light of R. Green, Spherical Harmonic Lighting: The Gritty Details, 2003, and its coefficients.
// Those printed there are from random samples and lie within 0.001.
TEST(IrradianceAlg, GivesThePublishedCoefficientsOfTheTwoLobeLight)
{
    auto const light = [](koLinear::VectorFlt d) {
        double const t = std::acos(double{d.z});
        double const p = std::atan2(double{d.y}, double{d.x});
        return white(std::max(0.0, 5.0 * std::cos(t) - 4.0) +
                     std::max(0.0, -4.0 * std::sin(t - pi) * std::cos(p - 2.5) - 3.0));
    };
    double const published[9] = {0.39880, -0.21052, 0.28653, 0.28182, -0.31499, 0.0, 0.13138, 0.0, 0.09318};
    auto const image = lightImage({800, 400}, light);
    MapRef const map = mapOf(image.get());
    Coefficients const c = coefficientsOf(*map);
    for (std::size_t i = 0; i < 9; ++i)
        EXPECT_NEAR(c[i].r * pi, published[i], 1e-4) << i;
}

TEST(IrradianceAlg, PlacesTheCoefficientsInTheMatrices)
{
    auto const image = randomImage<Float3>({32, 16}, 9);
    MapRef const map = mapOf(image.get());
    Coefficients const sums = coefficientsOf(*map);
    IrradianceAlg alg;
    alg.accumulate(*map);
    koLinear::ProjMatrix red(7.0);
    koLinear::ProjMatrix green(7.0);
    koLinear::ProjMatrix blue(7.0);
    alg.getMatrices(red, green, blue);
    Irradiance irradiance;
    alg.getIrradiance(irradiance);
    EXPECT_EQ(irradiance.red, red);
    EXPECT_EQ(irradiance.green, green);
    EXPECT_EQ(irradiance.blue, blue);

    auto const check = [&](koLinear::ProjMatrix const& m, float Float3::*channel) {
        auto const L = [&](std::size_t i) { return sums[i].*channel; };
        EXPECT_EQ(m(0, 0), double{0.429043f * L(8)});
        EXPECT_EQ(m(1, 1), double{-(0.429043f * L(8))});
        EXPECT_EQ(m(0, 1), double{0.429043f * L(4)});
        EXPECT_EQ(m(0, 2), double{0.429043f * L(7)});
        EXPECT_EQ(m(1, 2), double{0.429043f * L(5)});
        EXPECT_EQ(m(2, 2), double{0.743125f * L(6)});
        EXPECT_EQ(m(0, 3), double{0.511664f * L(3)});
        EXPECT_EQ(m(1, 3), double{0.511664f * L(1)});
        EXPECT_EQ(m(2, 3), double{0.511664f * L(2)});
        float const fromOrder2 = L(6) * -0.247708f;
        float const fromOrder0 = L(0) * 0.886227f;
        EXPECT_EQ(m(3, 3), double{fromOrder2 + fromOrder0});
        for (int row = 0; row < 4; ++row)
            for (int column = 0; column < row; ++column)
                EXPECT_EQ(m(row, column), m(column, row));
    };
    check(red, &Float3::r);
    check(green, &Float3::g);
    check(blue, &Float3::b);
}

TEST(Irradiance, ClearsToZero)
{
    Irradiance irradiance;
    EXPECT_EQ(irradiance.red, koLinear::ProjMatrix(0.0));
    EXPECT_EQ(irradiance.green, koLinear::ProjMatrix(0.0));
    EXPECT_EQ(irradiance.blue, koLinear::ProjMatrix(0.0));
    irradiance.red(0, 0) = irradiance.green(1, 2) = irradiance.blue(3, 3) = 1.0;
    EXPECT_NE(irradiance, Irradiance());
    irradiance.clear();
    EXPECT_EQ(irradiance, Irradiance());
}

TEST(DiffuseRadiance, IsExactForLightOfDegreeTwo)
{
    auto const light = [](koLinear::VectorFlt d) {
        return 1.0 + 0.3 * d.x - 0.2 * d.y + 0.4 * d.z + 0.3 * d.x * d.y - 0.5 * d.y * d.z + 0.2 * d.x * d.z +
               0.25 * (d.x * d.x - d.y * d.y) + 0.2 * (3.0 * d.z * d.z - 1.0);
    };
    auto const image = lightImage({200, 100}, [&](auto d) { return white(light(d)); });
    MapRef const map = mapOf(image.get());
    Irradiance const irradiance = irradianceOf(*map);
    for (koLinear::VectorFlt const normal : someNormals())
        EXPECT_NEAR(diffuseRadiance(irradiance, normal).r, radianceByHand(light, normal), 2e-4);
}

// The series of the clamped cosine has the factors 1, 2/3, 1/4 in the degrees 0, 1, 2 (times pi). The sum
// over the orders of a degree is (2 l + 1) / (4 pi) P_l(cosine between light and normal).
TEST(DiffuseRadiance, OfOneBrightPixelIsTheSeriesOfNineTerms)
{
    for (int const pixel : {0, 57, 1000, 12345, 19999}) {
        auto const image = constantImage({200, 100}, {0.0f, 0.0f, 0.0f});
        image->pixels()[pixel] = {1000.0f, 500.0f, 250.0f};
        MapRef const map = mapOf(image.get());
        koLinear::VectorFlt light;
        float weight = 0.0f;
        ASSERT_TRUE(map->coordToDir((static_cast<float>(pixel % 200) + 0.5f) / 200.0f,
                                    (static_cast<float>(pixel / 200) + 0.5f) / 100.0f, light, weight, true));
        Irradiance const irradiance = irradianceOf(*map);
        for (koLinear::VectorFlt const n : someNormals()) {
            double const c = light.x * n.x + light.y * n.y + light.z * n.z;
            double const series =
                (1.0 + 2.0 / 3.0 * 3.0 * c + 0.25 * 5.0 * 0.5 * (3.0 * c * c - 1.0)) / (4.0 * pi);
            Float3 const radiance = diffuseRadiance(irradiance, n);
            double const scale = 1000.0 * weight;
            EXPECT_NEAR(radiance.r, scale * series, 2e-6 * scale);
            EXPECT_NEAR(radiance.g, scale * series / 2, 1e-6 * scale);
            EXPECT_NEAR(radiance.b, scale * series / 4, 5e-7 * scale);
        }
    }
}

TEST(DiffuseRadiance, IsBrightestTowardsTheLightAndThePlainFormOppositeInXAndY)
{
    koLinear::VectorFlt const sun(0.6f, -0.48f, 0.64f);
    auto const image = lightImage({200, 100}, [&](koLinear::VectorFlt d) {
        return white(d.x * sun.x + d.y * sun.y + d.z * sun.z > 0.99f ? 100.0 : 0.0);
    });
    MapRef const map = mapOf(image.get());
    Irradiance const irradiance = irradianceOf(*map);
    float const towards = diffuseRadiance(irradiance, sun).r;
    for (koLinear::VectorFlt const normal : someNormals())
        EXPECT_LT(diffuseRadiance(irradiance, normal).r, towards);

    double const n[4] = {-double{sun.x}, -double{sun.y}, double{sun.z}, 1.0};
    double plain = 0.0;
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            plain += n[row] * irradiance.red(row, column) * n[column];
    EXPECT_NEAR(plain, towards, 1e-6 * towards);
}

TEST(ComputeDiffuseMap, GivesEveryNormalOfEveryShape)
{
    auto const probe = randomImage<Float3>({32, 16}, 4);
    MapRef const probeMap = mapOf(probe.get());
    Irradiance const irradiance = irradianceOf(*probeMap);
    for (Size const size : {Size{16, 8}, Size{2, 1}, Size{9, 9}, Size{12, 16}}) {
        SCOPED_TRACE(::testing::Message() << size);
        auto const image = randomImage<Float3>(size, 8);
        MapRef const map = mapOf(image.get());
        computeDiffuseMap(irradiance, *map);
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x) {
                koLinear::VectorFlt normal;
                bool const inside =
                    map->coordToDir((static_cast<float>(x) + 0.5f) * image->invWidth(),
                                    (static_cast<float>(y) + 0.5f) * image->invHeight(), normal);
                Float3 const expected = inside ? diffuseRadiance(irradiance, normal) : Float3{};
                EXPECT_EQ(expected, image->pixels()[y * size.width + x]) << x << ", " << y;
            }
    }
}

TEST(ComputeDiffuseMap, LeavesOtherTypesAndMapsWithoutPixels)
{
    Irradiance irradiance;
    irradiance.red(3, 3) = 1.0;
    auto const floats = randomImage<Float4>({8, 4}, 1);
    auto const same = randomImage<Float4>({8, 4}, 1);
    MapRef map = mapOf(floats.get());
    computeDiffuseMap(irradiance, *map);
    EXPECT_TRUE(samePixels(*same, *floats));

    MapRef const noImage(new LatLongMap(8, 4));
    computeDiffuseMap(irradiance, *noImage);
    ImageRef<Float3> noPixels(new TypedImage<Float3>);
    noPixels->borrow(nullptr, 8, 4);
    map = mapOf(noPixels.get());
    computeDiffuseMap(irradiance, *map);
    EXPECT_EQ(noPixels->pixels(), nullptr);
}

}  // namespace koImage
