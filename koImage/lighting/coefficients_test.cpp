#include "koImage/lighting/coefficients.h"

#include "koImage/lighting/checkpoint.h"
#include "koImage/lighting/harmonics.h"
#include "koImage/testing/lighting_by_hand.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <string>
#include <vector>

namespace koImage {

using namespace testing;

namespace {

/// The same doubles to the bit, any NaN like any other.
bool sameNumber(double a, double b)
{
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) ||
           (std::isnan(a) && std::isnan(b));
}

::testing::AssertionResult sameColour(Double3 const& expected, Double3 const& actual)
{
    if (sameNumber(expected.r, actual.r) && sameNumber(expected.g, actual.g) &&
        sameNumber(expected.b, actual.b))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << std::hexfloat << "expected " << expected.r << ' ' << expected.g << ' ' << expected.b << ", got "
           << actual.r << ' ' << actual.g << ' ' << actual.b;
}

SphericalHarmonics<Double3> lightOf(TypedImage<Float3> const& probe)
{
    SphericalHarmonics<Double3> light(3);
    computeLightCoeffs(probe, light);
    return light;
}

/// A 200 x 100 probe of grey radiance(theta, phi).
ImageRef<Float3> probeOf(std::function<double(double, double)> const& radiance)
{
    auto probe = imageOf<Float3>({200, 100});
    for (int r = 0; r < 100; ++r)
        for (int x = 0; x < 200; ++x) {
            auto const value =
                static_cast<float>(radiance(r * std::numbers::pi / 100, x * std::numbers::pi / 100));
            probe->pixels()[r * 200 + x] = {value, value, value};
        }
    return probe;
}

koUtil::ArrayN<3, Double3> newSamples()
{
    return koUtil::ArrayN<3, Double3>(100, 100, 200);
}

constexpr Double3 untouched = {-7, -8, -9};

koUtil::ArrayN<3, Double3> newCoeffs()
{
    koUtil::ArrayN<3, Double3> coeffs(21, 21, 21);
    coeffs.fill(untouched);
    return coeffs;
}

void expectSameCoeffs(koUtil::ArrayN<3, Double3> const& expected, koUtil::ArrayN<3, Double3> const& actual)
{
    for (int l = 0; l <= 20; ++l)
        for (int p = 0; p <= 20; ++p)
            for (int q = 0; q <= 20; ++q)
                ASSERT_TRUE(sameColour(expected(l, p, q), actual(l, p, q))) << l << ' ' << p << ' ' << q;
}

std::vector<std::string> labels;

void remember(char const* label)
{
    labels.emplace_back(label);
}

struct Orders {
    int light;
    int brdf;
    std::string printed;
};

/// computeOrder with what it prints.
Orders ordersOf(koUtil::ArrayN<3, Double3> const& brdf, Double3 const& total)
{
    Orders orders{-1, -1, ""};
    ::testing::internal::CaptureStdout();
    computeOrder(SphericalHarmonics<Double3>(20), brdf, total, orders.light, orders.brdf);
    std::fflush(stdout);
    orders.printed = ::testing::internal::GetCapturedStdout();
    return orders;
}

}  // namespace

// --- Light ---

class ComputeLightCoeffs : public ::testing::TestWithParam<Size> {};

TEST_P(ComputeLightCoeffs, AreThoseOfTheirDefinitionToTheBit)
{
    auto const probe = randomImage<Float3>(GetParam(), 1);
    auto const expected = lightByHand(*probe);
    auto const actual = lightOf(*probe);
    ASSERT_EQ(actual.order(), 20);
    for (int i = 0; i < actual.size(); ++i)
        ASSERT_TRUE(sameColour(expected[i], actual[i])) << i;
}

INSTANTIATE_TEST_SUITE_P(Widths, ComputeLightCoeffs,
                         ::testing::Values(Size{200, 100}, Size{1, 100}, Size{63, 100}, Size{64, 100},
                                           Size{65, 100}, Size{41, 7}, Size{3, 1}));

