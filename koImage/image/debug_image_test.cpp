#include "koImage/image/debug_image.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

namespace koImage::testing {
namespace {

int calls = 0;

void count(char const*, Image const*)
{
    ++calls;
}

TEST(DumpDebugImage, NeverCallsTheStoredFunction)
{
    TypedImage<float> const empty;
    auto const image = randomImage<Byte4>({3, 2}, 1);

    dumpDebugImage("before any function", *image);
    setDebugImageFunction(count);
    dumpDebugImage("image", *image);
    dumpDebugImage("", empty);
    dumpDebugImage(nullptr, *image);
    setDebugImageFunction(nullptr);
    dumpDebugImage("no function", *image);
    EXPECT_EQ(calls, 0);
}

}  // namespace
}  // namespace koImage::testing
