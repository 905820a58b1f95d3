// Filling the holes of an 8-bit image from the pixels that are known.
#pragma once

#include "koImage/export.h"
#include "koImage/image/typed_image.h"

namespace koImage {

/// Replaces every pixel of `values` whose mask is 0, a hole, by what the known pixels of its row and of its
/// column suggest: on each of the two lines the straight line between the nearest known pixels on both sides,
/// or the value of the nearest one where only one side has any. A hole that both lines reach gets their mean.
/// Holes in an empty row and an empty column wait for a second sweep, which takes all that the first one
/// filled as known. One known pixel is therefore enough to fill the whole image.
///
///   mask      any value but 0 marks a known pixel; known pixels keep their values
///   shape     both images of one size, else nothing happens; nor does anything without a known pixel
///   numbers   single precision, then whole numbers: 10.5 becomes 10, as does the mean of 10 and 11
///   cost      linear and in memory order: a sweep passes over the rows once, and over the columns there and
///             back; two temporary images of the same size
///   failure   none reported; images without pixels, and two images on the same memory, stay as they are
KOIMAGE_EXPORT void imageInterpolate(TypedImage<unsigned char> const& mask,
                                     TypedImage<unsigned char>& values);

}  // namespace koImage
