#include "koImage/ops/average.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

namespace koImage {

using namespace testing;

TEST(ImageAverage, Quick)
{
    auto const image = randomImage<float>({1000, 1000}, 1);
    float sum = 0;
    for (float x : pixelsOf<float>(*image))
        sum += x;
    EXPECT_EQ(imageAverage(*image).r, sum * (1.0f / 1e6f));
    auto const bytes = randomImage<unsigned char>({8000, 1000}, 1);
    sum = 0;
    for (float x : pixelsOf<unsigned char>(*bytes))
        sum += x;
    EXPECT_EQ(imageAverage(*bytes).r, sum * (1.0f / 8e6f));
}

}  // namespace koImage
