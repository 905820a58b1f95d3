// Filling one environment map from another, between any two shapes.
#pragma once

#include "koImage/envmap/environment_map.h"
#include "koImage/export.h"
#include "koImage/image/pixel_dispatch.h"

namespace koImage {

/// What remap supports.
using RemapPixels = PixelList<Half4, float, Float3, Float4>;

static_assert(!RemapPixels::contains(PixelTypeId::Byte4), "left out on purpose");

/// Overwrites every pixel of the destination's image: with the source's image sampled (sampleBilinear) in the
/// direction that the destination gives the centre of the pixel; with 0 in every channel where it gives none
/// (outside the disc, in the empty cells of a cross).
///
/// One sample a pixel: where the destination is much coarser than the source, resize the source first.
///
///   types     both images of one type of RemapPixels, else nothing happens
///   shape     of any two sizes. Nothing happens where either map has no image, either image no pixels, or
///             the destination's rows do not fit its array
///   edges     by the wrap flags of the source's image, as newEnvironmentMap sets them
///   aliasing  the images may share pixels: pixels are filled in storage order, each after its sample is read
///   failure   none reported
///   cost      one pass, no allocation
KOIMAGE_EXPORT void remap(EnvironmentMap const& source, EnvironmentMap& destination);

}  // namespace koImage
