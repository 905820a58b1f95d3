#include "koImage/envmap/cross_map.h"

#include <gtest/gtest.h>

namespace koImage {

namespace {

TEST(CrossMap, HasNoFaceInItsEmptyCells)
{
    CrossMap const map(64, false);
    int face = 7;
    float fu;
    float fv;
    EXPECT_FALSE(map.crossToCube(0.1f, 0.1f, face, fu, fv));
    EXPECT_EQ(face, -1);
}

}  // namespace

}  // namespace koImage
