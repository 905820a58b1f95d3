// Images of another size.
#pragma once

#include "koImage/envmap/sample_bilinear.h"
#include "koImage/image/image.h"

namespace koImage {

/// A new image of width x height pixels made from the source.
///
///   source   ResamplePixels; null for any other type
///   filter   true: sampleBilinear at the centre (u, v) of every new pixel, which honours the source's wrap
///            flags; Byte4 channels are clamped to 255. Reducing averages no more than four pixels: blur
///            first.
///            false: a copy of the source pixel in column trunc(W * (u * s)), row trunc(H * (v * s)), with
///            s = 1 - epsilonTolFlt. A centre that falls exactly between two pixels takes the first.
///   result   like a new image of the type: its own pixels, default wrap flags, reference count 0. The caller
///            owns it.
///   shape    a width or height of zero or less is stored as it is, and no pixel is written. Neither is one
///            when the source has no pixels, or the new pixels are too many for 32 bits
///   cost     no memory but the result; columns' positions are computed once for many rows, a row of copies
///            that repeats is copied whole, and a blended row of the source is kept for as long as it is
///            used. Results of 16 MiB and more go past the cache, unless their memory is new
///   failure  throws the allocator's exception
KOIMAGE_EXPORT Image* resize(Image const& source, int width, int height, bool filter);

}  // namespace koImage
