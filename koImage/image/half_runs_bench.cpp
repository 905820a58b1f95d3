// Conversion of runs, beside three yardsticks:
//
//   singles    a loop of single conversions
//   memcpy     a copy that moves as many bytes
//   streaming  a copy that moves as many bytes and writes them past the cache
//
// A pixel of the figures is one value. Half of the subnormal data are subnormal halves, in no order.
#include "koImage/image/half_runs.h"

#include "koImage/image/pixel_array.h"
#include "koImage/image/streaming.h"
#include "koImage/testing/side_by_side.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>

namespace koImage {

using namespace testing;

namespace {

enum class Data { Ordinary, Subnormal };
enum class Yardstick { Singles, Memcpy, Streaming };

constexpr int bytesPerValue = sizeof(float) + sizeof(half);

/// Memory as images have it.
template <class T>
auto arrayOf(int count)
{
    auto const release = [count](T* values) { deletePixelArray(values, count); };
    return std::unique_ptr<T[], decltype(release)>(newPixelArray<T>(count), release);
}

void fill(float* floats, int count, Data data)
{
    std::mt19937 random(1);
    for (int i = 0; i < count; ++i) {
        bool const small = data == Data::Subnormal && random() % 2 == 0;
        floats[i] = static_cast<float>(random() >> 8) * (small ? 0x1p-38f : 0x1p-23f);
    }
}

template <class From, class To>
void convertSingly(From const* from, To* to, int count)
{
    for (int i = 0; i < count; ++i)
        to[i] = from[i];
}

/// Runs `ours` beside the yardstick; `singles` is the loop for the same arrays.
template <class Ours, class Singles>
void compare(benchmark::State& state, int count, Yardstick yardstick, Ours const& ours,
             Singles const& singles)
{
    Work const work{count, std::int64_t{count} * bytesPerValue};
    if (yardstick == Yardstick::Singles) {
        sideBySide(state, work, ours, singles);
        return;
    }

    // Half of the bytes are read and half written. A multiple of 64 values, so of 64 bytes.
    int const bytes = count * (bytesPerValue / 2);
    auto const source = arrayOf<char>(bytes);
    auto const target = arrayOf<char>(bytes);
    std::memset(source.get(), 1, static_cast<std::size_t>(bytes));
    sideBySide(state, work, ours, [&] {
        if (yardstick == Yardstick::Memcpy)
            std::memcpy(target.get(), source.get(), static_cast<std::size_t>(bytes));
        else
            streamLines(target.get(), source.get(), static_cast<std::size_t>(bytes));
    });
}

void BM_floatsToHalves(benchmark::State& state, Data data, Yardstick yardstick)
{
    auto const count = static_cast<int>(state.range(0));
    auto const floats = arrayOf<float>(count);
    auto const halves = arrayOf<half>(count);
    fill(floats.get(), count, data);
    compare(
        state, count, yardstick,
        [&] { floatsToHalves(floats.get(), halves.get(), static_cast<std::size_t>(count)); },
        [&] { convertSingly(floats.get(), halves.get(), count); });
}

void BM_halvesToFloats(benchmark::State& state, Data data, Yardstick yardstick)
{
    auto const count = static_cast<int>(state.range(0));
    auto const floats = arrayOf<float>(count);
    auto const halves = arrayOf<half>(count);
    fill(floats.get(), count, data);
    convertSingly(floats.get(), halves.get(), count);
    compare(
        state, count, yardstick,
        [&] { halvesToFloats(halves.get(), floats.get(), static_cast<std::size_t>(count)); },
        [&] { convertSingly(halves.get(), floats.get(), count); });
}

/// 240 KiB in all, which a core's cache holds, and 192 MiB.
void sizes(benchmark::internal::Benchmark* bench)
{
    bench->ArgName("values")->Arg(40 << 10)->Arg(32 << 20)->UseManualTime();
}

BENCHMARK_CAPTURE(BM_floatsToHalves, ordinary_singles, Data::Ordinary, Yardstick::Singles)->Apply(sizes);
BENCHMARK_CAPTURE(BM_floatsToHalves, ordinary_memcpy, Data::Ordinary, Yardstick::Memcpy)->Apply(sizes);
BENCHMARK_CAPTURE(BM_floatsToHalves, ordinary_streaming, Data::Ordinary, Yardstick::Streaming)->Apply(sizes);
BENCHMARK_CAPTURE(BM_floatsToHalves, subnormal_singles, Data::Subnormal, Yardstick::Singles)->Apply(sizes);
BENCHMARK_CAPTURE(BM_floatsToHalves, subnormal_memcpy, Data::Subnormal, Yardstick::Memcpy)->Apply(sizes);
BENCHMARK_CAPTURE(BM_halvesToFloats, ordinary_singles, Data::Ordinary, Yardstick::Singles)->Apply(sizes);
BENCHMARK_CAPTURE(BM_halvesToFloats, ordinary_memcpy, Data::Ordinary, Yardstick::Memcpy)->Apply(sizes);
BENCHMARK_CAPTURE(BM_halvesToFloats, ordinary_streaming, Data::Ordinary, Yardstick::Streaming)->Apply(sizes);
BENCHMARK_CAPTURE(BM_halvesToFloats, subnormal_singles, Data::Subnormal, Yardstick::Singles)->Apply(sizes);
BENCHMARK_CAPTURE(BM_halvesToFloats, subnormal_memcpy, Data::Subnormal, Yardstick::Memcpy)->Apply(sizes);

}  // namespace

}  // namespace koImage
