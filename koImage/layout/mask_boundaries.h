// Outlines of the inside of a mask, by marching squares on the corners of its pixels.
//
// A pixel is inside where its value is 128 or more; beyond the image everything is outside. Pixel (i, j)
// covers [i, i + 1] x [j, j + 1], so the outlines run through the corners (c, r), 0 <= c <= width, 0 <= r <=
// height, in unit steps, with the inside on the right of a walker who sees columns run right and rows run
// down.
//
//   c-1   c
//  +----+----+
//  |    |    |  r - 1     a corner is left by a fixed table of the four pixels around it and of the
//  +----o----+            direction in which it was entered. Where two inside pixels meet at a corner
//  |    |    |  r         only, each keeps its own outline: the inside is 4-connected, the outside
//  +----+----+            8-connected.
#pragma once

#include "koBase/containers.h"
#include "koImage/export.h"
#include "koImage/image/typed_image.h"

namespace koImage {

/// One closed outline. The last vertex is the first again.
struct Boundary3d {
    /// Three floats a vertex: column, row, 0. Straight runs have no vertices inside.
    ko::vector<float> points;
    /// Two floats a vertex: unit steps from the first vertex, 0.
    ko::vector<float> parameters;
};

/// Replaces the list by the outlines of the mask, those of holes among them, in the order of their first
/// corners row by row.
///
///   shape     an image without pixels, or whose sizes are not those of its array, has no outlines
///   cost      one pass over the mask, 64 pixels at a time, and a few steps for each unit of outline;
///             temporary memory of three bits a corner. A list that held outlines lends their memory to the
///             new ones
///   source    Lorensen and Cline 1987, in two dimensions, without interpolation
KOIMAGE_EXPORT void computeMaskBoundaries(TypedImage<unsigned char> const& mask,
                                          ko::list<Boundary3d>& boundaries);

}  // namespace koImage
