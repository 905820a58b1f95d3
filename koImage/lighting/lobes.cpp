#include "koImage/lighting/lobes.h"

#include "koImage/lighting/harmonics_tables.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <numbers>
#include <utility>

namespace koImage {

namespace {

using std::numbers::pi;

/// Fills the samples with colour * lobe(cos theta), and with 0 below the horizon.
template <class Lobe>
Double3 sampleLobe(ReflectanceSamples& samples, Double3 const& colour, Lobe const& lobe)
{
    auto const& cosines = harmonics::tables().polarCos;
    for (int i = 0; i < harmonics::polarSamples; ++i) {
        double const c = cosines[static_cast<std::size_t>(i)];
        double const value = c > 0.0 ? lobe(c) : 0.0;
        std::fill_n(&samples(i, 0, 0), samples.stride(0),
                    Double3{colour.r * value, colour.g * value, colour.b * value});
    }
    return reflectanceEnergy(samples);
}

}  // namespace

PhongLobe::PhongLobe(double exponent, Double3 colour)
    : exponent_(exponent > 0.0 ? std::min(exponent, maxExponent) : 0.0),
      colour_(colour)
{
}

Double3 PhongLobe::sample(ReflectanceSamples& samples) const
{
    double const scale = (exponent_ + 1.0) / (2.0 * pi);
    return sampleLobe(samples, colour_, [&](double c) { return scale * std::pow(c, exponent_); });
}

Lambert::Lambert(Double3 colour) : colour_(colour) {}

Double3 Lambert::sample(ReflectanceSamples& samples) const
{
    return sampleLobe(samples, colour_, [](double c) { return c / pi; });
}

GgxLobe::GgxLobe(double roughness, Double3 colour)
    : roughness_(roughness < 1.0 ? std::max(roughness, minRoughness) : 1.0),
      colour_(colour)
{
}

Double3 GgxLobe::sample(ReflectanceSamples& samples) const
{
    double const a = roughness_ * roughness_;
    double const a2 = a * a;
    return sampleLobe(samples, colour_, [a2](double c) {
        double const h = (1.0 + c) / 2.0;
        double const base = (a2 - 1.0) * h + 1.0;
        double const distribution = a2 / (pi * base * base);
        double const shadowing = 2.0 * c / (c + std::sqrt(a2 + (1.0 - a2) * c * c));
        return distribution * shadowing / 4.0;
    });
}

CallableReflectance::CallableReflectance(Function function, Double3 colour)
    : function_(std::move(function)),
      colour_(colour)
{
    assert(function_);
}

Double3 CallableReflectance::sample(ReflectanceSamples& samples) const
{
    constexpr double step = 0.031415926535897934;  // pi / 100
    for (int i = 0; i < harmonics::polarSamples; ++i)
        for (int j = 0; j < harmonics::polarSamples; ++j)
            for (int k = 0; k < harmonics::azimuthSamples; ++k) {
                Double3 const value = function_(i * step, j * step, k * step);
                samples(i, j, k) = {value.r * colour_.r, value.g * colour_.g, value.b * colour_.b};
            }
    return reflectanceEnergy(samples);
}

}  // namespace koImage
