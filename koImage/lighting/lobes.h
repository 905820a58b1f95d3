// Ready reflectance functions.
//
// Specular maps are seen along the normal. So each of these is a lobe around the normal, as it is seen along
// it, and the same for every viewer: S depends on the angle theta of the light alone. Lobes that turn with
// the mirrored viewer would look no different there, but would lose all that lies between the 10 degrees to
// which viewers are expanded and the 20 degrees of the light: a narrow highlight would come out a third too
// dark.
//
// All have a colour that multiplies the samples. Where one of its channels is 0 there is no specular map: see
// ReflectanceFunction::sample.
//
// Lobes narrower than the 20 degrees of the light can show, some 9 degrees of angle across, are pointless,
// and much narrower ones fall between the samples, 1.8 degrees apart. So the sharpness of each has a limit.
//
// Sources
//   [1] B. T. Phong. Illumination for Computer Generated Pictures. Communications of the ACM 18 (6), 1975.
//   [2] E. Lafortune, Y. Willems. Using the Modified Phong Reflectance Model for Physically Based Rendering.
//       Report CW 197, K. U. Leuven, 1994.
//   [3] B. Walter, S. Marschner, H. Li, K. Torrance. Microfacet Models for Refraction through Rough Surfaces.
//       Eurographics Symposium on Rendering, 2007.
//   [4] B. Burley. Physically-Based Shading at Disney. SIGGRAPH course notes, 2012.
#pragma once

#include "koImage/export.h"
#include "koImage/lighting/reflectance_function.h"

#include <functional>

namespace koImage {

/// The Phong lobe S = (n + 1) / (2 pi) * max(0, cos theta)^n.
///
///   scale     light of radiance 1 from everywhere gives 1: the integral of cos^n over the hemisphere is
///             2 pi / (n + 1). Its sum over the samples gives 0.9995 for n = 5, 0.983 for 200
///   exponent  n, from 0 to maxExponent; others count as the nearer end, NaN as 0
///   source    [1], scaled as in [2]; the cosine of the light is part of the lobe
class KOIMAGE_EXPORT PhongLobe final : public ReflectanceFunction {
public:
    static constexpr double maxExponent = 200.0;

    explicit PhongLobe(double exponent, Double3 colour = {1.0, 1.0, 1.0});
    Double3 sample(ReflectanceSamples& samples) const override;

private:
    double exponent_;
    Double3 colour_;
};

/// A matt surface: S = max(0, cos theta) / pi. Light of radiance 1 from everywhere gives 1.
class KOIMAGE_EXPORT Lambert final : public ReflectanceFunction {
public:
    explicit Lambert(Double3 colour = {1.0, 1.0, 1.0});
    Double3 sample(ReflectanceSamples& samples) const override;

private:
    Double3 colour_;
};

/// The lobe of facets whose slopes follow the GGX distribution.
///
///   derivation  Facets reflect D G F / (4 cos theta cos theta_o) [3, equation 20]. Times cos theta, along
///               the normal (cos theta_o = 1) and without Fresnel's factor F that is S = D G / 4. The facets
///               that mirror the light into the normal are tilted by half of theta. With c = cos theta
///               above 0:
///
///                 h = (1 + c) / 2                                squared cosine of the tilt
///                 D = a^2 / (pi ((a^2 - 1) h + 1)^2)             [3, equation 33]
///                 G = 2 c / (c + sqrt(a^2 + (1 - a^2) c^2))      [3, equation 34], of the light alone:
///                                                                nothing hides a facet from above
///
///               and S = 0 elsewhere
///   scale       light of radiance 1 from everywhere gives what facets reflect without a second bounce: 0.99
///               for roughness 0.3, 0.92 for 0.5, 0.31 for 1
///   roughness   from minRoughness to 1; others count as the nearer end, NaN as 1. a = roughness^2 [4]
class KOIMAGE_EXPORT GgxLobe final : public ReflectanceFunction {
public:
    static constexpr double minRoughness = 0.2;

    explicit GgxLobe(double roughness, Double3 colour = {1.0, 1.0, 1.0});
    Double3 sample(ReflectanceSamples& samples) const override;

private:
    double roughness_;
    Double3 colour_;
};

/// Any function of the angles [rad], which gives S as ReflectanceSamples asks for it. It is called for every
/// sample, two million times, in storage order; what it throws is passed on.
class KOIMAGE_EXPORT CallableReflectance final : public ReflectanceFunction {
public:
    /// Of the polar angles of light and viewer, and their difference in azimuth.
    using Function = std::function<Double3(double thetaIn, double thetaOut, double phi)>;

    /// The function must not be empty.
    explicit CallableReflectance(Function function, Double3 colour = {1.0, 1.0, 1.0});
    Double3 sample(ReflectanceSamples& samples) const override;

private:
    Function function_;
    Double3 colour_;
};

}  // namespace koImage
