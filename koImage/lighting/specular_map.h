// A picture of a reflection map from one direction of view.
#pragma once

#include "koImage/export.h"
#include "koImage/image/pixel_types.h"
#include "koImage/image/typed_image.h"

namespace koImage {

/// Evaluates every pixel of a reflection map at one direction of view, in the frame of the surface that the
/// pixel stands for.
///
///   view      x, y, z, not normalised; z is clamped to -1 .. 1. The basis is interpolated on the grid of
///             harmonics.h, at most up to 1.0001 samples before the end of the map's rows and columns
///   order     the highest degree that is used: 10 in the pipeline, larger counts as 10; below 0 every
///             pixel is black
///   out       gets the size of the map
///   numbers   sums in double precision, from degree 0 up; negative sums become 0; then times scale, as a
///             float
///   shape     a map without pixels: out is resized, its pixels unwritten
///   cost      one pass over the map, about 5 ms for 200 x 100
KOIMAGE_EXPORT void computeSpecularMap(TypedImage<HarmonicsPixel> const& reflection, double const* view,
                                       int order, double scale, TypedImage<Float3>& out);

}  // namespace koImage
