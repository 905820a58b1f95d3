// The real spherical harmonics to degree 20, tabulated once for each process on a grid of angles.
//
//   theta_t = t pi / 100, t = 0 .. 99    polar angle, from the z axis; the south pole is not on the grid
//   phi_j   = j pi / 100, j = 0 .. 199   azimuth, from the x axis towards y
//
//   Y_lm(theta, phi) = N P_l|m|(cos theta) * | sqrt 2 cos(m phi)     m > 0
//                                            | 1                     m = 0
//                                            | sqrt 2 sin(|m| phi)   m < 0
//
// with N^2 = (2 l + 1) / (4 pi) * (l - |m|)! / (l + |m|)!, and P with the Condon-Shortley phase: Y_11 is
// negative at +x, Y_1-1 at +y.
//
// For every function here:
//   degree    l = 0 .. 20, order m = -l .. l; others give 0
//   index     a position on the grid of an angle, whole or between two samples. A fraction below 0.0001
//             counts as none; any other takes both neighbours, linearly. Beyond an end the last sample
//             counts: the azimuth does not wrap around
//   numbers   double precision, sqrt 2 excepted, which is 1.4142136
//   threads   any; the first call of any function fills the tables
//   cost      two or four reads; the tables take 0.5 MB
#pragma once

#include "koImage/export.h"

namespace koImage::harmonics {

inline constexpr int maxDegree = 20;
inline constexpr int polarSamples = 100;
inline constexpr int azimuthSamples = 200;

/// Fills the tables. Calls after the first return at once.
KOIMAGE_EXPORT void setup();

/// Y_lm: legendrePart times azimuthPart, each interpolated along its own angle.
KOIMAGE_EXPORT double Y(int l, int m, double thetaIndex, double phiIndex);

/// N P_l|m|(cos theta), times sqrt 2 where m is not 0.
KOIMAGE_EXPORT double legendrePart(int l, int m, double thetaIndex);
KOIMAGE_EXPORT double legendrePart(int l, int m, int t);

/// cos(m phi) for m >= 0, sin(|m| phi) for m < 0; -20 <= m <= 20.
KOIMAGE_EXPORT double azimuthPart(int m, double phiIndex);

/// The polar part of the complex harmonics: N P_l|m|(cos theta), times (-1)^m where m is below 0.
KOIMAGE_EXPORT double signedLegendre(int l, int m, double thetaIndex);
KOIMAGE_EXPORT double signedLegendre(int l, int m, int t);

}  // namespace koImage::harmonics
