// The averages beside the definition, one dependent addition after the other, on ordinary pixels and on data
// that leave the fast ways least to do.

#include "koImage/ops/average.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

namespace koImage {

using namespace testing;

namespace {

float channelValue(float value)
{
    return value;
}
float channelValue(unsigned char value)
{
    return value;
}
float channelValue(half value)
{
    return (value.bits() & 0x7C00) == 0x7C00 ? 1.0f : float(value);
}

/// The sums of the definition, the channels of a pixel side by side.
template <class Pixel>
void definition(TypedImage<Pixel> const& image, float* sums)
{
    using Channel = typename ChannelOf<Pixel>::type;
    constexpr std::size_t channels = sizeof(Pixel) / sizeof(Channel);
    float sum[channels] = {};
    auto const* const values = static_cast<Channel const*>(image.data());
    auto const count = static_cast<std::size_t>(image.pixelCount());
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t c = 0; c < channels; ++c)
            sum[c] += channelValue(values[i * channels + c]);
    std::copy(sum, sum + channels, sums);
}

template <class Pixel, class MakeChannel>
void bench(benchmark::State& state, MakeChannel const& makeChannel)
{
    auto const image = imageOf<Pixel>({static_cast<int>(state.range(0)), static_cast<int>(state.range(1))});
    fillImage(*image, 1, makeChannel);
    std::int64_t const pixels = image->pixelCount();
    sideBySide(
        state, {pixels, pixels * std::int64_t{sizeof(Pixel)}},
        [&] { benchmark::DoNotOptimize(imageAverage(*image)); },
        [&] {
            float sums[4];
            definition(*image, sums);
            benchmark::DoNotOptimize(sums);
        });
}

template <class Pixel>
void BM_average(benchmark::State& state)
{
    bench<Pixel>(state, randomChannel<typename ChannelOf<Pixel>::type>);
}

// Floats that are hard on the blocks

void BM_averageMixedSigns(benchmark::State& state)
{
    bench<float>(state, [](Random& random) { return randomChannel<float>(random) - 1.0f; });
}

/// Whole numbers to 255: from 2^25 on every fourth is a tie.
void BM_averageWholeNumbers(benchmark::State& state)
{
    bench<float>(state, [](Random& random) { return static_cast<float>(random() & 255); });
}

/// The first value puts the sum where every other value is half a unit.
void BM_averageAllTies(benchmark::State& state)
{
    bench<float>(state, [value = 0x1.8p27f](Random&) mutable { return std::exchange(value, 8.0f); });
}

/// Every value is taken away again by the next, so no block fits between two powers of two.
void BM_averageAlternating(benchmark::State& state)
{
    bench<float>(state, [value = 0.0f](Random& random) mutable {
        value = value > 0.0f ? -value : randomChannel<float>(random) + 1.0f;
        return value;
    });
}

/// Powers of two of either sign: blocks are taken and refused in turn.
void BM_averageAnyMagnitude(benchmark::State& state)
{
    bench<float>(state, [](Random& random) {
        float const magnitude = std::ldexp(1.0f, static_cast<int>(random() % 40));
        return random() % 2 ? magnitude : -magnitude;
    });
}

void BM_averageSubnormals(benchmark::State& state)
{
    bench<float>(state, [](Random& random) {
        return std::bit_cast<float>(static_cast<std::uint32_t>(random()) >> 10);
    });
}

void BM_averageInfinite(benchmark::State& state)
{
    bench<float>(state, [value = std::numeric_limits<float>::infinity()](Random&) mutable {
        return std::exchange(value, 1.0f);
    });
}

void BM_averageBlack(benchmark::State& state)
{
    bench<float>(state, [](Random&) { return 0.0f; });
}

// Bytes

void BM_averageBlackBytes(benchmark::State& state)
{
    bench<unsigned char>(state, [](Random&) { return static_cast<unsigned char>(0); });
}

void BM_averageWhiteBytes(benchmark::State& state)
{
    bench<unsigned char>(state, [](Random&) { return static_cast<unsigned char>(255); });
}

void sizes(benchmark::internal::Benchmark* bench)
{
    bench->UseManualTime()->Args({256, 128})->Args({4096, 2048});
}

}  // namespace

BENCHMARK_TEMPLATE(BM_average, float)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_average, unsigned char)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_average, Half4)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_average, Byte4)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_average, Float3)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_average, Float4)->Apply(sizes);

BENCHMARK(BM_averageMixedSigns)->Apply(sizes);
BENCHMARK(BM_averageWholeNumbers)->Apply(sizes);
BENCHMARK(BM_averageAllTies)->Apply(sizes);
BENCHMARK(BM_averageAlternating)->Apply(sizes);
BENCHMARK(BM_averageAnyMagnitude)->Apply(sizes);
BENCHMARK(BM_averageSubnormals)->Apply(sizes);
BENCHMARK(BM_averageBlack)->Apply(sizes);
BENCHMARK(BM_averageInfinite)->Apply(sizes);
BENCHMARK(BM_averageBlackBytes)->Apply(sizes);
BENCHMARK(BM_averageWhiteBytes)->Apply(sizes);

}  // namespace koImage
