// The lighting object: one specular map beside the pipeline as it is defined, and the light of large probes
// beside copies of them.
#include "koImage/lighting/image_based_lighting.h"

#include "koBase/thread_pool.h"
#include "koImage/lighting/checkpoint.h"
#include "koImage/lighting/lobes.h"
#include "koImage/testing/lighting_by_hand.h"
#include "koImage/testing/loaded_rotations.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <chrono>
#include <cstring>
#include <string_view>
#include <vector>

namespace koImage {

using namespace testing;

namespace {

/// Samples that cost nothing: a function of the user's may take any time.
class Prepared final : public ReflectanceFunction {
public:
    Prepared() : samples_(100, 100, 200), energy_(PhongLobe(20.0).sample(samples_)) {}

    Double3 sample(ReflectanceSamples& samples) const override
    {
        std::memcpy(static_cast<void*>(samples.data()), samples_.data(), sizeof(Double3) * 2000000);
        return energy_;
    }
    ReflectanceSamples const& samples() const { return samples_; }

private:
    ReflectanceSamples samples_;
    Double3 energy_;
};

/// From the light coefficients on; "after sampling" leaves out what the user's function takes and the memory
/// for its samples. The order analysis prints to standard output: send that elsewhere.
void BM_specularMap(benchmark::State& state)
{
    LoadedRotations const rotations;
    Prepared const reflectance;
    auto const probe = randomImage<Float3>({200, 100}, 1);
    auto const light = lightByHand(*probe);
    auto const matrices = rotationsByHand();

    ImageBasedLighting lighting;
    koUtil::Error error;
    lighting.setLightProbe(probe.get(), error);
    lighting.updateLightCoeffs(nullptr);

    static std::chrono::steady_clock::time_point sampled;
    static std::vector<double> afterSampling;
    afterSampling.clear();
    auto const observer = observeCheckpoints([](char const* label) {
        auto const now = std::chrono::steady_clock::now();
        if (std::string_view(label) == "brdf sampling")
            sampled = now;
        if (std::string_view(label) == "view-dependent texture")
            afterSampling.push_back(std::chrono::duration<double, std::milli>(now - sampled).count());
    });
    sideBySide(
        state, {20000, 20000 * std::int64_t{sizeof(Float3)}},
        [&] {
            lighting.deleteUnusedSpecularMaps();
            benchmark::DoNotOptimize(lighting.getSpecularMap(reflectance, nullptr));
        },
        [&] {
            ReflectanceSamples samples(100, 100, 200);
            reflectance.sample(samples);
            koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
            brdfByHand(samples, brdf, 10);
            auto const reflection = imageOf<HarmonicsPixel>({0, 0});
            reflectionByHand(light, brdf, matrices, 20, *reflection);
            auto const map = imageOf<Float3>({200, 100});
            specularMapByHand(*reflection, {0.0, 0.0, 1.0}, 10, 1.0, *map);
        });
    observeCheckpoints(observer);
    state.counters["after sampling"] = medianOf(afterSampling);
    state.counters["threads"] = koUtil::ThreadPool::get().threadCount();
}

/// Blur and reduction, irradiance and light coefficients.
void BM_light(benchmark::State& state)
{
    LoadedRotations const rotations;
    auto const probe =
        randomImage<Float3>({static_cast<int>(state.range(0)), static_cast<int>(state.range(1))}, 1);
    auto const copy = imageOf<Float3>({probe->width(), probe->height()});
    std::int64_t const pixels = probe->pixelCount();
    std::int64_t const bytes = pixels * std::int64_t{sizeof(Float3)};
    sideBySide(
        state, {pixels, bytes},
        [&] {
            ImageBasedLighting lighting;
            koUtil::Error error;
            lighting.setLightProbe(probe.get(), error);
            lighting.updateLightCoeffs(nullptr);
        },
        [&] { std::memcpy(copy->data(), probe->data(), static_cast<std::size_t>(bytes)); });
}

}  // namespace

BENCHMARK(BM_specularMap)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_light)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Args({200, 100})
    ->Args({4096, 2048})
    ->Args({1536, 2048});

}  // namespace koImage
