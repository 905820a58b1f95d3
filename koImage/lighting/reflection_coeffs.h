// The reflection map: light and reflectance combined for every orientation of a surface.
#pragma once

#include "koBase/array_n.h"
#include "koBase/progress.h"
#include "koBase/thread_pool.h"
#include "koImage/export.h"
#include "koImage/image/pixel_types.h"
#include "koImage/image/typed_image.h"
#include "koImage/lighting/spherical_harmonics.h"

namespace koImage {

/// Makes the reflection map: 200 x 100 pixels, pixel (x, t) for a surface that is tilted by t pi / 100 and
/// then turned by x pi / 100 about the z axis, each the expansion to degree 10 of the light that it sends
/// back over the directions of view in its own frame.
///
///   light       computeLightCoeffs; degrees that it does not hold count as 0
///   brdf        computeBrdfCoeffs
///   lightOrder  the highest degree of the light that is used: 20 in the pipeline, larger counts as 20, below
///               0 every coefficient is 0
///   brdfOrder   has no effect: all output degrees to 10 are made
///   out         gets its size here
///   progress    0.5, 0.75, 0.9
///   numbers     double precision. Each coefficient (p, q) of a row is sum over j of A_j cos(j phi) +
///               B_j sin(j phi), added from j = 0 up. A_j and B_j are sums over the degrees l of rotation
///               matrix times light times reflectance, for orders -j and j in turn. The same bits for every
///               thread count
///   threads     the parts of the pool make rows of their own
///   failure     without rotation matrices (initializeReflectance), or with a brdf that is not 21 x 21 x 21,
///               out stays as it is. Lack of memory throws std::bad_alloc
///   cost        about 45 ms on one thread; 58 MB for the map and 0.6 MB for each thread
KOIMAGE_EXPORT void computeReflectionCoeffs(SphericalHarmonics<Double3> const& light,
                                            koUtil::ArrayN<3, Double3> const& brdf, int lightOrder,
                                            int brdfOrder, TypedImage<HarmonicsPixel>& out,
                                            koUtil::Progress* progress,
                                            koUtil::ThreadPool& pool = koUtil::ThreadPool::get());

}  // namespace koImage
