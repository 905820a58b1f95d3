// PFM from memory beside a copy of its pixels, and to a file beside a file of the same bytes.

#include "koImageIO/testing/bench_files.h"

namespace koImageIO::testing {
namespace {

using koImage::Float3;

template <class Pixel>
void BM_readPfm(benchmark::State& state)
{
    benchReading<Pixel>(state, ".pfm");
}
BENCHMARK_TEMPLATE(BM_readPfm, float)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_readPfm, Float3)->UseManualTime()->Unit(benchmark::kMillisecond);

template <class Pixel>
void BM_writePfm(benchmark::State& state)
{
    benchWriting<Pixel>(state, ".pfm");
}
BENCHMARK_TEMPLATE(BM_writePfm, float)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_writePfm, Float3)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace koImageIO::testing
