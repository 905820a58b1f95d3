// Bilinear samples of an image at normalised coordinates.
//
// With s = 1 - epsilonTolFlt, just below 1, so that u = 1 stays inside the last column:
//
//   fx = width * (u * s)      x0 = trunc(fx)     x1 = x0 + 1     tx = fx - x0
//   fy = height * (v * s)     y0 = trunc(fy)     y1 = y0 + 1     ty = fy - y0
//
//   sample = (1 - ty) * ((1 - tx) * P(x0, y0) + tx * P(x1, y0))
//          +      ty  * ((1 - tx) * P(x0, y1) + tx * P(x1, y1))
//
// There is no half-pixel shift, on purpose: at the centre of a pixel (tx = ty = 0.5) the sample is the mean
// of it and of its neighbours at x + 1 and y + 1, half a pixel away from a centred filter. Stored light
// probes are made so.
//
// Edges: where x1 >= width or x0 < -1, x1 becomes x1 mod width (the remainder has the sign of x1) on an image
// that wraps horizontally; otherwise width - 1, or 0 for x0 < -1. Likewise y1. x0 and y0 are never adjusted,
// also on purpose: a coordinate outside 0 .. 1 addresses pixels by their plain index y * width + x, formed in
// 64 bits. Only where that index leaves the array are column and row clamped to the image, and for sizes that
// do not describe the array (negative ones, a product beyond 32 bits) the index to the array. No coordinate,
// NaN included, reads outside the pixels.
#pragma once

#include "koImage/image/pixel_dispatch.h"
#include "koImage/image/typed_image.h"

#include <array>
#include <cstdint>

namespace koImage {

/// The pixel types that can be resampled.
using ResamplePixels = PixelList<Byte4, Half4, float, Float3, Float4>;

/// Red, green, blue and alpha of a Byte4 sample, not yet clamped to a byte.
using Byte4Sample = std::array<std::uint32_t, 4>;

/// The sample of an image at (u, v), by the numbers of its type:
///
///   float     single precision, channel by channel, in the order written above. Float3, Float4 alike
///   Half4     1 - tx and tx are rounded to half first; every product and every sum is rounded to half.
///             1 - ty and ty stay floats
///   Byte4     every product is a float truncated toward zero to an integer, then summed modulo 2^32. From
///             coordinates in 0 .. 1 no channel exceeds 255 and white comes out between 253 and 255;
///             negative sums, from coordinates outside, are their 32-bit patterns
///
///   failure   an image without pixels leaves the sample as it is
///   threads   reads the image only
KOIMAGE_EXPORT void sampleBilinear(TypedImage<Byte4> const& image, float u, float v, Byte4Sample& sample);
KOIMAGE_EXPORT void sampleBilinear(TypedImage<Half4> const& image, float u, float v, Half4& sample);
KOIMAGE_EXPORT void sampleBilinear(TypedImage<float> const& image, float u, float v, float& sample);
KOIMAGE_EXPORT void sampleBilinear(TypedImage<Float3> const& image, float u, float v, Float3& sample);
KOIMAGE_EXPORT void sampleBilinear(TypedImage<Float4> const& image, float u, float v, Float4& sample);

}  // namespace koImage
