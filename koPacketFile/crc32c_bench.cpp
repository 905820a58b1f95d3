#include "koPacketFile/crc32c.h"

#include "koImage/testing/side_by_side.h"

#include <cstring>
#include <vector>

namespace koPacketFile {
namespace {

// Against memcpy of as many bytes; "pixels" are bytes. A parcel's header and payload, a large record, and
// more than the cache holds.
void BM_crc32c(benchmark::State& state)
{
    auto const count = static_cast<std::size_t>(state.range(0));
    std::vector<unsigned char> const bytes(count, 7);
    std::vector<unsigned char> copy(count);
    std::size_t const repeats = count < 65536 ? 65536 / count : 1;
    auto const work = static_cast<std::int64_t>(count * repeats);
    koImage::testing::sideBySide(
        state, {.pixels = work, .bytes = work},
        [&] {
            for (std::size_t i = 0; i < repeats; ++i)
                benchmark::DoNotOptimize(crc32c(0, bytes.data(), count));
        },
        [&] {
            for (std::size_t i = 0; i < repeats; ++i) {
                std::memcpy(copy.data(), bytes.data(), count);
                benchmark::ClobberMemory();
            }
        });
}

}  // namespace

BENCHMARK(BM_crc32c)
    ->ArgName("bytes")
    ->Arg(24)
    ->Arg(1052)
    ->Arg(2076)
    ->Arg(4124)
    ->Arg(1 << 20)
    ->Arg(1 << 26)
    ->UseManualTime();

}  // namespace koPacketFile
