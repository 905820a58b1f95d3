#include "koImage/envmap/sphere_map.h"

#include <gtest/gtest.h>

namespace koImage {

namespace {

TEST(SphereMap, LooksAlongMinusYAtItsCentreWithTheWholeOmegaFactor)
{
    SphereMap const map(64);
    koLinear::VectorFlt dir;
    float weight = 0;
    ASSERT_TRUE(map.coordToDir(0.5f, 0.5f, dir, weight, true));
    EXPECT_EQ(dir, koLinear::VectorFlt(0, -1, 0));
    EXPECT_EQ(weight, map.omegaFactor());
}

}  // namespace

}  // namespace koImage
