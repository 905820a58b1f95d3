#include "koImage/lighting/harmonics.h"

#include "koImage/lighting/checkpoint.h"
#include "koImage/testing/lighting_by_hand.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <string>

namespace koImage::harmonics {

using koImage::testing::HarmonicsByHand;

namespace {

double thetaOf(double t)
{
    return t * std::numbers::pi / 100;
}

/// Calls visit(l, m) for every basis function.
template <class Visit>
void eachBasisFunction(Visit const& visit)
{
    for (int l = 0; l <= 20; ++l)
        for (int m = -l; m <= l; ++m)
            visit(l, m);
}

int setupLabels = 0;

void countSetup(char const* label)
{
    setupLabels += std::string(label) == "spherical harmonics setup";
}

}  // namespace

TEST(Harmonics, OfDegreeZeroAreConstant)
{
    double const expected = std::sqrt(1 / (4 * std::numbers::pi));
    for (double const t : {0.0, 0.5, 17.0, 63.25, 99.0})
        for (double const j : {0.0, 0.5, 100.0, 198.75, 199.0})
            EXPECT_NEAR(Y(0, 0, t, j), expected, 1e-16) << t << ", " << j;
}

TEST(Harmonics, AreThoseOfTheirDefinitionToTheBit)
{
    HarmonicsByHand const& byHand = HarmonicsByHand::get();
    eachBasisFunction([&](int l, int m) {
        for (int t = 0; t < 100; ++t) {
            ASSERT_EQ(legendrePart(l, m, t), byHand.part(l, m, t)) << l << ' ' << m << ' ' << t;
            ASSERT_EQ(signedLegendre(l, m, t), byHand.signedPart(l, m, t)) << l << ' ' << m << ' ' << t;
        }
        for (double const t : {0.0, 0.3, 31.99995, 32.00005, 98.5})
            for (double const j : {0.0, 0.7, 57.99995, 58.00005, 198.5})
                ASSERT_EQ(Y(l, m, t, j), byHand.Y(l, m, t, j)) << l << ' ' << m << ' ' << t << ' ' << j;
    });
}

// Against the standard library's functions of any angle. What differs is the root of two (3e-8) and, at
// degree 20, the rounding of the recurrence.
TEST(Harmonics, AreTheRealHarmonicsWithTheCondonShortleyPhase)
{
    eachBasisFunction([](int l, int m) {
        auto const order = static_cast<unsigned>(std::abs(m));
        for (int t = 0; t < 100; t += 7) {
            double const polar = std::sph_legendre(static_cast<unsigned>(l), order, thetaOf(t));
            ASSERT_NEAR(signedLegendre(l, m, t), m < 0 && m % 2 != 0 ? -polar : polar, 2e-14);
            double const scale = m == 0 ? 1.0 : 1.4142136;
            ASSERT_NEAR(legendrePart(l, m, t), scale * polar, 2e-14);
            for (int j = 0; j < 200; j += 11) {
                double const phi = j * std::numbers::pi / 100;
                double const azimuth = m < 0 ? std::sin(-m * phi) : std::cos(m * phi);
                ASSERT_NEAR(Y(l, m, t, j), scale * polar * azimuth, 1e-13) << l << ' ' << m << ' ' << t;
            }
        }
    });
    EXPECT_LT(Y(1, 1, 50, 0), 0) << "at +x";
    EXPECT_LT(Y(1, -1, 50, 50), 0) << "at +y";
    EXPECT_GT(Y(1, 0, 0, 0), 0) << "at +z";
}

TEST(Harmonics, UseARootOfTwoOfEightDigits)
{
    EXPECT_EQ(legendrePart(3, 2, 40), signedLegendre(3, 2, 40) * 1.4142136);
    EXPECT_NE(legendrePart(3, 2, 40), signedLegendre(3, 2, 40) * std::numbers::sqrt2);
}

TEST(Harmonics, OfNegativeOrderDifferOnlyInTheAzimuth)
{
    eachBasisFunction([](int l, int m) {
        if (m <= 0)
            return;
        for (double const t : {0.0, 12.0, 40.3, 99.0})
            for (double const j : {3.0, 71.4, 150.0}) {
                EXPECT_EQ(legendrePart(l, -m, t), legendrePart(l, m, t));
                EXPECT_EQ(signedLegendre(l, -m, t), (m % 2 == 0 ? 1 : -1) * signedLegendre(l, m, t));
                EXPECT_EQ(Y(l, m, t, j), legendrePart(l, m, t) * azimuthPart(m, j));
                EXPECT_EQ(Y(l, -m, t, j), legendrePart(l, m, t) * azimuthPart(-m, j));
            }
    });
    EXPECT_NEAR(azimuthPart(2, 25), std::cos(std::numbers::pi / 2), 1e-15);
    EXPECT_NEAR(azimuthPart(-2, 25), std::sin(std::numbers::pi / 2), 1e-15);
}

TEST(Harmonics, TakeASampleAloneWithinATenThousandthAboveIt)
{
    EXPECT_EQ(legendrePart(5, 2, 30.00009), legendrePart(5, 2, 30));
    EXPECT_EQ(signedLegendre(5, 2, 30.00009), signedLegendre(5, 2, 30));
    EXPECT_EQ(azimuthPart(3, 70.00009), azimuthPart(3, 70.0));
    EXPECT_NE(legendrePart(5, 2, 30.00011), legendrePart(5, 2, 30));
    EXPECT_NE(azimuthPart(3, 70.00011), azimuthPart(3, 70.0));

    // From below it is interpolated.
    EXPECT_NE(legendrePart(5, 2, 29.99995), legendrePart(5, 2, 30));
    EXPECT_NEAR(legendrePart(5, 2, 29.99995), legendrePart(5, 2, 30), 1e-4);
}

TEST(Harmonics, InterpolateEachAngleByItself)
{
    double const polar = 0.75 * legendrePart(4, -3, 61) + 0.25 * legendrePart(4, -3, 62);
    EXPECT_NEAR(legendrePart(4, -3, 61.25), polar, 1e-15);
    double const azimuth = 0.5 * azimuthPart(-3, 17.0) + 0.5 * azimuthPart(-3, 18.0);
    EXPECT_EQ(azimuthPart(-3, 17.5), azimuth);
    EXPECT_EQ(Y(4, -3, 61.25, 17.5), legendrePart(4, -3, 61.25) * azimuth);
}

TEST(Harmonics, EndWithTheLastSamples)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (double const t : {99.0, 99.5, 100.0, 1e300, infinity})
        EXPECT_EQ(legendrePart(20, 7, t), legendrePart(20, 7, 99)) << t;
    for (double const t : {-0.0, -0.5, -1e300, -infinity})
        EXPECT_EQ(legendrePart(20, 7, t), legendrePart(20, 7, 0)) << t;
    for (int const t : {100, std::numeric_limits<int>::max()})
        EXPECT_EQ(signedLegendre(20, -7, t), signedLegendre(20, -7, 99)) << t;
    EXPECT_EQ(azimuthPart(20, 200.0), azimuthPart(20, 199.0)) << "does not wrap around";
    EXPECT_TRUE(std::isnan(legendrePart(3, 1, std::nan(""))));
    EXPECT_TRUE(std::isnan(Y(3, 1, 4.0, std::nan(""))));
}

TEST(Harmonics, OutsideTheBasisAreZero)
{
    constexpr int least = std::numeric_limits<int>::min();
    constexpr int most = std::numeric_limits<int>::max();
    for (auto const& [l, m] :
         {std::pair{21, 0}, {-1, 0}, {3, 4}, {3, -4}, {20, 21}, {most, most}, {least, least}}) {
        EXPECT_EQ(Y(l, m, 10.0, 10.0), 0.0) << l << ", " << m;
        EXPECT_EQ(legendrePart(l, m, 10), 0.0) << l << ", " << m;
        EXPECT_EQ(signedLegendre(l, m, 10), 0.0) << l << ", " << m;
    }
    for (int const m : {21, -21, most, least})
        EXPECT_EQ(azimuthPart(m, 10.0), 0.0) << m;
}

// In a process of its own, where nothing has used the tables yet.
TEST(HarmonicsDeathTest, AreSetUpOnce)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            observeCheckpoints(countSetup);
            setup();
            setup();
            std::_Exit(setupLabels);
        },
        ::testing::ExitedWithCode(1), "");
}

}  // namespace koImage::harmonics
