// Per-pixel arithmetic of two images.
//
// imageAdd, imageSub, imageMult and imageDiv, in this order:
//   - a, b and result have one pixel type; if not, nothing happens;
//   - result is given a's size, before anything else is looked at;
//   - an unsupported type, or a b of another size, leaves it at that: pixels unwritten, nothing reported;
//   - every channel is a (op) b, alpha like the others; no clamping, no premultiplication.
//
// result may be a or b: a pixel is written after both pixels of its index are read. The order above then is
// visible: a result that is also b and has another shape but as many pixels takes a's shape first, and its
// pixels are combined in storage order. A result that borrows its pixels gets an array of its own, undefined
// pixels in it, before it is read.
//
// Numbers: Float3 and Float4 are IEEE single precision; halves are computed in single precision and converted
// back, so a zero result is +0 and ties round away from zero. Division by zero gives infinity or NaN. The
// sign and payload of a NaN are not defined, every other bit is.
//
// Cost: one pass at memory speed, no allocation beyond the result's. Results of 16 MiB and more are written
// past the cache unless they are an operand too.
#pragma once

#include "koImage/export.h"
#include "koImage/image/pixel_dispatch.h"
#include "koImage/image/typed_image.h"

namespace koImage {

/// What imageAdd, imageSub and imageMult support; integers are left out on purpose.
using AddPixels = PixelList<Half4, Float3, Float4>;

/// What imageDiv supports.
using DivPixels = PixelList<unsigned char, Half4, Float3, Float4>;

/// result = a + b
KOIMAGE_EXPORT void imageAdd(Image const& a, Image const& b, Image& result);

/// result = a - b
KOIMAGE_EXPORT void imageSub(Image const& a, Image const& b, Image& result);

/// result = a * b
KOIMAGE_EXPORT void imageMult(Image const& a, Image const& b, Image& result);

/// result = a / b
///
///   bytes     255 * a / b to the nearest integer, in single precision; a where b is 0. Not clamped: a > b
///             keeps the low 8 bits, so 2 / 1 gives 254 and 255 / 1 gives 1
KOIMAGE_EXPORT void imageDiv(Image const& a, Image const& b, Image& result);

/// result = the smaller value of a and b at each pixel
///
///   shape     a and b of different sizes leave result as it is, its size included
///   pixels    result is given a's size even where a or b holds no pixels
KOIMAGE_EXPORT void imageMin(TypedImage<unsigned char> const& a, TypedImage<unsigned char> const& b,
                             TypedImage<unsigned char>& result);

/// result = the larger value; otherwise as imageMin.
KOIMAGE_EXPORT void imageMax(TypedImage<unsigned char> const& a, TypedImage<unsigned char> const& b,
                             TypedImage<unsigned char>& result);

}  // namespace koImage
