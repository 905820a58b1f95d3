// Large masks of three kinds, for benchmarks and comparisons.
#pragma once

#include "koImage/testing/test_images.h"

#include <array>
#include <cmath>

namespace koImage::testing {

/// A kind of mask: its name, and the value of pixel (x, y).
struct MaskKind {
    char const* name;
    unsigned char (*value)(int x, int y, Random& random);
};

inline constexpr std::array<MaskKind, 3> maskKinds = {{
    {"blobs",
     [](int x, int y, Random&) -> unsigned char {
         double const wave = std::sin(x * 0.031) + std::sin(y * 0.027) + std::sin((x + 2 * y) * 0.013);
         return wave > 0.4 ? 255 : 0;
     }},
    {"solid", [](int, int, Random&) -> unsigned char { return 255; }},
    {"noise", [](int, int, Random& random) { return static_cast<unsigned char>(random()); }},
}};

inline ImageRef<unsigned char> maskOfKind(MaskKind const& kind, Size size)
{
    auto mask = imageOf<unsigned char>(size);
    Random random(1);
    unsigned char* pixel = mask->pixels();
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            *pixel++ = kind.value(x, y, random);
    return mask;
}

}  // namespace koImage::testing