TEST(LightCoeffs, KeepWhatIsNotANumberApartByChannel)
{
    auto const probe = randomImage<Float3>({200, 100}, 3);
    probe->pixels()[777].g = std::numeric_limits<float>::infinity();
    probe->pixels()[4321].b = std::numeric_limits<float>::quiet_NaN();
    auto const expected = lightByHand(*probe);
    auto const actual = lightOf(*probe);
    for (int i = 0; i < actual.size(); ++i)
        ASSERT_TRUE(sameColour(expected[i], actual[i])) << i;
    EXPECT_TRUE(std::isfinite(actual[5].r));
    EXPECT_TRUE(std::isnan(actual[5].b));
}

TEST(LightCoeffs, OfAProbeWithoutPixelsAreZero)
{
    auto const expectZeros = [](TypedImage<Float3> const& probe) {
        auto const light = lightOf(probe);
        ASSERT_EQ(light.order(), 20);
        for (int i = 0; i < light.size(); ++i)
            ASSERT_TRUE(sameColour({0, 0, 0}, light[i])) << i;
    };
    for (Size const size : {Size{0, 100}, Size{200, 0}, Size{-2, -3}, Size{-200, 100}, Size{65536, 65536}})
        expectZeros(*imageOf<Float3>(size));

    TypedImage<Float3> withoutPixels;
    withoutPixels.borrow(nullptr, 200, 100);
    expectZeros(withoutPixels);
}

TEST(LightCoeffs, LeaveOutTheRowsBeyondTheGrid)
{
    auto const tall = randomImage<Float3>({20, 137}, 5);
    auto const cut = imageOf<Float3>({20, 100});
    std::copy_n(tall->pixels(), 2000, cut->pixels());
    auto const expected = lightOf(*cut);
    auto const actual = lightOf(*tall);
    for (int i = 0; i < actual.size(); ++i)
        ASSERT_TRUE(sameColour(expected[i], actual[i])) << i;
}

// 65537 x 65536 has 65536 pixels: not a whole row.
TEST(LightCoeffs, ReadNoRowThatIsNotThere)
{
    std::vector<Float3> const pixels(65536, Float3{1, 1, 1});
    TypedImage<Float3> probe;
    probe.borrow(const_cast<Float3*>(pixels.data()), 65537, 65536);
    EXPECT_TRUE(sameColour({0, 0, 0}, lightOf(probe)[0]));
}

TEST(LightCoeffs, OfAHarmonicAreOneAndZeros)
{
    for (auto const& [l, m] : {std::pair{0, 0}, {1, -1}, {1, 0}, {1, 1}, {7, -3}, {12, 12}, {20, 0}}) {
        auto const light = lightOf(*probeOf([l = l, m = m](double theta, double phi) {
            double const polar =
                std::sph_legendre(static_cast<unsigned>(l), static_cast<unsigned>(std::abs(m)), theta);
            return polar * (m == 0 ? 1.0 : std::numbers::sqrt2) *
                   (m < 0 ? std::sin(-m * phi) : std::cos(m * phi));
        }));
        // The polar sum is the trapezoid rule with step h = pi / 100 for a function f that is 0 at both
        // poles: by Euler and Maclaurin it lacks h^2 / 12 (f'(0) - f'(pi)), where only order 0 has a slope.
        // The next term is below 1e-4.
        for (int k = 0; k <= 20; ++k)
            for (int n = -k; n <= k; ++n) {
                double const step = std::numbers::pi / 100;
                double const slopes =
                    m == 0 && n == 0 && (k + l) % 2 == 0 ? std::sqrt((2.0 * l + 1) * (2.0 * k + 1)) : 0.0;
                EXPECT_NEAR(light.at(k, n).g, (k == l && n == m ? 1.0 : 0.0) - step * step / 12 * slopes,
                            1e-4)
                    << l << ',' << m << " at " << k << ',' << n;
            }
    }
}

