#include "koImage/lighting/lobes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <stdexcept>

namespace koImage {

using std::numbers::pi;

namespace {

ReflectanceSamples samplesOf(ReflectanceFunction const& function, Double3* energy = nullptr)
{
    ReflectanceSamples samples(100, 100, 200);
    samples.fill({-1.0, -1.0, -1.0});
    Double3 const returned = function.sample(samples);
    if (energy != nullptr)
        *energy = returned;
    return samples;
}

bool sameSamples(ReflectanceSamples const& a, ReflectanceSamples const& b)
{
    return std::equal(a.data(), a.data() + a.size(), b.data());
}

/// Three angles on the grid.
struct Cell {
    int i;
    int j;
    int k;
};

std::array<Cell, 3000> someCells()
{
    std::mt19937 random(3);
    std::array<Cell, 3000> cells{};
    for (Cell& cell : cells)
        cell = {int(random() % 100), int(random() % 100), int(random() % 200)};
    return cells;
}

/// What constant light of radiance 1 gives along the normal.
double albedo(ReflectanceSamples const& samples)
{
    double sum = 0.0;
    for (int i = 0; i < 100; ++i)
        sum += std::sin(i * pi / 100) * samples(i, 0, 0).r;
    return sum * 2.0 * pi * pi / 100;
}

/// S for every polar angle of the light, after checking that nothing else makes a difference.
std::array<double, 100> profileOf(ReflectanceFunction const& lobe)
{
    Double3 energy{};
    auto const samples = samplesOf(lobe, &energy);
    EXPECT_EQ(energy, reflectanceEnergy(samples));

    std::array<double, 100> profile{};
    for (int i = 0; i < 100; ++i) {
        profile[std::size_t(i)] = samples(i, 0, 0).r;
        EXPECT_TRUE(std::all_of(&samples(i, 0, 0), &samples(i, 0, 0) + 20000, [&](Double3 const& s) {
            return s == samples(i, 0, 0) && s.r == s.b;
        })) << i;
    }
    return profile;
}

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

}  // namespace

TEST(PhongLobe, IsAPowerOfTheCosineOfTheLight)
{
    for (double const n : {1.0, 5.0, 20.0, 50.0, 12.5, 200.0}) {
        auto const profile = profileOf(PhongLobe(n));
        for (std::size_t i = 0; i < 100; ++i) {
            double const c = std::cos(double(i) * pi / 100);
            double const expected = c > 0.0 ? (n + 1) / (2 * pi) * std::pow(c, n) : 0.0;
            EXPECT_NEAR(profile[i], expected, 1e-14 * (n + 1)) << n << ", " << i;
        }
    }
}

TEST(PhongLobe, SendsBackAllLight)
{
    EXPECT_NEAR(albedo(samplesOf(PhongLobe(1.0))), 1.0, 5e-4);
    EXPECT_NEAR(albedo(samplesOf(PhongLobe(5.0))), 0.9995, 5e-5);
    EXPECT_NEAR(albedo(samplesOf(PhongLobe(50.0))), 0.9958, 5e-5);
    EXPECT_NEAR(albedo(samplesOf(PhongLobe(200.0))), 0.9833, 5e-5);
}

TEST(PhongLobe, TakesEveryExponent)
{
    auto const none = samplesOf(PhongLobe(0.0));
    EXPECT_TRUE(sameSamples(none, samplesOf(PhongLobe(-3.0))));
    EXPECT_TRUE(sameSamples(none, samplesOf(PhongLobe(nan))));
    auto const most = samplesOf(PhongLobe(PhongLobe::maxExponent));
    EXPECT_TRUE(sameSamples(most, samplesOf(PhongLobe(1e300))));
    EXPECT_TRUE(sameSamples(most, samplesOf(PhongLobe(std::numeric_limits<double>::infinity()))));
    EXPECT_FALSE(sameSamples(most, samplesOf(PhongLobe(199.0))));
    EXPECT_TRUE(std::all_of(none.data(), none.data() + none.size(),
                            [](Double3 const& s) { return s.r == 0.0 || std::abs(s.r - 0.5 / pi) < 1e-15; }));
}

TEST(Lambert, IsTheCosineOfTheLight)
{
    auto const profile = profileOf(Lambert());
    for (std::size_t i = 0; i < 100; ++i)
        EXPECT_NEAR(profile[i], std::max(0.0, std::cos(double(i) * pi / 100)) / pi, 1e-15);
    EXPECT_NEAR(albedo(samplesOf(Lambert())), 1.0, 5e-4);
}

TEST(Lambert, IsThePhongLobeOfExponentOne)
{
    auto const lambert = profileOf(Lambert());
    auto const phong = profileOf(PhongLobe(1.0));
    for (std::size_t i = 0; i < 100; ++i)
        EXPECT_NEAR(lambert[i], phong[i], 1e-15);
}

// D as in the paper, by the tangent of the tilt of the facet; the facet as the half vector of light and
// viewer.
TEST(GgxLobe, IsTheMicrofacetLobeSeenAlongTheNormal)
{
    for (double const roughness : {0.2, 0.3, 0.5, 0.8, 1.0}) {
        double const a = roughness * roughness;
        auto const profile = profileOf(GgxLobe(roughness));
        for (std::size_t i = 0; i < 50; ++i) {
            double const theta = double(i) * pi / 100;
            double const light[2] = {std::sin(theta), std::cos(theta)};
            double const half[2] = {light[0], light[1] + 1.0};
            double const tangent = half[0] / half[1];
            double const cosine2 = 1.0 / (1.0 + tangent * tangent);
            double const t = a * a + tangent * tangent;
            double const distribution = a * a / (pi * cosine2 * cosine2 * t * t);
            double const slope = light[0] / light[1];
            double const shadowing = 2.0 / (1.0 + std::sqrt(1.0 + a * a * slope * slope));
            double const expected = distribution * shadowing / 4.0;
            EXPECT_NEAR(profile[i], expected, 1e-10 * expected) << roughness << ", " << i;
        }
        for (std::size_t i = 51; i < 100; ++i)
            EXPECT_EQ(profile[i], 0.0);
    }
}

TEST(GgxLobe, SendsBackWhatTheFacetsReflectAtOnce)
{
    EXPECT_NEAR(albedo(samplesOf(GgxLobe(0.3))), 0.9855, 5e-5);
    EXPECT_NEAR(albedo(samplesOf(GgxLobe(0.5))), 0.9151, 5e-5);
    // At roughness 1 the integral of c / (1 + c) from 0 to 1.
    EXPECT_NEAR(albedo(samplesOf(GgxLobe(1.0))), 1.0 - std::log(2.0), 3e-4);
}

TEST(GgxLobe, TakesEveryRoughness)
{
    auto const least = samplesOf(GgxLobe(GgxLobe::minRoughness));
    for (double const roughness : {0.0, -1.0, 0.1, -std::numeric_limits<double>::infinity()})
        EXPECT_TRUE(sameSamples(least, samplesOf(GgxLobe(roughness)))) << roughness;
    auto const most = samplesOf(GgxLobe(1.0));
    for (double const roughness : {2.0, nan})
        EXPECT_TRUE(sameSamples(most, samplesOf(GgxLobe(roughness)))) << roughness;
    EXPECT_FALSE(sameSamples(least, samplesOf(GgxLobe(0.21))));
}

TEST(CallableReflectance, CallsTheFunctionForEverySampleInStorageOrder)
{
    int calls = 0;
    CallableReflectance const function([&](double in, double out, double phi) {
        int const at = calls++;
        EXPECT_NEAR(in, at / 20000 * pi / 100, 1e-14);
        EXPECT_NEAR(out, at / 200 % 100 * pi / 100, 1e-14);
        EXPECT_NEAR(phi, at % 200 * pi / 100, 1e-14);
        return Double3{double(at), 1.0, in};
    });
    Double3 energy{};
    auto const samples = samplesOf(function, &energy);
    EXPECT_EQ(calls, 2000000);
    EXPECT_EQ(samples(0, 0, 5).r, 5.0);
    EXPECT_EQ(samples(99, 99, 199).r, 1999999.0);
    EXPECT_EQ(samples(1, 0, 0).b, 0.031415926535897934);
    EXPECT_EQ(energy, reflectanceEnergy(samples));
}

TEST(CallableReflectance, PassesOnWhatTheFunctionThrows)
{
    ReflectanceSamples samples(100, 100, 200);
    CallableReflectance const function(
        [](double, double, double) -> Double3 { throw std::runtime_error("no sample"); });
    EXPECT_THROW(function.sample(samples), std::runtime_error);
}

TEST(Lobes, AreMultipliedByTheirColour)
{
    Double3 const colour{0.5, 2.0, 0.0};
    auto const check = [&](ReflectanceFunction const& plain, ReflectanceFunction const& coloured) {
        Double3 energy{};
        auto const before = samplesOf(plain);
        auto const after = samplesOf(coloured, &energy);
        EXPECT_EQ(energy.b, 0.0);
        EXPECT_NEAR(energy.g, 16.0 * energy.r, 1e-12 * energy.g);
        for (auto const [i, j, k] : someCells()) {
            EXPECT_EQ(after(i, j, k).r, 0.5 * before(i, j, k).r);
            EXPECT_EQ(after(i, j, k).g, 2.0 * before(i, j, k).g);
            EXPECT_EQ(after(i, j, k).b, 0.0);
        }
    };
    auto const any = [](double in, double out, double phi) { return Double3{in + out, in + out, phi}; };
    check(PhongLobe(5.0), PhongLobe(5.0, colour));
    check(Lambert(), Lambert(colour));
    check(GgxLobe(0.4), GgxLobe(0.4, colour));
    check(CallableReflectance(any), CallableReflectance(any, colour));
}

}  // namespace koImage
