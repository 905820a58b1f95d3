// Filling a whole image with white or black.
//
// White is opaque and black fully transparent where there is an alpha channel:
//
//   pixels             white                          black
//   unsigned char      255                            0
//   Byte4              255 in every channel           0
//   unsigned int       255, not the largest integer   0
//   Int4               255 in every channel           0
//   Half4              1 in every channel             0
//   float              1                              0
//   Float3, Float4     1 in every channel             0
//   Double3            as if they were Float4, see below
//   any other type     stays as it is
//
// Double3 images are filled as if they held as many Float4 pixels: of 24 bytes a pixel the first 16 are
// written (n pixels: the first n * 16 bytes of the array), and two floats of 1 side by side are no double
// of 1. Who needs a white or black Double3 image fills it by hand.
//
//   shape   any; all pixelCount() pixels, whatever the rows say
//   cost    one pass, no allocation; large white images are written past the cache
#pragma once

#include "koImage/export.h"
#include "koImage/image/image.h"

namespace koImage {

KOIMAGE_EXPORT void fillWhite(Image& image);
KOIMAGE_EXPORT void fillBlack(Image& image);

}  // namespace koImage
