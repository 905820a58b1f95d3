// The sphere as a map of latitude and longitude, twice as wide as high.
//
//   v = 1  +--------+--------+--------+--------+   z = +1, the whole row
//          |        |        |        |        |
//          |+y      |+x      |-y      |-x    +y|   z = 0
//          |        |        |        |        |
//   v = 0  +--------+--------+--------+--------+   z = -1, the whole row
//        u = 0     0.25     0.5      0.75    u = 1
//
// With latitude a = (2v - 1) pi / 2, c = max(0, cos a), and longitude b = (2u - 1) pi:
//
//   dir = (-sin b * c, -cos b * c, sin a)
#pragma once

#include "koImage/envmap/environment_map.h"

#include <algorithm>
#include <cmath>

namespace koImage {

class KOIMAGE_EXPORT LatLongMap final : public EnvironmentMap {
public:
    LatLongMap(int width, int height);

    /// True everywhere.
    bool isValidCoord(float u, float v) const override;

    /// True everywhere; the weight is c * omegaFactor. u = 0 exactly is taken for 1, and 1 for 0: the two
    /// columns of the seam change places, on purpose.
    bool coordToDir(float u, float v, koLinear::VectorFlt& dir) const override;
    bool coordToDir(float u, float v, koLinear::VectorFlt& dir, float& weight,
                    bool wantWeight) const override;

    /// With lat = asin(z) and lon = atan2(-x, -y): u = (lon / pi + 1) / 2, v = (2 lat / pi + 1) / 2. The
    /// signs of zeros choose the side of the seam.
    void dirToCoord(koLinear::VectorFlt const& dir, float& u, float& v) const override;

    /// The angles a and b above. Rows share the one, columns the other.
    static float latitude(float v) { return (2.0f * v - 1.0f) * pi * 0.5f; }
    static float longitude(float u)
    {
        // The columns of the seam change places, as above. Not a wrap: 0 becomes 1.
        float const seen = u == 0.0f ? 1.0f : u == 1.0f ? 0.0f : u;
        return (2.0f * seen - 1.0f) * pi;
    }

    /// The c above, of a latitude.
    static float cosineOfLatitude(float a) { return std::max(0.0f, static_cast<float>(std::cos(double{a}))); }

    /// Solid angle of one pixel at the equator [sr]: (pi / height) * (2 pi / width).
    float omegaFactor() const { return omegaFactor_; }

    /// Sets omegaFactor again, for an image of that size.
    void computeOmegaFactor(int width, int height);

private:
    float omegaFactor_ = 0.0f;
};

}  // namespace koImage
