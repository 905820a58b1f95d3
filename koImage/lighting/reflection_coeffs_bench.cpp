// The reflection map on one and two threads beside its definition on one. The map is made anew each time, as
// the pipeline does.
#include "koImage/lighting/reflection_coeffs.h"

#include "koImage/testing/lighting_by_hand.h"
#include "koImage/testing/loaded_rotations.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <benchmark/benchmark.h>

namespace koImage {

using namespace testing;

namespace {

void BM_computeReflectionCoeffs(benchmark::State& state)
{
    LoadedRotations const rotations;
    auto const matrices = rotationsByHand();
    auto const light = lightByHand(*randomImage<Float3>({200, 100}, 1));
    koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
    brdfByHand(randomReflectance(2), brdf, 10);

    koUtil::ThreadPool pool(static_cast<int>(state.range(0)));
    sideBySide(
        state, {20000, 20000 * std::int64_t{sizeof(HarmonicsPixel)}},
        [&] {
            computeReflectionCoeffs(light, brdf, 20, 10, *imageOf<HarmonicsPixel>({0, 0}), nullptr, pool);
        },
        [&] {
            reflectionByHand(light, brdf, matrices, 20, *imageOf<HarmonicsPixel>({0, 0}));
        });
}
BENCHMARK(BM_computeReflectionCoeffs)
    ->UseManualTime()
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace koImage
