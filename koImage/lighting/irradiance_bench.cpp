// Irradiance beside its definition, pixel by pixel: a direction for each, then 27 sums.

#include "koImage/lighting/irradiance.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <cstdint>

namespace koImage {

using namespace testing;

namespace {

Float3 weighted(Float3 const& p, float weight)
{
    return {p.r * weight * 0.31830987f, p.g * weight * 0.31830987f, p.b * weight * 0.31830987f};
}

Float3 weighted(Half4 const& p, float weight)
{
    auto const channel = [weight](half h) {
        return float(half(float(half(float(h) * weight)) * 0.31830987f));
    };
    return {channel(p.r), channel(p.g), channel(p.b)};
}

void add(Float3& sum, Float3 const& c, float constant, float first = 1.0f, float second = 1.0f)
{
    sum.r += constant * c.r * first * second;
    sum.g += constant * c.g * first * second;
    sum.b += constant * c.b * first * second;
}

template <class Pixel>
void definition(EnvironmentMap const& map, Float3* sums)
{
    Image const& image = *map.image();
    Pixel const* pixel = pixelsOf<Pixel>(image).data();
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x, ++pixel) {
            koLinear::VectorFlt d;
            float weight = 0.0f;
            if (!map.coordToDir((static_cast<float>(x) + 0.5f) * image.invWidth(),
                                (static_cast<float>(y) + 0.5f) * image.invHeight(), d, weight, true))
                continue;
            Float3 const c = weighted(*pixel, weight);
            add(sums[0], c, 0.282095f);
            add(sums[1], c, -0.488603f, d.y);
            add(sums[2], c, 0.488603f, d.z);
            add(sums[3], c, -0.488603f, d.x);
            add(sums[4], c, 1.092548f, d.x, d.y);
            add(sums[5], c, -1.092548f, d.y, d.z);
            add(sums[6], c, 0.315392f, 3.0f * d.z * d.z - 1.0f);
            add(sums[7], c, -1.092548f, d.x, d.z);
            add(sums[8], c, 0.546274f, d.x * d.x - d.y * d.y);
        }
}

template <class Pixel>
void BM_irradiance(benchmark::State& state)
{
    auto const image =
        randomImage<Pixel>({static_cast<int>(state.range(0)), static_cast<int>(state.range(1))}, 1);
    ko::Reference<EnvironmentMap> const map = newEnvironmentMap(*image);
    std::int64_t const pixels = image->pixelCount();
    sideBySide(
        state, {pixels, pixels * std::int64_t{sizeof(Pixel)}},
        [&] {
            IrradianceAlg alg;
            alg.accumulate(*map);
            benchmark::DoNotOptimize(alg);
        },
        [&] {
            Float3 sums[9] = {};
            definition<Pixel>(*map, sums);
            benchmark::DoNotOptimize(sums);
        });
}

/// Lat-long maps that fit the cache and that do not, a disc and a cross.
void sizes(benchmark::internal::Benchmark* bench)
{
    bench->UseManualTime()->Args({200, 100})->Args({2048, 1024})->Args({1024, 1024})->Args({768, 1024});
}

}  // namespace

BENCHMARK_TEMPLATE(BM_irradiance, Float3)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_irradiance, Half4)->Apply(sizes);

}  // namespace koImage
