// Projections beside their definition. A pixel of the figures is one of the probe, or one sample of the
// reflectance.
#include "koImage/lighting/coefficients.h"

#include "koImage/testing/lighting_by_hand.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <benchmark/benchmark.h>

namespace koImage {

using namespace testing;

namespace {

void BM_computeLightCoeffs(benchmark::State& state)
{
    auto const probe = randomImage<Float3>({200, 100}, 1);
    SphericalHarmonics<Double3> light(20);
    sideBySide(
        state, {20000, 20000 * std::int64_t{sizeof(Float3)}}, [&] { computeLightCoeffs(*probe, light); },
        [&] { light = lightByHand(*probe); });
}
BENCHMARK(BM_computeLightCoeffs)->UseManualTime();

void BM_computeBrdfCoeffs(benchmark::State& state)
{
    auto const samples = randomReflectance(1);
    koUtil::ArrayN<3, Double3> coeffs(21, 21, 21);
    sideBySide(
        state, {samples.size(), samples.size() * std::int64_t{sizeof(Double3)}},
        [&] { computeBrdfCoeffs(samples, coeffs, 10); }, [&] { brdfByHand(samples, coeffs, 10); });
}
BENCHMARK(BM_computeBrdfCoeffs)->UseManualTime();

}  // namespace

}  // namespace koImage
