// Premultiplied alpha of raw 8-bit pixels, in place.
//
// Both functions take a buffer of width x height pixels, row after row without padding, and work on pixels of
// four bytes: red, green, blue, alpha. A null buffer, a width or height below 1 and any other number of
// channels are left alone. Alpha never changes.
//
// Colours are computed in single precision, truncated toward zero and clamped to 0 .. 255. Both directions
// truncate, so one after the other need not give the first bytes back: (200, 100, 50, 128) goes to
// (100, 50, 25, 128) and comes back as (199, 99, 49, 128).
//
//   cost   one pass, no allocation
#pragma once

#include "koImage/export.h"

namespace koImage {

/// Colour bytes become byte * (alpha / 255); none exceeds alpha.
KOIMAGE_EXPORT void convert2PreMultipliedAlpha(unsigned char* pixels, int width, int height, int channels);

/// Colour bytes become byte * (255 / alpha). A pixel with alpha 0 keeps its colour.
KOIMAGE_EXPORT void convert2NonPreMultipliedAlpha(unsigned char* pixels, int width, int height, int channels);

}  // namespace koImage
