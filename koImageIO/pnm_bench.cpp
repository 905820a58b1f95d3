// PPM and PGM of 8 and 16 bits from memory beside a copy of their pixels, and to a file beside a file of the
// same bytes. Words go through the curve, bytes do not.

#include "koImageIO/testing/bench_files.h"

namespace koImageIO::testing {
namespace {

using koImage::Byte4;
using koImage::Float3;

template <class Pixel>
void BM_readPnm(benchmark::State& state)
{
    benchReading<Pixel>(state, ".ppm");
}
BENCHMARK_TEMPLATE(BM_readPnm, unsigned char)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_readPnm, Byte4)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_readPnm, Float3)->UseManualTime()->Unit(benchmark::kMillisecond);

template <class Pixel>
void BM_writePnm(benchmark::State& state)
{
    benchWriting<Pixel>(state, ".ppm");
}
BENCHMARK_TEMPLATE(BM_writePnm, unsigned char)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_writePnm, Byte4)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_writePnm, Float3)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace koImageIO::testing
