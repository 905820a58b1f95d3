#include "koPacketFile/record_reader.h"

#include "koImage/testing/side_by_side.h"
#include "koPacketFile/testing.h"

#include <cstring>

namespace koPacketFile {
namespace {

using testing::Bytes;

enum Kind { Sound, Markers, Headers };

/// A file of so many bytes: sound; of nothing but markers, each of which might be a record; or of sound
/// headers whose payloads are damaged.
Bytes fileOfKind(Kind kind, std::size_t bytes)
{
    std::vector<std::uint8_t> const elements(kind == Headers ? 1 : 4096, 7);
    Bytes file = testing::fileOf([&](ioWriteContext& out) {
        std::size_t const packetBytes = kind == Headers ? 48 : 4144;
        for (std::size_t at = 0; at < bytes && kind != Markers; at += packetBytes) {
            out.startPacket("p", nullptr);
            out.writeBytes(elements.data(), elements.size());
            out.endPacket();
        }
    });
    if (kind == Markers) {
        file.resize(bytes);
        for (std::size_t at = fileHeaderBytes; at + 8 <= bytes; at += 8)
            store(file.data() + at, recordMarker);
    }
    if (kind == Headers)
        for (std::size_t at = 120; at + 48 <= file.size(); at += 48)
            file[at] ^= std::byte{1};
    return file;
}

// Against memcpy of the same bytes; "pixels" are bytes. Time grows as the file does, whatever it holds.
void BM_readRecords(benchmark::State& state)
{
    Bytes const file =
        fileOfKind(static_cast<Kind>(state.range(0)), static_cast<std::size_t>(state.range(1)) << 20);
    Bytes copy(file.size());
    auto const bytes = static_cast<std::int64_t>(file.size());
    koImage::testing::sideBySide(
        state, {.pixels = bytes, .bytes = bytes},
        [&] {
            MemorySource source(file);
            Report report;
            RecordReader reader(source, Policy::Recover, report);
            Record record;
            if (reader.start())
                while (reader.next(record))
                    benchmark::DoNotOptimize(record.payload.data());
        },
        [&] {
            std::memcpy(copy.data(), file.data(), file.size());
            benchmark::ClobberMemory();
        });
}

}  // namespace

BENCHMARK(BM_readRecords)
    ->ArgNames({"kind", "MiB"})
    ->ArgsProduct({{Sound, Markers, Headers}, {4, 32}})
    ->UseManualTime();

}  // namespace koPacketFile
