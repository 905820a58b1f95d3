// Sampling beside filling as many samples with one value.
#include "koImage/lighting/lobes.h"

#include "koImage/testing/side_by_side.h"

#include <algorithm>
#include <cmath>

namespace koImage {

using namespace testing;

namespace {

void bench(benchmark::State& state, ReflectanceFunction const& reflectance)
{
    ReflectanceSamples samples(100, 100, 200);
    sideBySide(
        state, {samples.size(), samples.size() * std::int64_t{sizeof(Double3)}},
        [&] { benchmark::DoNotOptimize(reflectance.sample(samples)); },
        [&] {
            samples.fill({0.5, 0.25, 0.125});
        });
}

void BM_samplePhong(benchmark::State& state)
{
    bench(state, PhongLobe(20.0));
}

void BM_sampleGgx(benchmark::State& state)
{
    bench(state, GgxLobe(0.3));
}

void BM_sampleCallable(benchmark::State& state)
{
    bench(state, CallableReflectance([](double in, double, double) {
              double const value = std::max(0.0, std::cos(in));
              return Double3{value, value, value};
          }));
}

}  // namespace

BENCHMARK(BM_samplePhong)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_sampleGgx)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_sampleCallable)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace koImage
