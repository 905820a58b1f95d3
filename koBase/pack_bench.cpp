#include "koBase/pack.h"

#include <benchmark/benchmark.h>

#include <random>

namespace {

// Sides in 8 .. 128. The share of the area that the layout uses stands beside the time.
void BM_pack(benchmark::State& state)
{
    std::mt19937 random(1);
    ko::vector<koUtil::IntRange2d> tiles;
    double area = 0;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        int const width = 8 + static_cast<int>(random() % 121);
        int const height = 8 + static_cast<int>(random() % 121);
        tiles.push_back({0, 0, width, height});
        area += width * height;
    }
    koUtil::IntRange2d used;
    for (auto _ : state)
        used = koUtil::pack(tiles, false);
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["share"] = area / (static_cast<double>(used.width) * used.height);
}

}  // namespace

BENCHMARK(BM_pack)->RangeMultiplier(10)->Range(100, 100000)->Unit(benchmark::kMillisecond);
