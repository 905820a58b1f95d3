#include "koImage/lighting/reflectance_function.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace koImage {

namespace {

class Nothing final : public ReflectanceFunction {
public:
    Double3 sample(ReflectanceSamples&) const override { return {}; }
};

}  // namespace

TEST(ReflectanceFunction, HasTheKeyZeroUntilItIsGivenAnother)
{
    Nothing function;
    EXPECT_EQ(function.getKey(), 0);
    function.setKey(-7);
    EXPECT_EQ(function.getKey(), -7);
}

TEST(ReflectanceFunction, IsComparedByItsKeyAlone)
{
    Nothing a;
    Nothing b;
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a < b);
    b.setKey(1);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(b < a);
    a.setKey(-2147483648);
    EXPECT_TRUE(a < b);
}

TEST(ReflectanceEnergy, IsTheTripleSumOfSquares)
{
    ReflectanceSamples samples(100, 100, 200);
    std::mt19937 random(1);
    double expected[3] = {};
    for (int i = 0; i < 100; ++i)
        for (int j = 0; j < 100; ++j)
            for (int k = 0; k < 200; ++k) {
                double values[3];
                for (double& value : values)
                    value = static_cast<double>(random()) * 0x1p-32 - 0.25;
                samples(i, j, k) = {values[0], values[1], values[2]};
                double const step = std::acos(-1.0) / 100;
                double const weight = std::sin(i * step) * std::sin(j * step) * step * step * step;
                for (int c = 0; c < 3; ++c)
                    expected[c] += weight * values[c] * values[c];
            }
    Double3 const energy = reflectanceEnergy(samples);
    EXPECT_NEAR(energy.r, expected[0], 1e-12 * expected[0]);
    EXPECT_NEAR(energy.g, expected[1], 1e-12 * expected[1]);
    EXPECT_NEAR(energy.b, expected[2], 1e-12 * expected[2]);
}

TEST(ReflectanceEnergy, OfOneIsTwoPiTimesFour)
{
    // The integral of the sine from 0 to pi is 2; its left-end sum is 0.99992 of that.
    ReflectanceSamples samples(100, 100, 200);
    samples.fill({1.0, 2.0, 0.0});
    Double3 const energy = reflectanceEnergy(samples);
    double const expected = 8.0 * std::acos(-1.0);
    EXPECT_NEAR(energy.r, expected, 2e-4 * expected);
    EXPECT_NEAR(energy.g, 4.0 * expected, 8e-4 * expected);
    EXPECT_EQ(energy.b, 0.0);
}

}  // namespace koImage