// The light of two lobes in R. Green, Spherical Harmonic Lighting: The Gritty Details, 2003. The numbers are
// its integrals to five digits, confirmed by a midpoint rule of 4000 x 4000.
TEST(LightCoeffs, OfGreensTwoLobesAreTheirIntegrals)
{
    auto const light = lightOf(*probeOf([](double theta, double phi) {
        return std::max(0.0, 5 * std::cos(theta) - 4) +
               std::max(0.0, -4 * std::sin(theta - std::numbers::pi) * std::cos(phi - 2.5) - 3);
    }));
    double const integrals[] = {0.39880, -0.21052, 0.28653, 0.28182, -0.31499, 0.0, 0.13138, 0.0, 0.09318};
    // The first lobe is brightest at the pole, where the grid loses 2e-4 of the third zonal one.
    for (int i = 0; i < 9; ++i)
        EXPECT_NEAR(light[i].r, integrals[i], 2.5e-4) << i;
}

// --- Reflectance ---

TEST(BrdfCoeffs, AreThoseOfTheirDefinitionToTheBit)
{
    auto const samples = randomReflectance(1);
    for (int const order : {10, 0, 4, 20}) {
        SCOPED_TRACE(order);
        auto expected = newCoeffs();
        auto actual = newCoeffs();
        brdfByHand(samples, expected, order);
        computeBrdfCoeffs(samples, actual, order);
        expectSameCoeffs(expected, actual);
    }
}

TEST(BrdfCoeffs, KeepInfinitiesInTheirOwnSums)
{
    auto samples = randomReflectance(2);
    samples(3, 40, 50).r = std::numeric_limits<double>::infinity();
    samples(99, 0, 199).g = std::numeric_limits<double>::quiet_NaN();
    auto expected = newCoeffs();
    auto actual = newCoeffs();
    brdfByHand(samples, expected, 10);
    computeBrdfCoeffs(samples, actual, 10);
    expectSameCoeffs(expected, actual);
}

TEST(BrdfCoeffs, TakeOrdersBeyondTheGridAsItsEnds)
{
    auto const samples = randomReflectance(4);
    auto largest = newCoeffs();
    auto beyond = newCoeffs();
    computeBrdfCoeffs(samples, largest, 20);
    computeBrdfCoeffs(samples, beyond, std::numeric_limits<int>::max());
    expectSameCoeffs(largest, beyond);

    auto none = newCoeffs();
    computeBrdfCoeffs(samples, none, -1);
    expectSameCoeffs(newCoeffs(), none);
}

TEST(BrdfCoeffs, OfArraysOfOtherDimensionsAreNotMade)
{
    auto coeffs = newCoeffs();
    computeBrdfCoeffs(koUtil::ArrayN<3, Double3>(100, 100, 199), coeffs, 10);
    expectSameCoeffs(newCoeffs(), coeffs);

    koUtil::ArrayN<3, Double3> small(21, 21, 20);
    small.fill(untouched);
    computeBrdfCoeffs(randomReflectance(5), small, 10);
    for (std::int64_t i = 0; i < small.size(); ++i)
        ASSERT_EQ(small.data()[i], untouched);
}

// S = Y_l0(theta_i) Y_p0(theta_o): the sum over the azimuth difference gives 2 pi sqrt(pi), each polar sum
// 1 / (2 pi), and the weight of order 0 sqrt 2.
TEST(BrdfCoeffs, OfAProductOfHarmonicsAreOneNumber)
{
    auto samples = newSamples();
    for (int i = 0; i < 100; ++i)
        for (int j = 0; j < 100; ++j)
            for (int k = 0; k < 200; ++k) {
                double const value = harmonics::Y(4, 0, i, 0) * harmonics::Y(2, 0, j, 0);
                samples(i, j, k) = {value, 0, -value};
            }
    auto coeffs = newCoeffs();
    computeBrdfCoeffs(samples, coeffs, 10);

    double const expected = std::sqrt(2 * std::numbers::pi) / (2 * std::numbers::pi);
    for (int l = 0; l <= 20; ++l)
        for (int p = 0; p <= 10; ++p)
            for (int q = 0; q <= std::min(l, p); ++q)
                EXPECT_NEAR(coeffs(l, p, q).r, l == 4 && p == 2 && q == 0 ? expected : 0.0, 1e-3)
                    << l << ' ' << p << ' ' << q;
    EXPECT_EQ(coeffs(4, 2, 0).b, -coeffs(4, 2, 0).r);
    EXPECT_EQ(coeffs(4, 2, 0).g, 0.0);
}

