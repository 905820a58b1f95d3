// Diffuse light from an environment map: nine coefficients of each colour, and the matrices made of them.
//
// The coefficients are those of the real spherical harmonics to degree 2, for the unit direction (x, y, z):
//
//   index    l   m    basis                      index    l   m    basis
//   0        0   0     0.282095                  5        2  -1    -1.092548 y z
//   1        1  -1    -0.488603 y                6        2   0     0.315392 (3 z z - 1)
//   2        1   0     0.488603 z                7        2   1    -1.092548 x z
//   3        1   1    -0.488603 x                8        2   2     0.546274 (x x - y y)
//   4        2  -2     1.092548 x y
//
// Diffuse light is so smooth that they describe it to about one percent [1].
//
// Sources
//   [1] R. Ramamoorthi, P. Hanrahan. An Efficient Representation for Irradiance Environment Maps. SIGGRAPH
//       2001.
//
// Differences from [1]
//   The sums carry 1 / pi: they give radiance, the radiance that a white diffuse surface sends back.
//   The basis functions of odd order m carry a minus sign (the Condon-Shortley phase), but the matrix is that
//   of [1], which has none. So the quadratic form n'Mn, n = (x, y, z, 1), is the light on a surface that
//   faces (-x, -y, z). Stored files and renderers rely on these signs. Whoever wants the light on a surface
//   asks diffuseRadiance, which turns the normal.
#pragma once

#include "koBase/linear.h"
#include "koImage/envmap/environment_map.h"
#include "koImage/export.h"
#include "koImage/image/pixel_dispatch.h"
#include "koImage/image/pixel_types.h"

#include <array>

namespace koImage {

/// The irradiance matrices of the colour channels.
struct KOIMAGE_EXPORT Irradiance {
    koLinear::ProjMatrix red{0.0};
    koLinear::ProjMatrix green{0.0};
    koLinear::ProjMatrix blue{0.0};

    /// All elements 0: no light.
    void clear() { *this = Irradiance(); }

    friend constexpr bool operator==(Irradiance const&, Irradiance const&) = default;
};

/// Which images IrradianceAlg::accumulate reads.
using IrradiancePixels = PixelList<Half4, Float3>;

/// Sums up the light of environment maps. Short-lived: made, fed, read.
class KOIMAGE_EXPORT IrradianceAlg {
public:
    /// All sums 0.
    IrradianceAlg() = default;

    /// Adds the light of a map. Several maps add up.
    ///
    ///   pixels   IrradiancePixels; any other type, or no image: the sums stay as they are
    ///   shape    any size; directions outside the map count nothing, nor do rows that the array lacks
    ///   units    sums of radiance / pi * basis * solid angle [sr] over the map; not normalised
    ///   numbers  single precision, to the bit: pixel after pixel in storage order, each adding to every sum
    ///            ((constant * colour) * first factor) * second factor, where colour is
    ///            (pixel * solid angle) * 0.31830987. What is in parentheses in the table is one factor,
    ///            (3 z) z - 1 for degree 2, order 0
    ///   Half4    (pixel * solid angle) and its product with 0.31830987 round to half
    ///   cost     one pass. A LatLongMap takes its sines and cosines once for every row and column, and two
    ///            doubles of memory for every column; of other maps each pixel's direction is computed
    ///   source   [1], equations 3 and 10, and the differences above
    void accumulate(EnvironmentMap const& map);

    /// out[0 .. 8] = the coefficients in the order of the table.
    void getCoefficients(Float3* out) const;

    /// The matrices, symmetric, in single precision. With L0 .. L8 a channel's coefficients:
    ///
    ///    c1 L8   c1 L4   c1 L7   c2 L3            c1 = 0.429043
    ///    c1 L4  -c1 L8   c1 L5   c2 L1            c2 = 0.511664
    ///    c1 L7   c1 L5   c3 L6   c2 L2            c3 = 0.743125
    ///    c2 L3   c2 L1   c2 L2   c4 L0 - c5 L6    c4 = 0.886227   c5 = 0.247708
    ///
    ///   source   [1], equation 12
    void getMatrices(koLinear::ProjMatrix& red, koLinear::ProjMatrix& green,
                     koLinear::ProjMatrix& blue) const;

    /// The same, into the record.
    void getIrradiance(Irradiance& irradiance) const;

private:
    std::array<Float3, 9> sums_{};
};

/// The radiance that a white diffuse surface with this unit normal sends back.
///
///   direction  the normal is turned to (-x, -y, z) before it meets the matrices: see the differences above.
///              So light from +x is brightest where the normal is +x
///   units      those of the map: light of radiance 1 from everywhere gives 1
///   numbers    double precision, rounded once; negative where the nine coefficients overshoot
KOIMAGE_EXPORT Float3 diffuseRadiance(Irradiance const& irradiance, koLinear::VectorFlt normal);

/// diffuseRadiance for a whole sphere of normals: every pixel of the map's image, for the direction that the
/// pixel stands for. Pixels outside the map become 0.
///
///   pixels   Float3; any other type, or no image: nothing happens
KOIMAGE_EXPORT void computeDiffuseMap(Irradiance const& irradiance, EnvironmentMap& map);

}  // namespace koImage
