#include "koImage/lighting/reflectance_function.h"

#include "koImage/lighting/harmonics_tables.h"

namespace koImage {

ReflectanceFunction::~ReflectanceFunction() = default;

Double3 reflectanceEnergy(ReflectanceSamples const& samples)
{
    constexpr double step = 0.031415926535897934;  // pi / 100
    auto const addTimes = [](Double3& sum, Double3 const& p, double factor) {
        sum.r += p.r * factor;
        sum.g += p.g * factor;
        sum.b += p.b * factor;
    };

    auto const& sines = harmonics::tables().polarSin;
    Double3 energy{};
    for (int i = 0; i < harmonics::polarSamples; ++i) {
        Double3 overView{};
        for (int j = 0; j < harmonics::polarSamples; ++j) {
            Double3 overAzimuth{};
            Double3 const* const row = &samples(i, j, 0);
            for (int k = 0; k < harmonics::azimuthSamples; ++k)
                addTimes(overAzimuth, {row[k].r * row[k].r, row[k].g * row[k].g, row[k].b * row[k].b}, 1.0);
            addTimes(overView, overAzimuth, sines[static_cast<std::size_t>(j)]);
        }
        addTimes(energy, overView, sines[static_cast<std::size_t>(i)]);
    }
    constexpr double cell = step * step * step;
    return {energy.r * cell, energy.g * cell, energy.b * cell};
}

}  // namespace koImage
