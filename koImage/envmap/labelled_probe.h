// A light probe that says which way it is turned: the world that every orientation is checked against.
//
// The six faces of a cube around the viewer, each in a colour of its own with the name of its axis on it,
// black and underlined, and one sun. Names read upright to a viewer who looks along the axis with +z up; at
// the zenith and the nadir, up is what follows from the face -y: +y at +z, -y at -z.
//
//             +--------+
//             |   +z   |     z up
//    +--------+--------+--------+
//    |   +x   |   -y   |   -x   |     the viewer looks along -y: -x is on the right
//    +--------+--------+--------+
//             |   -z   |
//             +--------+
//             |   +y   |     below -z as a vertical cross has it, where it stands on its head
//             +--------+
//
// It is a function of the direction alone, so every shape and size shows the same world: as drawn here in
// lat-long and cross maps, mirrored in sphere maps, which show the view of a ball.
#pragma once

#include "koBase/linear.h"
#include "koImage/envmap/environment_map.h"
#include "koImage/export.h"
#include "koImage/image/pixel_types.h"

namespace koImage {

/// The centre of the sun, of length 1: in the upper right part of the face -y.
inline constexpr koLinear::VectorFlt labelledProbeSun{-8.0f / 17.0f, -12.0f / 17.0f, 9.0f / 17.0f};

/// The cosine of the sun's radius of 4 degrees: a lat-long map of 64 x 32 pixels still shows it.
inline constexpr float labelledProbeSunCosine = 0.99756405f;

/// Radiance of the sun. It fits a half; nothing else in the probe exceeds 1.
inline constexpr Float3 labelledProbeSunlight{400.0f, 360.0f, 280.0f};

/// Radiance of the faces -x, +x, -z, +z, -y, +y, in this order: the numbers of the faces of a cross.
/// Pairs of faces are complements of a kind, and swapped channels make none of one another.
inline constexpr Float3 labelledProbeFaces[] = {{0.1f, 0.65f, 0.7f}, {0.8f, 0.1f, 0.05f},
                                                {0.8f, 0.7f, 0.1f},  {0.2f, 0.3f, 0.95f},
                                                {0.7f, 0.2f, 0.6f},  {0.1f, 0.6f, 0.15f}};

/// The radiance that comes from a direction, which need not be of length 1 unless it points at the sun.
///
///   shape    where directions are as far along two axes, the edges of the cube, x goes before y before z
///   numbers  single precision, additions and multiplications and one division: the same everywhere
///   failure  black for a zero vector
[[nodiscard]] KOIMAGE_EXPORT Float3 labelledProbe(koLinear::VectorFlt const& direction);

/// Draws the probe into the image of a map: one direction for each pixel, that of its centre.
///
///   pixels   Float3; an image of any other type stays as it is
///   shape    any; pixels that have no direction become 0, as after remap
///   cost     one pass, no allocation
KOIMAGE_EXPORT void drawLabelledProbe(EnvironmentMap& map);

}  // namespace koImage
