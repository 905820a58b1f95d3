// Pictures of a reflection map, and the whole way from probe and sampled reflectance to the picture, beside
// their definition.
#include "koImage/lighting/specular_map.h"

#include "koImage/lighting/coefficients.h"
#include "koImage/lighting/reflection_coeffs.h"
#include "koImage/testing/lighting_by_hand.h"
#include "koImage/testing/loaded_rotations.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <benchmark/benchmark.h>

namespace koImage {

using namespace testing;

namespace {

constexpr std::array<double, 3> fromAbove = {0, 0, 1};

void BM_computeSpecularMap(benchmark::State& state)
{
    auto const map = randomImage<HarmonicsPixel>({200, 100}, 1);
    auto const picture = imageOf<Float3>({200, 100});
    sideBySide(
        state, {20000, 20000 * std::int64_t{sizeof(HarmonicsPixel)}},
        [&] { computeSpecularMap(*map, fromAbove.data(), 10, 1, *picture); },
        [&] { specularMapByHand(*map, fromAbove, 10, 1, *picture); });
}
BENCHMARK(BM_computeSpecularMap)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_pipeline(benchmark::State& state)
{
    LoadedRotations const rotations;
    auto const matrices = rotationsByHand();
    auto const probe = randomImage<Float3>({200, 100}, 1);
    auto const samples = randomReflectance(2);
    koUtil::ThreadPool pool(static_cast<int>(state.range(0)));
    sideBySide(
        state, {20000, 0},
        [&] {
            SphericalHarmonics<Double3> light(20);
            koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
            auto const map = imageOf<HarmonicsPixel>({0, 0});
            auto const picture = imageOf<Float3>({200, 100});
            computeLightCoeffs(*probe, light);
            computeBrdfCoeffs(samples, brdf, 10);
            computeReflectionCoeffs(light, brdf, 20, 10, *map, nullptr, pool);
            computeSpecularMap(*map, fromAbove.data(), 10, 1, *picture);
        },
        [&] {
            koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
            auto const map = imageOf<HarmonicsPixel>({0, 0});
            auto const picture = imageOf<Float3>({200, 100});
            brdfByHand(samples, brdf, 10);
            reflectionByHand(lightByHand(*probe), brdf, matrices, 20, *map);
            specularMapByHand(*map, fromAbove, 10, 1, *picture);
        });
}
BENCHMARK(BM_pipeline)->UseManualTime()->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace koImage
