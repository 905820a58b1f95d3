// The averages beside the definition, one dependent addition after the other, on ordinary pixels and on data
// that leave the fast ways least to do.

#include "koImage/ops/average.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <cmath>

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
    auto const image = imageOf<Pixel>({4096, 2048});
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

float normal(Random& random)
{
    return static_cast<float>(random() >> 8) * 0x1p-23f - 1.0f;
}

void BM_averageMixedSigns(benchmark::State& state)
{
    bench<float>(state, normal);
}

/// Whole numbers to 255: from 2^25 on every fourth is a tie.
void BM_averageWholeNumbers(benchmark::State& state)
{
    bench<float>(state, [](Random& random) { return static_cast<float>(random() & 255); });
}

/// The sum reaches 2^27 with the first value; then all are half its unit.
void BM_averageAllTies(benchmark::State& state)
{
    bench<float>(state,
                 [first = true](Random&) mutable { return std::exchange(first, false) ? 0x1.8p27f : 8.0f; });
}

/// The sum is as large as its summands all the time: every block has to be added one by one.
void BM_averageAlternating(benchmark::State& state)
{
    bench<float>(state, [sign = 1.0f](Random& random) mutable {
        sign = -sign;
        return sign * (1.0f + static_cast<float>(random() >> 8) * 0x1p-24f);
    });
}

/// Any power of two, so that blocks are taken and refused in turn.
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

void BM_averageZeros(benchmark::State& state)
{
    bench<float>(state, [](Random&) { return 0.0f; });
}

void BM_averageAfterNan(benchmark::State& state)
{
    bench<float>(state, [first = true](Random&) mutable {
        return std::exchange(first, false) ? std::numeric_limits<float>::infinity() : 1.0f;
    });
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

}  // namespace

BENCHMARK_TEMPLATE(BM_average, float)->UseManualTime();
BENCHMARK_TEMPLATE(BM_average, unsigned char)->UseManualTime();
BENCHMARK_TEMPLATE(BM_average, Half4)->UseManualTime();
BENCHMARK_TEMPLATE(BM_average, Byte4)->UseManualTime();
BENCHMARK_TEMPLATE(BM_average, Float3)->UseManualTime();
BENCHMARK_TEMPLATE(BM_average, Float4)->UseManualTime();

BENCHMARK(BM_averageMixedSigns)->UseManualTime();
BENCHMARK(BM_averageWholeNumbers)->UseManualTime();
BENCHMARK(BM_averageAllTies)->UseManualTime();
BENCHMARK(BM_averageAlternating)->UseManualTime();
BENCHMARK(BM_averageAnyMagnitude)->UseManualTime();
BENCHMARK(BM_averageSubnormals)->UseManualTime();
BENCHMARK(BM_averageZeros)->UseManualTime();
BENCHMARK(BM_averageAfterNan)->UseManualTime();
BENCHMARK(BM_averageBlackBytes)->UseManualTime();
BENCHMARK(BM_averageWhiteBytes)->UseManualTime();

}  // namespace koImage
