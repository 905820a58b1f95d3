// Benchmarks as ratios: ours and a yardstick, in turn, in one run.
//
// Machines are shared and noisy, so a time alone says little. sideBySide times both pieces of work
// alternately and reports, beside our own time:
//
//   ratio    median time of the yardstick / median time of ours: above 1 we are faster
//   ns/px    median time of ours per pixel
//   yard     the yardstick's median, per pixel
//   allocs   allocations of one call of ours, its results sized beforehand
//   new B/px their bytes per pixel
#pragma once

#include "koImage/image/pixel_array.h"
#include "koImage/testing/allocations.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

namespace koImage::testing {

struct Work {
    std::int64_t pixels;  // per call
    std::int64_t bytes;   // read and written per call
};

template <class F>
double secondsOf(F const& work)
{
    auto const start = std::chrono::steady_clock::now();
    work();
    benchmark::ClobberMemory();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double medianOf(std::vector<double>& values)
{
    auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// The benchmark must be registered with UseManualTime().
template <class Ours, class Yardstick>
void sideBySide(benchmark::State& state, Work work, Ours const& ours, Yardstick const& yardstick)
{
    ours();  // first touch of the results is not measured
    yardstick();
    releaseKeptPixelMemory();  // what is kept would not be asked for
    Allocations const allocations = allocationsOf(ours);

    std::vector<double> ourTimes;
    std::vector<double> yardTimes;
    for (auto _ : state) {
        yardTimes.push_back(secondsOf(yardstick));
        ourTimes.push_back(secondsOf(ours));
        state.SetIterationTime(ourTimes.back());
    }

    double const our = medianOf(ourTimes);
    double const yard = medianOf(yardTimes);
    auto const pixels = static_cast<double>(work.pixels);
    state.SetItemsProcessed(state.iterations() * work.pixels);
    state.SetBytesProcessed(state.iterations() * work.bytes);
    state.counters["ratio"] = yard / our;
    state.counters["ns/px"] = our * 1e9 / pixels;
    state.counters["yard"] = yard * 1e9 / pixels;
    state.counters["allocs"] = static_cast<double>(allocations.count);
    state.counters["new B/px"] = static_cast<double>(allocations.bytes) / pixels;
}

}  // namespace koImage::testing
