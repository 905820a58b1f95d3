// Ready reflectance functions.
//
// The lobes depend on one angle, alpha, between the light and the mirrored direction of the viewer:
//
//   cos alpha = cos theta_i cos theta_o - sin theta_i sin theta_o cos phi
//
// theta_i of the light, theta_o of the viewer, phi between them. Seen along the normal, as specular maps are,
// alpha is theta_i; seen from elsewhere the lobe is turned with the mirrored viewer, and goes on smoothly as
// theta_o passes 90 degrees. Samples at phi and -phi are the same.
//
// All of them have a colour that multiplies the samples. Where one of its channels is 0 there is no specular
// map: see ReflectanceFunction::sample.
//
// Lobes much narrower than the steps of the grid, 1.8 degrees, would fall between its samples, and maps of
// degree 20 cannot show them. So the sharpness of each has a limit.
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

/// The Phong lobe S = (n + 1) / (2 pi) * max(0, cos alpha)^n.
///
///   scale     light of radiance 1 from everywhere gives 1: the integral of cos^n over the hemisphere is
///             2 pi / (n + 1). The samples make it 0.9995 for n = 5, 0.983 for 200
///   exponent  n, from 0 to maxExponent; others count as the nearer end, NaN as 0
///   source    [1], scaled as in [2]; the cosine of the light is left to the lobe
class KOIMAGE_EXPORT PhongLobe final : public ReflectanceFunction {
public:
    static constexpr double maxExponent = 200.0;

    explicit PhongLobe(double exponent, Double3 colour = {1.0, 1.0, 1.0});
    Double3 sample(ReflectanceSamples& samples) const override;

private:
    double exponent_;
    Double3 colour_;
};

/// A matt surface: S = max(0, cos theta_i) / pi, the same for every viewer. Light of radiance 1 from
/// everywhere gives 1.
class KOIMAGE_EXPORT Lambert final : public ReflectanceFunction {
public:
    explicit Lambert(Double3 colour = {1.0, 1.0, 1.0});
    Double3 sample(ReflectanceSamples& samples) const override;

private:
    Double3 colour_;
};

/// The microfacet lobe of the GGX distribution, as it is seen along the normal.
///
///   derivation  A microfacet surface reflects D G F / (4 cos theta_i cos theta_o) [3, equation 20]; times
///               cos theta_i, at cos theta_o = 1, without Fresnel's factor, S = D G / 4. The facets that
///               mirror light from alpha to the viewer are tilted by half of alpha. With c = cos alpha > 0:
///
///                 h = (1 + c) / 2                                squared cosine of the tilt
///                 D = a^2 / (pi ((a^2 - 1) h + 1)^2)             [3, equation 33]
///                 G = 2 c / (c + sqrt(a^2 + (1 - a^2) c^2))      [3, equation 34], of the light alone:
///                                                                nothing hides a facet from above
///
///               and S = 0 elsewhere.
///   scale       light of radiance 1 from everywhere gives what the facets send back at the first bounce:
///               0.99 for roughness 0.3, 0.92 for 0.5, 0.31 for 1
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
    using Function = std::function<Double3(double thetaIn, double thetaOut, double phi)>;

    /// The function must not be empty.
    explicit CallableReflectance(Function function, Double3 colour = {1.0, 1.0, 1.0});
    Double3 sample(ReflectanceSamples& samples) const override;

private:
    Function function_;
    Double3 colour_;
};

}  // namespace koImage
