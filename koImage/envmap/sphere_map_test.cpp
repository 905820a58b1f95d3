#include "koImage/envmap/sphere_map.h"

#include "koImage/testing/directions.h"

#include <gtest/gtest.h>

#include <numbers>

namespace koImage {

namespace {

using koLinear::VectorFlt;
using testing::coordinates;
using testing::distance;
using testing::longPi;
using testing::LongVector;
using testing::unitVectors;

constexpr float untouched = -7.0f;

TEST(SphereMap, LooksAlongMinusYAtItsCentreWithTheWholeOmegaFactor)
{
    SphereMap const map(64);
    VectorFlt dir;
    float weight = 0;
    ASSERT_TRUE(map.coordToDir(0.5f, 0.5f, dir, weight, true));
    EXPECT_EQ(dir, VectorFlt(0, -1, 0));
    EXPECT_EQ(weight, map.omegaFactor());
}

TEST(SphereMap, ShowsBothEndsOfTheYAxisAtItsCentre)
{
    SphereMap const map(64);
    for (float const y : {-1.0f, 1.0f}) {
        float u = 0;
        float v = 0;
        map.dirToCoord({0, y, 0}, u, v);
        EXPECT_EQ(u, 0.5f);
        EXPECT_EQ(v, 0.5f);
    }
}

TEST(SphereMap, LooksAsItsPictureSays)
{
    struct Place {
        float u;
        float v;
        VectorFlt dir;
    };
    for (auto const& [u, v, expected] :
         {Place{0.75f, 0.5f, {1, 0, 0}}, Place{0.25f, 0.5f, {-1, 0, 0}}, Place{0.5f, 0.75f, {0, 0, 1}},
          Place{0.5f, 0.25f, {0, 0, -1}}, Place{1.0f, 0.5f, {0, 1, 0}}, Place{0.5f, 0.0f, {0, 1, 0}}}) {
        VectorFlt dir;
        ASSERT_TRUE(SphereMap(64).coordToDir(u, v, dir));
        EXPECT_LT(distance({expected.x, expected.y, expected.z}, dir), 1e-6) << u << ", " << v;
    }
}

TEST(SphereMap, HasAnOmegaFactorForEverySize)
{
    float const a = 6.2831855f / 3.0f;
    float const b = 6.2831855f / 5.0f;
    EXPECT_EQ(SphereMap(3).omegaFactor(), a * a);
    EXPECT_EQ(SphereMap(5, 3).omegaFactor(), a * b);

    SphereMap map(1);
    map.computeOmegaFactor(3, 5);
    EXPECT_EQ(map.omegaFactor(), b * a);
    EXPECT_TRUE(std::isinf(SphereMap(0).omegaFactor()));
    EXPECT_EQ(SphereMap(-3).omegaFactor(), a * a);
}

TEST(SphereMap, IsValidInsideItsDisc)
{
    SphereMap const map(64);
    for (float const u : coordinates(200, 1))
        for (float const v : coordinates(200, 2)) {
            float const x = u - 0.5f;
            float const y = v - 0.5f;
            ASSERT_EQ(map.isValidCoord(u, v), x * x + y * y <= 0.25f) << u << ", " << v;
        }
    EXPECT_TRUE(map.isValidCoord(0.5f, 1.0f));
    EXPECT_FALSE(map.isValidCoord(0.9f, 0.9f));
}

TEST(SphereMap, LeavesTheDirectionAloneOutsideItsDiscAndWeighsItZero)
{
    SphereMap const map(64);
    VectorFlt dir(untouched, untouched, untouched);
    float weight = untouched;
    EXPECT_FALSE(map.coordToDir(0.95f, 0.95f, dir, weight, false));
    EXPECT_EQ(dir, VectorFlt(untouched, untouched, untouched));
    EXPECT_EQ(weight, 0.0f);
}

TEST(SphereMap, LeavesTheWeightAloneWhereItIsNotWanted)
{
    VectorFlt dir;
    float weight = untouched;
    EXPECT_TRUE(SphereMap(64).coordToDir(0.6f, 0.4f, dir, weight, false));
    EXPECT_EQ(weight, untouched);
}

TEST(SphereMap, GivesTheDirectionsOfASlowReference)
{
    SphereMap const map(100);
    int inside = 0;
    for (float const u : coordinates(400, 3))
        for (float const v : coordinates(400, 4)) {
            long double const x = 2.0L * u - 1;
            long double const y = 2.0L * v - 1;
            long double const r = std::hypot(x, y);
            VectorFlt dir;
            float weight = untouched;
            if (std::isnan(r) || std::isinf(r) || std::abs(r - 1) < 1e-6L)
                continue;
            bool const valid = map.coordToDir(u, v, dir, weight, true);
            ASSERT_EQ(valid, r < 1) << u << ", " << v;
            if (!valid)
                continue;

            ++inside;
            long double const phi = std::atan2(y, x);
            long double const theta = r * longPi;
            LongVector const expected = {std::cos(phi) * std::sin(theta), -std::cos(theta),
                                         std::sin(phi) * std::sin(theta)};
            ASSERT_LT(std::abs(expected.x - dir.x), 1e-6L) << u << ", " << v;
            ASSERT_LT(std::abs(expected.y - dir.y), 1e-6L) << u << ", " << v;
            ASSERT_LT(std::abs(expected.z - dir.z), 1e-6L) << u << ", " << v;
            long double const factor = theta < 1e-4L ? 1 : std::sin(theta) / theta;
            ASSERT_LT(std::abs(map.omegaFactor() * factor - weight), 1e-6L * map.omegaFactor());
        }
    EXPECT_GT(inside, 100000);
}

TEST(SphereMap, GivesTheCoordinatesOfASlowReference)
{
    SphereMap const map(100);
    for (VectorFlt const& dir : unitVectors(100000, 5)) {
        float u = untouched;
        float v = untouched;
        map.dirToCoord(dir, u, v);

        // Squares below the smallest float vanish: such a direction counts as one along the axis.
        long double const rho = std::hypot((long double){dir.x}, (long double){dir.z});
        long double const k = rho < 1e-19L ? 0 : std::acos((long double){-dir.y}) / (2 * rho * longPi);
        ASSERT_LT(std::abs(k * dir.x + 0.5L - u), 1e-6L) << dir.x << ", " << dir.y << ", " << dir.z;
        ASSERT_LT(std::abs(k * dir.z + 0.5L - v), 1e-6L) << dir.x << ", " << dir.y << ", " << dir.z;
    }
}

// A coordinate keeps two things of a direction: y, and the angle about the y axis. So the way back leads to
// the unit vector with these two. In units of h = 2^-24, on the way from direction to direction:
//
//   rho                   rounded four times, 2 h of itself: of theta                          2 pi = 6.3
//   u, v                  h / 2 each, and again from 2u - 1, 2v - 1: sqrt(2) (1 + 0.5) h of r    times pi
//   = 6.7 r                     rounded four times, 2 h of itself: of theta                          2 pi
//   = 6.3 theta, phi            half an ulp, up to 2 h each                                                 4
//   x, y, z               half an ulp, h / 2 each: their length                                     0.9
TEST(SphereMap, LeadsBackToADirectionWithin24UlpsOfOneHalf)
{
    constexpr long double bound = 24.2L * 0x1p-24L;
    SphereMap const map(100);
    long double worst = 0;
    for (VectorFlt const& dir : unitVectors(200000, 6)) {
        long double const rho = std::hypot((long double){dir.x}, (long double){dir.z});
        if (rho < 1e-19L || (rho < 1e-5L && dir.y > 0))
            continue;  // the axis itself, and the rim, which may come out as outside
        float u = untouched;
        float v = untouched;
        map.dirToCoord(dir, u, v);
        VectorFlt back;
        ASSERT_TRUE(map.coordToDir(u, v, back)) << dir.x << ", " << dir.y << ", " << dir.z;

        long double const sine = std::sqrt(1 - (long double){dir.y} * dir.y) / rho;
        worst = std::max(worst, distance({dir.x * sine, dir.y, dir.z * sine}, back));
    }
    EXPECT_LE(worst, bound);
    EXPECT_GE(worst, bound / 4) << "the bound says too little";
}

// The weights are samples of (2 pi)^2 sin(theta) / theta, whose integral over the disc is 4 pi. It falls to 0
// at the rim, so what the pixels there count too much or too little goes down faster than the square of n.
TEST(SphereMap, WeighsItsPixelsAsTheSphere)
{
    for (int const n : {16, 33, 64, 100, 257}) {
        SphereMap const map(n);
        double sum = 0;
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) {
                VectorFlt dir;
                float weight = 0;
                map.coordToDir((static_cast<float>(x) + 0.5f) / static_cast<float>(n),
                               (static_cast<float>(y) + 0.5f) / static_cast<float>(n), dir, weight, true);
                sum += weight;
            }
        EXPECT_NEAR(sum / (4 * std::numbers::pi), 1, 1.0 / (n * n)) << n;
    }
}

}  // namespace

}  // namespace koImage
