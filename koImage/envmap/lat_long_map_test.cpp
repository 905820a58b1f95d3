#include "koImage/envmap/lat_long_map.h"

#include <gtest/gtest.h>

namespace koImage {

namespace {

TEST(LatLongMap, SwapsTheColumnsOfTheSeam)
{
    LatLongMap const map(64, 32);
    koLinear::VectorFlt left;
    koLinear::VectorFlt right;
    ASSERT_TRUE(map.coordToDir(0.0f, 0.3f, left));
    ASSERT_TRUE(map.coordToDir(1.0f, 0.3f, right));
    EXPECT_GT(left.x, 0.0f);
    EXPECT_EQ(left.x, -right.x);
}

}  // namespace

}  // namespace koImage
