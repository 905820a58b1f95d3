// Low-pass filter of whole images, at a cost that does not depend on the diameter.
//
// Rows first, then columns; both directions filter every channel of a line by itself, alpha like the others.
// The kernel comes from four boxes whose half-widths follow from the diameter D, with f = D / 2 + 1 / 2:
//
//   box          a            b             c             d
//   half-width   65 / 256 f   122 / 256 f   176 / 256 f   f       a, b, c to the nearest, d downwards
//
// Clamped kernel: the sum of the four centred boxes, a staircase. D = 5 makes the half-widths 1, 1, 2, 3:
//
//                +---+---+---+
//                | 4   4   4 |
//            +---+           +---+
//            | 2               2 |
//        +---+                   +---+
//        | 1                       1 |    weights; their sum is 2 (a + b + c + d) + 4 = 18
//   -----+---+---+---+---+---+---+---+-----
//   offset -3  -2  -1   0   1   2   3
//
// Samples beyond an end of the line are left out, and the sum is divided by the weights that remain.
//
// Wrapped kernel: the mean of the eight samples at +-a, +-b, +-c and +-d, modulo the length of the line.
// It is another kernel on purpose: the centre counts only through boxes of half-width 0.
//
// The order of the additions is part of the result. Clamped lines keep one running sum, from zero:
//
//   at each position o, from -d to the last pixel of the line:
//     each box of a, b, c, d whose sample o + half-width lies in the line adds it;
//     for o >= 0, output o is the sum times the single-precision reciprocal of the number of samples in it;
//     each box of a, b, c, d whose sample o - half-width lies in the line subtracts it.
//
// Wrapped lines add the samples in the order +a, -a, +b, -b, +c, -c, +d, -d to zero and multiply by 1/8.
#pragma once

#include "koImage/export.h"
#include "koImage/image/image.h"
#include "koImage/image/pixel_dispatch.h"

namespace koImage {

/// What imageBlur supports.
using BlurPixels = PixelList<unsigned char, Byte4, Half4, float, Float3>;

static_assert(!BlurPixels::contains(PixelTypeId::Float4), "left out on purpose");

/// Blurs source into result: along rows with the wrapped kernel if wrapX, along columns if wrapY, else with
/// the clamped one.
///
///   types     result must have the type of source, else nothing happens; an unsupported type leaves result
///             with source's size, its pixels unwritten
///   shape     result takes source's size and may be source itself; an image without pixels, or whose rows
///             do not fit its array, leaves the pixels of result unwritten
///   diameter  any value. 0 is no blur; negative half-widths count as 0, wide ones are not shortened.
///             From 24 million on the half-widths leave the integer range one after the other and become 0
///   bytes     sums are exact, modulo 2^32; both passes drop the fraction. A constant image may lose 1
///   halves    each addition and each subtraction rounds to half; the product is single precision, rounded
///             to half after each pass. A sum beyond 65504 is infinite up to the end of its line
///   floats    single precision. The sum's own rounding shows, even with diameter 0: x can come back as
///             (x + x + x + x) / 4, and what a bright pixel has rounded away stays away
///   NaN       spreads to the end of its line; sign and payload are not defined
///   cost      eight samples a pixel and pass, whatever the diameter; one temporary image
KOIMAGE_EXPORT void imageBlur(Image const& source, Image& result, int diameter, bool wrapX, bool wrapY);

/// The diameter to blur with before the image is reduced to width x height: the larger ratio of the sizes
/// plus 1, truncated. 0 when the image is enlarged in either direction.
///
///   failure   none; sizes of 0 and less give diameters without meaning
//
// The name is part of the interface, to the letter.
KOIMAGE_EXPORT int suggestFilterDiamater(Image const& image, int width, int height);

}  // namespace koImage