// --- Order analysis ---

TEST(ComputeOrder, OfEnergyInDegreeZeroIsOne)
{
    koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
    brdf.fill({0, 0, 0});
    brdf(0, 0, 0) = {1, 2, 3};
    auto const orders = ordersOf(brdf, {1, 4, 9});
    EXPECT_EQ(orders.light, 20);
    EXPECT_EQ(orders.brdf, 1);
    EXPECT_EQ(orders.printed, "BRDF coefficient norm is 1.000000 4.000000 9.000000\n"
                              "Percentage accuracy is 100.000000 100.000000 100.000000\n"
                              "brdfOrder is 1 1 1\n"
                              "Light coefficient norm is 1.000000 4.000000 9.000000\n"
                              "lightOrder is 0 0 0\n");
}

TEST(ComputeOrder, IsTheFirstDegreeThatReachesNinetySevenPercentInEveryChannel)
{
    // Red gets there at p = 3 and l = 6, green at p = 5 and l = 20, blue never.
    koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
    brdf.fill({0, 0, 0});
    brdf(2, 1, 1).r = std::sqrt(0.5);
    brdf(6, 3, 2).r = std::sqrt(0.48);
    brdf(20, 5, 0).g = 1;
    brdf(0, 0, 0).b = std::sqrt(0.97) - 1e-9;
    auto const orders = ordersOf(brdf, {1, 1, 1});
    EXPECT_EQ(orders.light, 20);
    EXPECT_EQ(orders.brdf, 5);
    EXPECT_EQ(orders.printed, "BRDF coefficient norm is 0.980000 1.000000 0.970000\n"
                              "Percentage accuracy is 98.000000 100.000000 97.000000\n"
                              "brdfOrder is 3 5 0\n"
                              "Light coefficient norm is 0.980000 1.000000 0.970000\n"
                              "lightOrder is 6 20 0\n");
}

TEST(ComputeOrder, IsTenWhereNoChannelReachesNinetySevenPercent)
{
    koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
    brdf.fill({0.01, 0.01, 0.01});
    auto const orders = ordersOf(brdf, {100, 100, 100});
    EXPECT_EQ(orders.light, 20);
    EXPECT_EQ(orders.brdf, 10);
}

TEST(ComputeOrder, CountsOnlyCoefficientsThatAreMade)
{
    // What computeBrdfCoeffs leaves alone: q above p or l, p above 10.
    koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
    int made = 0;
    for (int l = 0; l <= 20; ++l)
        for (int p = 0; p <= 20; ++p)
            for (int q = 0; q <= 20; ++q) {
                bool const isMade = p <= 10 && q <= p && q <= l;
                made += isMade;
                double const value = isMade ? 1.0 : std::nan("");
                brdf(l, p, q) = {value, value, value};
            }
    auto const total = static_cast<double>(made);
    auto const orders = ordersOf(brdf, {total, total, total});
    EXPECT_EQ(orders.brdf, 10);
    EXPECT_NE(orders.printed.find("Percentage accuracy is 100.000000 100.000000 100.000000\n"),
              std::string::npos)
        << orders.printed;
}

TEST(ComputeOrder, TellsItsStage)
{
    koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
    brdf.fill({0, 0, 0});
    labels.clear();
    observeCheckpoints(remember);
    ordersOf(brdf, {0, 0, 0});
    observeCheckpoints(nullptr);
    EXPECT_EQ(labels, std::vector<std::string>{"order analysis"});
}

TEST(ComputeOrder, OfAnArrayOfOtherDimensionsIsNone)
{
    auto const orders = ordersOf(koUtil::ArrayN<3, Double3>(21, 11, 11), {1, 1, 1});
    EXPECT_EQ(orders.light, 0);
    EXPECT_EQ(orders.brdf, 0);
    EXPECT_EQ(orders.printed, "");
}

}  // namespace koImage
