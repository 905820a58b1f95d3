// Mirroring an image in place. Pixels move whole, as bytes: no value changes.
//
// An image without pixels stays as it is, and so does one whose rows are not all in its array: those of
// negative width, and those whose width x height exceeds 32 bits.
//
//   cost   one pass, no allocation
#pragma once

#include "koImage/export.h"
#include "koImage/image/image.h"
#include "koImage/image/pixel_dispatch.h"

namespace koImage {

/// Reverses the order of the rows; the middle row of an odd height stays.
///
///   pixels   every type
KOIMAGE_EXPORT void imageFlipVertical(Image& image);

/// Reverses the pixels of each row; the middle pixel of an odd width stays.
///
///   pixels   FlipHorizontalPixels; any other type stays as it is
KOIMAGE_EXPORT void imageFlipHorizontal(Image& image);

using FlipHorizontalPixels =
    PixelList<unsigned char, Byte4, unsigned int, Int4, Half4, float, Float3, Float4>;
static_assert(!FlipHorizontalPixels::contains(PixelTypeId::Double3), "left out on purpose");

}  // namespace koImage
