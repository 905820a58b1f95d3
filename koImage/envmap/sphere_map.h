// The sphere as a disc: what a mirrored ball shows from afar, with angles kept along its radii.
//
//   v = 1  +-----------------+
//          |    .  +y  .     |     centre         -y
//          | .     +z     .  |     half radius    the circle of +x, +z, -x, -z
//          |               +y|     rim            +y, all around
//          |+y -x  -y  +x    |     outside        no direction
//          |               . |
//          | .     -z     .  |
//          |    .  +y  .     |
//   v = 0  +-----------------+
//        u = 0             u = 1
//
// With x = 2u - 1, y = 2v - 1, r = sqrt(x^2 + y^2), phi = atan2(y, x), theta = r * pi:
//
//   dir = (cos phi sin theta, -cos theta, sin phi sin theta)
#pragma once

#include "koImage/envmap/environment_map.h"

namespace koImage {

class KOIMAGE_EXPORT SphereMap final : public EnvironmentMap {
public:
    explicit SphereMap(int size) : SphereMap(size, size) {}
    SphereMap(int width, int height);

    /// Whether (u - 0.5)^2 + (v - 0.5)^2 <= 0.25. On the very rim this may differ from r <= 1, by which
    /// coordToDir decides: the two formulas round differently, on purpose.
    bool isValidCoord(float u, float v) const override;

    /// The weight is omegaFactor sin(theta) / theta; at the centre, where |theta| < 0.0001, omegaFactor.
    bool coordToDir(float u, float v, koLinear::VectorFlt& dir) const override;
    bool coordToDir(float u, float v, koLinear::VectorFlt& dir, float& weight,
                    bool wantWeight) const override;

    /// With rho = sqrt(x^2 + z^2) and the double k = acos(-y) / (2 rho pi): u = k x + 0.5, v = k z + 0.5.
    /// Where rho is 0, u = v = 0.5: the centre stands for +y too, on purpose.
    void dirToCoord(koLinear::VectorFlt const& dir, float& u, float& v) const override;

    /// Solid angle of one pixel at the centre [sr]: (2 pi / height) * (2 pi / width).
    float omegaFactor() const { return omegaFactor_; }

    /// Sets omegaFactor again, for an image of that size.
    void computeOmegaFactor(int width, int height);

private:
    float omegaFactor_ = 0.0f;
};

}  // namespace koImage
