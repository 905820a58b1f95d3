#include "koImage/lighting/spherical_harmonics.h"

#include "koImage/image/pixel_types.h"

#include <gtest/gtest.h>

#include <limits>

namespace koImage {

TEST(SphericalHarmonics, HoldsTheCoefficientsUpToItsDegree)
{
    EXPECT_EQ(SphericalHarmonics<double>(0).size(), 1);
    EXPECT_EQ(SphericalHarmonics<double>(2).size(), 9);
    EXPECT_EQ(SphericalHarmonics<Double3>(20).size(), 441);
    EXPECT_EQ(SphericalHarmonics<Double3>(20).order(), 20);
}

TEST(SphericalHarmonics, KeepsCoefficientsByDegreeAndThenOrder)
{
    SphericalHarmonics<double> harmonics(20);
    SphericalHarmonics<double> const& reading = harmonics;
    int index = 0;
    for (int l = 0; l <= 20; ++l)
        for (int m = -l; m <= l; ++m, ++index) {
            EXPECT_EQ(&harmonics.at(l, m), &harmonics[index]) << l << ", " << m;
            EXPECT_EQ(&reading.at(l, m), &reading[index]) << l << ", " << m;
        }
    EXPECT_EQ(index, harmonics.size());
}

TEST(SphericalHarmonics, StartsAtZeroAndCopiesByValue)
{
    SphericalHarmonics<Double3> harmonics(3);
    for (int i = 0; i < harmonics.size(); ++i)
        EXPECT_EQ(harmonics[i], (Double3{0, 0, 0})) << i;

    SphericalHarmonics<Double3> copy = harmonics;
    copy[5] = {1, 2, 3};
    EXPECT_EQ(harmonics[5], (Double3{0, 0, 0}));
    harmonics = copy;
    EXPECT_EQ(harmonics[5], (Double3{1, 2, 3}));
}

TEST(SphericalHarmonics, OfANegativeDegreeHoldsNothing)
{
    EXPECT_EQ(SphericalHarmonics<double>(-1).size(), 0);
    EXPECT_EQ(SphericalHarmonics<double>(std::numeric_limits<int>::min()).size(), 0);
}

TEST(SphericalHarmonics, RefusesADegreeWithMoreCoefficientsThanAnIntCounts)
{
    EXPECT_THROW(SphericalHarmonics<char>{46340}, std::bad_array_new_length);
    EXPECT_THROW(SphericalHarmonics<char>{std::numeric_limits<int>::max()}, std::bad_array_new_length);
}

}  // namespace koImage
