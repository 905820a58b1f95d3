#include "koBase/linear.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

namespace koLinear {

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();

// Each step in double, then rounded: a double is wide enough for that to be the single-precision step, down
// to where floats become subnormal.
float rounded(double exact)
{
    return static_cast<float>(exact);
}

VectorFlt normalizedStepByStep(VectorFlt v)
{
    auto const square = [](float a) { return rounded(double{a} * a); };
    float const xy = rounded(double{square(v.x)} + square(v.y));
    float const length = rounded(std::sqrt(double{rounded(double{xy} + square(v.z))}));
    return {rounded(double{v.x} / length), rounded(double{v.y} / length), rounded(double{v.z} / length)};
}

void expectSameBits(VectorFlt const& expected, VectorFlt const& actual)
{
    EXPECT_EQ(std::bit_cast<std::uint32_t>(expected.x), std::bit_cast<std::uint32_t>(actual.x));
    EXPECT_EQ(std::bit_cast<std::uint32_t>(expected.y), std::bit_cast<std::uint32_t>(actual.y));
    EXPECT_EQ(std::bit_cast<std::uint32_t>(expected.z), std::bit_cast<std::uint32_t>(actual.z));
}

VectorFlt normalized(VectorFlt v)
{
    v.normalize();
    return v;
}

}  // namespace

TEST(EpsilonTolFlt, IsOneMillionth)
{
    EXPECT_EQ(epsilonTolFlt, 1e-6f);
}

TEST(VectorFlt, IsThreeFloatsInOrder)
{
    VectorFlt const v(1.0f, 2.0f, 3.0f);
    EXPECT_EQ(v.x, 1.0f);
    EXPECT_EQ(v.y, 2.0f);
    EXPECT_EQ(v.z, 3.0f);
    EXPECT_EQ(sizeof v, 3 * sizeof(float));
}

TEST(VectorFlt, IsZeroByDefault)
{
    EXPECT_EQ(VectorFlt(), VectorFlt(0.0f, 0.0f, 0.0f));
}

TEST(VectorFlt, NormalizesExactlyWhereTheLengthIsExact)
{
    expectSameBits(normalized({0.0f, 0.0f, 5.0f}), {0.0f, 0.0f, 1.0f});
    expectSameBits(normalized({3.0f, 0.0f, -4.0f}), {0.6f, 0.0f, -0.8f});
    expectSameBits(normalized({2.0f, -3.0f, 6.0f}), {2.0f / 7.0f, -3.0f / 7.0f, 6.0f / 7.0f});
    expectSameBits(normalized({-0.0f, 1.0f, 0.0f}), {-0.0f, 1.0f, 0.0f});
}

// Fused multiplication and addition, another order of the sum, or a product with the reciprocal differ here.
TEST(VectorFlt, NormalizesInSinglePrecisionStepByStep)
{
    std::mt19937 random(1);
    auto const component = [&random] { return static_cast<float>(random() >> 8) * 0x1p-23f - 1.0f; };
    for (int i = 0; i < 100000; ++i) {
        float const x = component();
        float const y = component();
        float const z = component();
        expectSameBits(normalizedStepByStep({x, y, z}), normalized({x, y, z}));
    }
}

TEST(VectorFlt, StaysWhenItsLengthIsZero)
{
    expectSameBits(normalized({0.0f, -0.0f, 0.0f}), {0.0f, -0.0f, 0.0f});
    // Too short: the squares vanish.
    expectSameBits(normalized({1e-30f, -1e-30f, 1e-40f}), {1e-30f, -1e-30f, 1e-40f});
}

TEST(VectorFlt, LosesItsComponentsWhenTheSquaresOverflow)
{
    expectSameBits(normalized({1e30f, -1.0f, 0.0f}), {0.0f, -0.0f, 0.0f});
    VectorFlt const v = normalized({infinity, 1.0f, -2.0f});
    EXPECT_TRUE(std::isnan(v.x));
    EXPECT_EQ(v.y, 0.0f);
    EXPECT_EQ(v.z, 0.0f);
}

TEST(VectorFlt, SpreadsNaN)
{
    VectorFlt const v = normalized({std::numeric_limits<float>::quiet_NaN(), 1.0f, 2.0f});
    EXPECT_TRUE(std::isnan(v.x) && std::isnan(v.y) && std::isnan(v.z));
}

TEST(ProjMatrix, IsZeroWhenMadeFromZero)
{
    ProjMatrix const matrix(0.0);
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(std::bit_cast<std::uint64_t>(matrix.data()[i]), 0u) << i;
}

TEST(ProjMatrix, IsAMultipleOfTheIdentityWhenMadeFromANumber)
{
    ProjMatrix const matrix(2.5);
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            EXPECT_EQ(matrix(row, column), row == column ? 2.5 : 0.0);
}

TEST(ProjMatrix, StoresItsElementsRowByRow)
{
    ProjMatrix matrix(0.0);
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            matrix(row, column) = 10 * row + column;
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            EXPECT_EQ(matrix.data()[4 * row + column], 10 * row + column);
    EXPECT_EQ(sizeof matrix, 16 * sizeof(double));

    matrix.data()[4 * 1 + 2] = -1.0;
    EXPECT_EQ(matrix(1, 2), -1.0);
}

TEST(ProjMatrix, ComparesEveryElement)
{
    for (int i = 0; i < 16; ++i) {
        ProjMatrix matrix(1.0);
        EXPECT_EQ(matrix, ProjMatrix(1.0));
        matrix.data()[i] = 3.0;
        EXPECT_NE(matrix, ProjMatrix(1.0)) << i;
    }
}

TEST(ProjMatrix, IsNotMadeFromANumberByAccident)
{
    EXPECT_FALSE((std::is_convertible_v<double, ProjMatrix>));
}

}  // namespace koLinear
