#include "koImage/envmap/environment_map.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

namespace koImage {

namespace {

using testing::imageOf;

TEST(NewEnvironmentMap, KnowsASphereByItsSquareImage)
{
    auto const image = imageOf<float>({256, 256});
    ko::Reference<EnvironmentMap> const map(newEnvironmentMap(*image));
    ASSERT_TRUE(map);
    EXPECT_EQ(map->mapType(), EnvironmentMapType::Sphere);
    EXPECT_EQ(map->image(), image.get());
}

}  // namespace

}  // namespace koImage
