// The file of rotation matrices: loading beside fscanf on the same file, writing and checking. A pixel of the
// figures is one entry.
#include "koImage/lighting/rotation_matrices.h"

#include "koImage/testing/loaded_rotations.h"
#include "koImage/testing/side_by_side.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <vector>

namespace koImage {

using namespace testing;

namespace {

constexpr std::int64_t entryCount = 1234100;

/// The file as it is written, or with the six decimals of "%lf".
void loadBesideFscanf(benchmark::State& state, std::string const& path)
{
    std::vector<double> table(3530100);
    sideBySide(
        state, {entryCount, static_cast<std::int64_t>(std::filesystem::file_size(path))},
        [&] {
            finalizeReflectance();
            initializeReflectance(path.c_str(), nullptr);
        },
        [&] {
            std::FILE* const file = std::fopen(path.c_str(), "rt");
            for (std::size_t l = 0; l <= 20; ++l)
                for (std::size_t t = 0; t < 100; ++t) {
                    int ignored[2];
                    benchmark::DoNotOptimize(std::fscanf(file, "%d %d", &ignored[0], &ignored[1]));
                    for (std::size_t m = 20 - l; m <= 20 + l; ++m)
                        for (std::size_t n = 20 - l; n <= 20 + l; ++n)
                            benchmark::DoNotOptimize(
                                std::fscanf(file, "%lf ", &table[((l * 41 + m) * 41 + n) * 100 + t]));
                }
            std::fclose(file);
        });
}

void BM_initializeReflectance(benchmark::State& state)
{
    LoadedRotations const rotations;
    loadBesideFscanf(state, rotations.path());
}
BENCHMARK(BM_initializeReflectance)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_initializeReflectanceOfSixDecimals(benchmark::State& state)
{
    LoadedRotations const rotations;
    std::FILE* const file = std::fopen(rotations.path().c_str(), "wt");
    for (int l = 0; l <= 20; ++l)
        for (int t = 0; t < 100; ++t) {
            std::fprintf(file, "%d %d\n", l, t);
            for (int m = -l; m <= l; ++m) {
                for (int n = -l; n <= l; ++n)
                    std::fprintf(file, "%lf ", rotationMatrixEntry(l, m, n, t));
                std::fputc('\n', file);
            }
        }
    std::fclose(file);
    loadBesideFscanf(state, rotations.path());
}
BENCHMARK(BM_initializeReflectanceOfSixDecimals)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_writeRotationMatrixFile(benchmark::State& state)
{
    LoadedRotations const rotations;
    for (auto _ : state)
        if (writeRotationMatrixFile(rotations.path().c_str(), nullptr))
            state.SkipWithError("cannot be written");
    state.SetItemsProcessed(state.iterations() * entryCount);
}
BENCHMARK(BM_writeRotationMatrixFile)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_verifyRotationMatrixFile(benchmark::State& state)
{
    LoadedRotations const rotations;
    for (auto _ : state)
        if (verifyRotationMatrixFile(rotations.path().c_str()))
            state.SkipWithError("found to be wrong");
    state.SetItemsProcessed(state.iterations() * entryCount);
}
BENCHMARK(BM_verifyRotationMatrixFile)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace koImage
