// The mean of each channel of an image.
#pragma once

#include "koImage/export.h"
#include "koImage/image/image.h"
#include "koImage/image/pixel_dispatch.h"

namespace koImage {

/// What imageAverage supports.
using AveragePixels = PixelList<unsigned char, Byte4, Half4, float, Float3, Float4>;

/// The mean of each channel, in channel order; channels that the pixel type does not have are 0.
///
///   pixels    AveragePixels; any other type: four zeros
///   shape     without pixels (width * height < 1): four zeros, but four NaNs for Half4
///   numbers   sum * (1 / count) in single precision. The sum is defined to the bit: one rounded addition
///             after the other in storage order, bytes included. So it is not the most accurate mean: a
///             value below half a unit of the sum is lost, and from 2^32 on any byte is
///   Byte4     exact sums modulo 2^32, and whole means: 1 and 2 give 1
///   Half4     infinities and NaNs count as 1
///   cost      one pass, no allocation; bytes and floats at several times the speed of dependent additions
KOIMAGE_EXPORT Float4 imageAverage(Image const& image);

}  // namespace koImage
