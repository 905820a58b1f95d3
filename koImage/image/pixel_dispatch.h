// From the pixel type known at run time to the kernel compiled for it.
//
// Each operation names its supported types in one PixelList; the code dispatches over that list and the tests
// run over it.
#pragma once

#include "koImage/image/pixel_types.h"

namespace koImage {

template <class... Pixels>
struct PixelList {
    static constexpr bool contains(PixelTypeId id) { return ((pixelTypeIdOf<Pixels> == id) || ...); }
};

/// The types 0 to 8: what the factory makes and files store.
using StoredPixels =
    PixelList<unsigned char, Byte4, unsigned int, Int4, Half4, float, Float3, Float4, Double3>;

/// Every pixel type.
using AllPixels = PixelList<unsigned char, Byte4, unsigned int, Int4, Half4, float, Float3, Float4, Double3,
                            HarmonicsPixel>;

template <class Pixel>
struct PixelTag {
    using type = Pixel;
};

/// Calls kernel(PixelTag<P>{}) for the P of the list whose id is `id`. Returns false, without a call, when
/// the list holds no such P.
template <class... Pixels, class Kernel>
constexpr bool dispatchPixel(PixelTypeId id, PixelList<Pixels...>, Kernel&& kernel)
{
    return ((pixelTypeIdOf<Pixels> == id && (static_cast<void>(kernel(PixelTag<Pixels>{})), true)) || ...);
}

}  // namespace koImage
