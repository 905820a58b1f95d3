// The matrices that tilt spherical harmonics, and the text file that holds them.
//
// The matrix of degree l at tilt theta has an entry for every pair of orders m and n, -l to l:
//
//   R_mn(theta) = integral over the sphere of Y_lm(Ry(theta) w) Y_ln(w) dw
//
// with the harmonics of harmonics.h (their full square root of 2) and Ry(theta) the rotation about the y axis
// that takes the z axis to (sin theta, 0, cos theta). Rows m are the orders of the world, columns n those of
// the tilted surface. By Wigner's small d, for mu and nu above 0:
//
//   R[ mu][ nu] = d(mu, nu) + (-1)^nu d(mu, -nu)      R[mu][0] = sqrt 2 d(mu, 0)      R[0][0] = d(0, 0)
//   R[-mu][-nu] = d(mu, nu) - (-1)^nu d(mu, -nu)      R[0][nu] = sqrt 2 d(0, nu)      other signs: 0
//
// The transposed matrices would turn every specular map by 180 degrees about the z axis.
//
// The file: for each degree l = 0 .. 20 and, within it, each tilt t pi / 100, t = 0 .. 99, two integers that
// nobody reads (ours: l and t) and the (2 l + 1)^2 entries, row by row; all separated by white space.
// 1,234,100 entries.
#pragma once

#include "koBase/error.h"
#include "koBase/progress.h"
#include "koImage/export.h"

namespace koImage {

/// Loads the matrices from a file, once for the process; true where they are loaded, now or before.
///
///   file      read as fscanf would with "%d %d" for the integers and "%lf " for the entries, whatever the
///             locale. Only the opening is checked: entries that the file does not give are 0. See
///             verifyRotationMatrixFile
///   progress  l / 20 before each even degree l, and 1 at the end
///   failure   a file that cannot be opened: a line on standard output, and false; the next call tries again.
///             Lack of memory throws std::bad_alloc
///   threads   one at a time, and not during computeReflectionCoeffs
///   cost      about an eighth of the time of fscanf; 10 MB until finalizeReflectance
KOIMAGE_EXPORT bool initializeReflectance(char const* path, koUtil::Progress* progress);

/// Releases the matrices: the next initializeReflectance loads a file again.
KOIMAGE_EXPORT void finalizeReflectance();

/// R_mn of degree l at tilt t pi / 100, as loaded; 0 where nothing is loaded and outside l = 0 .. 20,
/// |m|, |n| <= l, t = 0 .. 99.
KOIMAGE_EXPORT double rotationMatrixEntry(int l, int m, int n, int t);

/// Writes the file that initializeReflectance reads.
///
///   numbers   each entry within 1e-14, as the shortest text that reads back as the same double
///   file      about 14 MB, there as a whole or not at all: one that stood there stays until then
///   progress  from 0 to 1
///   failure   an error that tells the file and the reason
///   source    the recurrence in the degree of Wigner's d, as in M. A. Blanco et al., Evaluation of the
///             rotation matrices in the basis of real spherical harmonics, 1997; it is stable upwards
[[nodiscard]] KOIMAGE_EXPORT koUtil::Error writeRotationMatrixFile(char const* path,
                                                                   koUtil::Progress* progress);

/// Whether a file is complete, well-formed and holds these matrices, to the six decimals of "%lf".
///
///   failure   an error that tells the file, the line and the reason
[[nodiscard]] KOIMAGE_EXPORT koUtil::Error verifyRotationMatrixFile(char const* path);

}  // namespace koImage
