// Light and reflectance as spherical-harmonics coefficients, and how many of them a reflectance needs.
//
// Directions are those of the grid of harmonics.h. All sums are in double precision, one rounded addition
// after the other in the order of their index, so results are defined to the bit (beyond the cosines and
// sines of the C library).
#pragma once

#include "koBase/array_n.h"
#include "koImage/export.h"
#include "koImage/image/pixel_types.h"
#include "koImage/image/typed_image.h"
#include "koImage/lighting/spherical_harmonics.h"

namespace koImage {

/// Projects a light probe onto the real harmonics of degree 0 to 20.
///
///   probe     latitude-longitude, 100 rows: row r lies at polar angle r pi / 100, column x of W at azimuth
///             x 2 pi / W; no half-pixel offset on either axis. Rows beyond 100 are left out; an image
///             without pixels gives zeros
///   out       made of order 20: the integrals of light times Y_lm, left-end sums over both angles
///   numbers   columns first, each with a complex rotor that is multiplied from pixel to pixel; then rows
///   cost      about 0.5 ms for 200 x 100, 0.3 MB
KOIMAGE_EXPORT void computeLightCoeffs(TypedImage<Float3> const& probe, SphericalHarmonics<Double3>& out);

/// Projects a sampled reflectance onto products of harmonics.
///
///   samples   100 x 100 x 200: [i][j][k] for incoming polar angle theta_i, outgoing polar angle theta_j and
///             azimuth difference phi_k
///   coeffs    21 x 21 x 21: [l][p][q] for light degree l, output degree p <= order and q <= min(l, p), the
///             order of both. All others stay as they are
///   order     the highest output degree: 0 to 20, and 10 in the pipeline; larger counts as 20
///   failure   arrays of other dimensions: nothing happens
///   cost      reads the samples once; about 10 ms at order 10, 0.6 MB
KOIMAGE_EXPORT void computeBrdfCoeffs(koUtil::ArrayN<3, Double3> const& samples,
                                      koUtil::ArrayN<3, Double3>& coeffs, int order);

/// How many degrees the coefficients of a reflectance need to hold 97 % of its energy; prints five lines
/// about it to standard output.
///
///   brdf        21 x 21 x 21 coefficients of computeBrdfCoeffs, order 10
///   total       the energy of the reflectance, per channel
///   lightOrder  20, always: what the analysis finds is only printed
///   brdfOrder   the largest output degree that a channel needs, at least 1; 10 where none gets to 97 %
///   failure     an array of other dimensions: both orders are 0, nothing is printed
KOIMAGE_EXPORT void computeOrder(SphericalHarmonics<Double3> const& light,
                                 koUtil::ArrayN<3, Double3> const& brdf, Double3 total, int& lightOrder,
                                 int& brdfOrder);

}  // namespace koImage
