#include "koImage/image/half.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

namespace koImage {

TEST(Half, RoundTripsThroughFloatExceptForMinusZero)
{
    for (unsigned bits = 0; bits <= 0xFFFF; ++bits) {
        auto const h = half::fromBits(static_cast<std::uint16_t>(bits));
        EXPECT_EQ(half(static_cast<float>(h)).bits(), bits == 0x8000 ? 0u : bits) << std::hex << bits;
    }
}

}  // namespace koImage
