#include "koImage/image/factory.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>

namespace koImage::testing {
namespace {

template <class Pixel>
class ImageCreateByType : public ::testing::Test {
};
TYPED_TEST_SUITE(ImageCreateByType, TestTypes<StoredPixels>, ById);

TYPED_TEST(ImageCreateByType, MakesAnEmptyImageOfTheType)
{
    std::unique_ptr<Image> const image(imageCreateByType(pixelTypeIdOf<TypeParam>));
    auto const* const typed = dynamic_cast<TypedImage<TypeParam> const*>(image.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->pixelType(), pixelTypeIdOf<TypeParam>);
    EXPECT_EQ(typed->width(), 0);
    EXPECT_EQ(typed->height(), 0);
    EXPECT_EQ(typed->invWidth(), 1.0f);
    EXPECT_EQ(typed->invHeight(), 1.0f);
    EXPECT_FALSE(typed->wrapHorizontal());
    EXPECT_FALSE(typed->wrapVertical());
    EXPECT_EQ(typed->pixels(), nullptr);
    EXPECT_TRUE(typed->ownsPixels());
    EXPECT_EQ(typed->referenceCount(), 0u);
}

TEST(ImageCreateByType, MakesNothingOfAnyOtherValue)
{
    for (int const id : {9, 10, 100, 255, 256, 65536, -1, -9, std::numeric_limits<int>::max(),
                         std::numeric_limits<int>::min()})
        EXPECT_EQ(imageCreateByType(PixelTypeId{id}), nullptr) << id;
}

}  // namespace
}  // namespace koImage::testing
