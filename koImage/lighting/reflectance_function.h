// What a surface does with light, as image-based lighting asks for it.
#pragma once

#include "koBase/array_n.h"
#include "koImage/export.h"
#include "koImage/image/pixel_types.h"

namespace koImage {

/// A reflectance on the grid of angles, 100 x 100 x 200 samples: element (i, j, k) is
///
///   S(theta_i, theta_j, phi_k),   theta_i = i pi / 100,   theta_j = j pi / 100,   phi_k = k pi / 100
///
/// for light from theta_i and a viewer at theta_j, both measured from the surface normal, phi apart in
/// azimuth. S [1/sr] is the bidirectional reflectance times the cosine of theta_i: radiance L from the solid
/// angle w sends L S w to the viewer.
///
/// Both polar angles run to nearly 180 degrees. Light from below the surface counts nothing: S is 0 beyond 90
/// degrees of theta_i. But viewers there are part of the expansion: an S that is cut off beyond 90 degrees of
/// theta_j makes maps too bright by an eighth. Let it go on smoothly.
using ReflectanceSamples = koUtil::ArrayN<3, Double3>;

/// The base class of all reflectances, and the key under which their specular maps are kept.
class KOIMAGE_EXPORT ReflectanceFunction {
public:
    // The order of the virtual operations is binding.

    ReflectanceFunction() = default;
    virtual ~ReflectanceFunction();

    /// Fills all samples and returns their energy, reflectanceEnergy(samples), of which the expansion
    /// captures a part. A component of 0 says that there is no specular part, and so no specular map.
    virtual Double3 sample(ReflectanceSamples& samples) const = 0;

    /// 0 at first. Functions with equal keys share one specular map: give each its own.
    void setKey(int key) { key_ = key; }
    int getKey() const { return key_; }

    // By key alone, on purpose.
    friend bool operator<(ReflectanceFunction const& a, ReflectanceFunction const& b)
    {
        return a.key_ < b.key_;
    }
    friend bool operator==(ReflectanceFunction const& a, ReflectanceFunction const& b)
    {
        return a.key_ == b.key_;
    }

protected:
    ReflectanceFunction(ReflectanceFunction const&) = default;
    ReflectanceFunction& operator=(ReflectanceFunction const&) = default;

private:
    int key_ = 0;
};

/// The integral of S^2 sin theta_i sin theta_j over both polar angles and the azimuth, for each channel.
///
///   numbers  the sum over the samples times (pi / 100)^3, as the coefficients are integrated: each sample
///            stands for the step that it begins. So the squares of all coefficients add up to it.
KOIMAGE_EXPORT Double3 reflectanceEnergy(ReflectanceSamples const& samples);

}  // namespace koImage
