// Files and listings for whoever wants to look into the lighting: see checkpoint.h for its stages.
//
// Nothing in the library calls these. They change no state; each writes files into the working directory, or
// prints.
//
//   map      a reflection map of any size W x H: pixel (x, t) belongs to the surface that is tilted by
//            t pi / H and turned by x 2 pi / W, see reflection_coeffs.h. Its normal is
//            (sin phi sin theta, cos phi sin theta, -cos theta) in the directions of environment maps
//   view     the direction from the surface to the viewer: x, y, z. In the frame of the surface, z is the
//            normal, x points to where the next row faces and y to where the next column faces. In the world,
//            it is a direction of environment maps, of any length; of length 0 or not finite it is (0, 0, 1)
//   light    the expansion of a pixel towards the view, evaluated as computeSpecularMap does; negative light
//            counts as 0; then times scale
//   picture  binary PPM of 8 bits, upright: the rows of the zenith come first. Linear, without a curve:
//            1 shows as 255, rounded; what is brighter as 255, NaN as 0
//   files    appear whole or not at all. NAME is a path without its ending; null counts as empty
//   failure  an error that names the file and tells the reason, or tells that the map has no pixels. Of
//            several files those before the one that failed are there
#pragma once

#include "koBase/error.h"
#include "koImage/export.h"
#include "koImage/image/pixel_types.h"
#include "koImage/image/typed_image.h"
#include "koImage/lighting/checkpoint.h"

namespace koImage {

/// Prints one channel of the coefficients of computeBrdfCoeffs to standard output: for l, p, q = 0 .. 20 with
/// q <= p and q <= l, in that nesting, a line of l, p, q and the coefficient: "%4d %4d %4d %12.6lf\n".
KOIMAGE_EXPORT void printBrdfCoeffs(double const (&coeffs)[21][21][21]);

/// Writes the coefficients of a reflection map, NAME.shrm, and of the surfaces that the pixels of a cube
/// stand for, FACES_nx.shrm, _px, _ny, _py, _nz and _pz.
///
///   text      three lines, red, green and blue: the 121 coefficients of one pixel times scale, each as
///             "%lf " in the C locale. NAME.shrm: of the first pixel; faces: of the surface that faces along
///             the axis
///   samples   behind them, for every pixel, row 0 first: 121 of red, of green, of blue; 16 bits each, the
///             high byte first. A sample is 32768 + 32767 times the coefficient times scale, rounded, where
///             -1 and 1 are the ends and NaN counts as 0. So scale is well chosen as 1 / the largest
///             magnitude
///   NAME      all pixels of the map
///   FACES     faceSize x faceSize pixels, 1 to 1024, of each face of a CrossMap, fv = 0 first: the pixel of
///             the map that is nearest in both angles. _nz is the side of the nadir
///   cost      NAME.shrm takes 726 bytes a pixel, 14.5 MB for 200 x 100
[[nodiscard]] KOIMAGE_EXPORT koUtil::Error printshrms(char const* name, char const* faces, int faceSize,
                                                      TypedImage<HarmonicsPixel> const& map, double scale);

/// tmp.ppm: every surface seen from the same direction in its own frame, W x H pixels. With view (0, 0, 1)
/// and scale 1, the specular map.
[[nodiscard]] KOIMAGE_EXPORT koUtil::Error dumpimage(TypedImage<HarmonicsPixel> const& map,
                                                     double const* view, double scale);

/// tmpref.ppm: every surface seen from the same direction in the world, from behind as well, W x H pixels.
///
///   cost   for a while, a third of the memory of the map
[[nodiscard]] KOIMAGE_EXPORT koUtil::Error dumpimageref(TypedImage<HarmonicsPixel> const& map,
                                                        double const* view, double scale);

/// refp0.ppm to refp10.ppm: tmpref.ppm with the expansions cut off after that degree. refp10.ppm is the same.
[[nodiscard]] KOIMAGE_EXPORT koUtil::Error dumpimagerefp(TypedImage<HarmonicsPixel> const& map,
                                                         double const* view, double scale);

/// tmpjbsphere.ppm: a ball of 200 x 200 pixels, as a distant viewer sees it who stands at `view` in the
/// world. Around it is black. A pixel of the ball shows the nearest pixel of the map.
///
///   up     the zenith; for a viewer straight above or below, +y
///   order  the highest degree that is used
[[nodiscard]] KOIMAGE_EXPORT koUtil::Error dumpjbsphere(TypedImage<HarmonicsPixel> const& map,
                                                        double const* view, int order, double scale);

/// NAME.ppm: the image itself, 1 as 255.
///
///   upright   true: the last row comes first, as in pictures of the other routines. False: row 0 comes first
///   failure   an image without pixels for all its rows is an error
[[nodiscard]] KOIMAGE_EXPORT koUtil::Error dumpImage(char const* name, TypedImage<Float3> const& image,
                                                     bool upright);

/// The expansion of one pixel, (x, t), as two pictures.
///
///   tmpfreq.ppm   its coefficients, 168 x 88 pixels: squares of 8, degree 0 on top, orders -10 to 10 from
///                 left to right. 0 is grey, 1 / scale white and -1 / scale black; so is what is no
///                 coefficient
///   tmp3D.ppm     the light that the surface sends to every viewer above it, as a ball of 200 x 200 pixels:
///                 the middle is seen along the normal, the edge along the surface; x of its frame points to
///                 the right, y up
///   failure       a pixel outside the map is an error
[[nodiscard]] KOIMAGE_EXPORT koUtil::Error dumpimagesphere(TypedImage<HarmonicsPixel> const& map, int x,
                                                           int t, double scale);

/// The same for every tenth pixel of column x: tmpfreq0.ppm and tmp3D0.ppm for t = 0, tmpfreq10.ppm and
/// tmp3D10.ppm for t = 10, and so on.
[[nodiscard]] KOIMAGE_EXPORT koUtil::Error dumpimagesphereall(TypedImage<HarmonicsPixel> const& map, int x,
                                                              double scale);

}  // namespace koImage
