#include "koImage/envmap/remap.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

namespace koImage {

namespace {

using testing::imageOf;
using testing::randomImage;

TEST(Remap, LeavesTheEmptyCellsOfACrossBlack)
{
    auto const panorama = randomImage<float>({32, 16}, 1);
    auto const cross = randomImage<float>({12, 16}, 2);
    ko::Reference<EnvironmentMap> const from(newEnvironmentMap(*panorama));
    ko::Reference<EnvironmentMap> const to(newEnvironmentMap(*cross));
    remap(*from, *to);
    EXPECT_EQ(cross->pixels()[0], 0.0f);
    EXPECT_NE(cross->pixels()[5], 0.0f);
}

}  // namespace

}  // namespace koImage
