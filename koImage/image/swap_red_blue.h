// The exchange of red and blue in pixels of four bytes, in place: for buffers that come from or go to a
// display system with the other byte order.
//
//   cost   one pass, no allocation
#pragma once

#include "koImage/export.h"
#include "koImage/image/image.h"

namespace koImage {

/// Exchanges bytes 0 and 2 of `count` pixels of four bytes. A null buffer or a count below 1 is left alone.
KOIMAGE_EXPORT void imageSwapRedBlue(char* pixels, int count);

/// Exchanges red and blue of every pixel.
///
///   pixels   Byte4; any other type, floating-point ones included, stays as it is
///   shape    any; all pixelCount() pixels, whatever the rows say
KOIMAGE_EXPORT void imageSwapRedBlue(Image& image);

}  // namespace koImage
