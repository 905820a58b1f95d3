// A run of pixels on its way into the irradiance sums. Private.
#pragma once

#include "koImage/image/pixel_types.h"

#include <array>
#include <cstddef>

namespace koImage {

/// Unit directions and weighted colours of up to `capacity` pixels, in storage order.
struct IrradianceRun {
    static constexpr std::size_t capacity = 256;

    alignas(64) std::array<float, capacity> x;
    alignas(64) std::array<float, capacity> y;
    alignas(64) std::array<float, capacity> z;
    // One more than the capacity: vector code reads four floats for the last colour too.
    std::array<Float3, capacity + 1> colour;
    std::size_t count = 0;
};

}  // namespace koImage
