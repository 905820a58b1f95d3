#include "koImage/envmap/lat_long_map.h"

#include "koImage/testing/directions.h"

#include <gtest/gtest.h>

#include <numbers>

namespace koImage {

namespace {

using koLinear::VectorFlt;
using testing::coordinates;
using testing::distance;
using testing::longPi;
using testing::unitVectors;

constexpr float untouched = -7.0f;

VectorFlt dirAt(float u, float v)
{
    VectorFlt dir;
    EXPECT_TRUE(LatLongMap(64, 32).coordToDir(u, v, dir));
    return dir;
}

TEST(LatLongMap, SwapsTheColumnsOfItsSeam)
{
    // The float pi lies beyond the number: the longitude of u = 1 is just on the other side, where x > 0.
    for (float const v : {0.1f, 0.5f, 0.8f}) {
        VectorFlt const atZero = dirAt(0.0f, v);
        VectorFlt const atOne = dirAt(1.0f, v);
        EXPECT_GT(atZero.x, 0.0f);
        EXPECT_LT(atOne.x, 0.0f);
        EXPECT_EQ(atZero.x, -atOne.x);
        EXPECT_EQ(atZero.y, atOne.y);
        EXPECT_EQ(atZero.z, atOne.z);
        EXPECT_EQ(dirAt(-0.0f, v), atZero);
    }
    EXPECT_EQ(LatLongMap::longitude(0.0f), 3.1415927f);
    EXPECT_EQ(LatLongMap::longitude(1.0f), -3.1415927f);
    EXPECT_LT(LatLongMap::longitude(1e-6f), 0.0f) << "the neighbours of the seam stay";
}

TEST(LatLongMap, LooksAsItsPictureSays)
{
    struct Place {
        float u;
        float v;
        VectorFlt dir;
    };
    for (auto const& [u, v, expected] :
         {Place{0.5f, 0.5f, {0, -1, 0}}, Place{0.25f, 0.5f, {1, 0, 0}}, Place{0.75f, 0.5f, {-1, 0, 0}},
          Place{0.0f, 0.5f, {0, 1, 0}}, Place{0.3f, 0.0f, {0, 0, -1}}, Place{0.3f, 1.0f, {0, 0, 1}}})
        EXPECT_LT(distance({expected.x, expected.y, expected.z}, dirAt(u, v)), 1e-6) << u << ", " << v;
}

TEST(LatLongMap, HasAnOmegaFactorForEverySize)
{
    float const expected = (3.1415927f / 5.0f) * (6.2831855f / 7.0f);
    EXPECT_EQ(LatLongMap(7, 5).omegaFactor(), expected);
    LatLongMap map(1, 1);
    map.computeOmegaFactor(7, 5);
    EXPECT_EQ(map.omegaFactor(), expected);
    EXPECT_TRUE(std::isinf(LatLongMap(4, 0).omegaFactor()));
}

TEST(LatLongMap, IsValidEverywhere)
{
    LatLongMap const map(8, 4);
    for (float const u : coordinates(0, 1))
        for (float const v : coordinates(0, 2)) {
            VectorFlt dir;
            EXPECT_TRUE(map.isValidCoord(u, v));
            EXPECT_TRUE(map.coordToDir(u, v, dir));
        }
}

TEST(LatLongMap, LeavesTheWeightAloneWhereItIsNotWanted)
{
    VectorFlt dir;
    float weight = untouched;
    EXPECT_TRUE(LatLongMap(64, 32).coordToDir(0.6f, 0.4f, dir, weight, false));
    EXPECT_EQ(weight, untouched);
}

TEST(LatLongMap, NeverWeighsBelowZero)
{
    // The float pi makes the cosine of the last latitude negative.
    VectorFlt dir;
    float weight = untouched;
    ASSERT_TRUE(LatLongMap(64, 32).coordToDir(0.4f, 1.0f, dir, weight, true));
    EXPECT_LT(std::cos(double{LatLongMap::latitude(1.0f)}), 0.0);
    EXPECT_EQ(weight, 0.0f);
    EXPECT_EQ(dir, VectorFlt(0, 0, 1));
}

TEST(LatLongMap, GivesTheDirectionsOfASlowReference)
{
    LatLongMap const map(64, 32);
    testing::Random random(3);
    for (int i = 0; i < 200000; ++i) {
        float const u = testing::randomUnit(random);
        float const v = testing::randomUnit(random);
        if (u == 0)
            continue;
        VectorFlt dir;
        float weight = untouched;
        map.coordToDir(u, v, dir, weight, true);

        long double const a = (2.0L * v - 1) * longPi / 2;
        long double const b = (2.0L * u - 1) * longPi;
        long double const c = std::max(0.0L, std::cos(a));
        ASSERT_LT(std::abs(-std::sin(b) * c - dir.x), 1e-6L) << u << ", " << v;
        ASSERT_LT(std::abs(-std::cos(b) * c - dir.y), 1e-6L) << u << ", " << v;
        ASSERT_LT(std::abs(std::sin(a) - dir.z), 1e-6L) << u << ", " << v;
        ASSERT_LT(std::abs(c * map.omegaFactor() - weight), 1e-6L * map.omegaFactor());
    }
}

TEST(LatLongMap, GivesTheCoordinatesOfASlowReference)
{
    LatLongMap const map(64, 32);
    for (VectorFlt const& dir : unitVectors(200000, 4)) {
        float u = untouched;
        float v = untouched;
        map.dirToCoord(dir, u, v);

        long double const lon = std::atan2((long double){-dir.x}, (long double){-dir.y});
        long double const lat = std::asin((long double){dir.z});
        ASSERT_LT(std::abs((lon / longPi + 1) / 2 - u), 1e-6L) << dir.x << ", " << dir.y << ", " << dir.z;
        ASSERT_LT(std::abs((2 * lat / longPi + 1) / 2 - v), 1e-6L) << dir.x << ", " << dir.y << ", " << dir.z;
    }
}

TEST(LatLongMap, ChoosesTheSideOfItsSeamByTheSignOfZero)
{
    LatLongMap const map(64, 32);
    auto const u = [&map](VectorFlt const& dir) {
        float at = untouched;
        float v = untouched;
        map.dirToCoord(dir, at, v);
        return at;
    };
    EXPECT_EQ(u({0.0f, 1, 0}), 0.0f);
    EXPECT_EQ(u({-0.0f, 1, 0}), 1.0f);
    EXPECT_EQ(u({0.0f, 0.0f, 1}), 0.0f);
    EXPECT_EQ(u({-0.0f, 0.0f, 1}), 1.0f);
    EXPECT_EQ(u({0.0f, -0.0f, 1}), 0.5f);
    EXPECT_EQ(u({0.0f, -1, 0}), 0.5f);
}

// A coordinate keeps two things of a direction: z, and the angle about the z axis. So the way back leads to
// the unit vector with these two. In units of h = 2^-24, on the way from direction to direction:
//
//   latitude    asin rounds by h; 2 lat / pi by h / 2, the sum by h, times pi / 2: 2.4 h; its product with
//               pi by h                                                                                4.4
//   longitude   atan2 rounds by 2 h; lon / pi by h / 2, the sum by h, times pi: 4.7 h; its product
//               with pi by 2 h                                                                         8.7
//   together    sqrt(4.4^2 + 8.7^2)                                                                    9.8
//   c; x, y, z  half an ulp each                                                                       1.3
TEST(LatLongMap, LeadsBackToADirectionWithin11UlpsOfOneHalf)
{
    constexpr long double bound = 11.1L * 0x1p-24L;
    LatLongMap const map(64, 32);
    long double worst = 0;
    for (VectorFlt const& dir : unitVectors(500000, 5)) {
        float u = untouched;
        float v = untouched;
        map.dirToCoord(dir, u, v);
        VectorFlt back;
        ASSERT_TRUE(map.coordToDir(u, v, back));

        long double const rho = std::hypot((long double){dir.x}, (long double){dir.y});
        long double const c = std::sqrt(1 - (long double){dir.z} * dir.z);
        long double const scale = rho == 0 ? 0 : c / rho;
        worst = std::max(worst, distance({dir.x * scale, dir.y * scale, dir.z}, back));
    }
    EXPECT_LE(worst, bound);
    EXPECT_GE(worst, bound / 4) << "the bound says too little";
}

TEST(LatLongMap, WeighsItsPixelsAsTheSphere)
{
    for (int const height : {1, 2, 16, 100}) {
        LatLongMap const map(2 * height, height);
        double sum = 0;
        for (int y = 0; y < height; ++y) {
            VectorFlt dir;
            float weight = 0;
            map.coordToDir(0.3f, (static_cast<float>(y) + 0.5f) / static_cast<float>(height), dir, weight,
                           true);
            sum += 2 * height * double{weight};
        }
        // The midpoint rule for the cosine has a closed form: the rows sum to 1 / sin(s), s = pi / (2
        // height).
        double const s = std::numbers::pi / (2 * height);
        double const expected = 4 * std::numbers::pi * s / std::sin(s);
        EXPECT_NEAR(sum, expected, 1e-6 * expected) << height;
    }
}

}  // namespace

}  // namespace koImage
