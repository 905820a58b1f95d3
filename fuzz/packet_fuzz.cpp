// Packet files of any bytes. Whatever they are, reading must not touch memory outside the file and the
// images, take memory out of proportion to the file, or call damaged what it calls complete; the sanitizers
// watch the rest.
//
// Most damage ends at a checksum. So half of the mutations put the checksums right again: of the file header,
// of every record that still has its marker, and of the end record.

#include "koImage/lighting/image_based_lighting.h"
#include "koImage/packet/image_packet.h"
#include "koPacketFile/koPacketFile.h"
#include "koPacketFile/testing.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sanitizer/allocator_interface.h>
#include <span>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t mostBytes);

namespace {

using namespace koPacketFile;

// Bytes of the heap in use, and the most since the last reset.
std::atomic<std::int64_t> heapBytes = 0;
std::atomic<std::int64_t> heapPeak = 0;

void countNew(void const volatile*, std::size_t bytes)
{
    auto const now = heapBytes.fetch_add(static_cast<std::int64_t>(bytes)) + static_cast<std::int64_t>(bytes);
    if (now > heapPeak)
        heapPeak = now;
}

void countDelete(void const volatile* memory)
{
    auto const bytes = __sanitizer_get_allocated_size(const_cast<void*>(memory));
    heapBytes -= static_cast<std::int64_t>(bytes);
}

void demand(bool holds, char const* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "Not so: %s.\n", what);
    std::abort();
}

/// Reads whatever stands in a packet, through every kind of call.
class AnyPacket : public ioPacketType {
public:
    using ioPacketType::ioPacketType;

    void read(ioReadContext& in, ioClientReadContext*) override
    {
        std::vector<float> floats;
        for (int steps = 0; steps < 100 && !in.packetFailed(); ++steps) {
            auto const step = in.hasValues() ? static_cast<unsigned>(in.readInt()) : 99u;
            switch (step % 8) {
            case 0:
                in.readBool();
                break;
            case 1:
                in.readReference<koImage::Image>();
                break;
            case 2:
                in.startSubPacket();
                break;
            case 3:
                in.endSubPacket();
                break;
            case 4:
                demand(in.peekCount() <= mostPacketBytes, "an array lies within its packet");
                floats.resize(static_cast<std::size_t>(std::min<std::uint64_t>(in.peekCount(), 1 << 16)));
                in.readFloats(floats.data(), floats.size());
                break;
            case 5:
                in.setObject(in.readOwner<koImage::Image>());
                break;
            case 6:
                in.elementsArrived(step / 8, step % 1000);
                break;
            default:
                in.nextChunk();
                break;
            }
        }
    }
};

using Lights = std::vector<std::unique_ptr<koImage::ImageBasedLighting>>;

/// Reads lighting objects, one behind the other.
class LightPacket : public ioPacketType {
public:
    explicit LightPacket(Lights& lights) : ioPacketType("light"), lights_(lights) {}

    void read(ioReadContext& in, ioClientReadContext*) override
    {
        do {
            lights_.push_back(std::make_unique<koImage::ImageBasedLighting>());
            lights_.back()->readSubPacket(in);
        } while (in.hasValues());
    }

private:
    Lights& lights_;
};

/// Takes up to 64 KiB: a file may tell often of one image, which is then written as often.
class SmallSink : public MemorySink {
public:
    bool write(std::span<std::byte const> bytes) override
    {
        left_ -= std::min(left_, bytes.size());
        return left_ > 0 && MemorySink::write(bytes);
    }

private:
    std::size_t left_ = std::size_t{64} << 10;
};

/// The file that holds a lighting object; none where it takes too many bytes.
std::vector<std::byte> fileOf(koImage::ImageBasedLighting const& light)
{
    SmallSink sink;
    ioWriteContext out(sink, {.salt = 1});
    out.startPacket("light", nullptr);
    light.writeSubPacket(out);
    out.endPacket();
    static_cast<void>(out.commit());
    return sink.bytes();
}

/// Whatever came out of a file can be saved, and is then the same.
void saveAndLoad(koImage::ImageBasedLighting const& light)
{
    auto const file = fileOf(light);
    if (file.empty())
        return;
    MemorySource source(file);
    ioReadContext in(source);
    koImage::packetFile::ReadInterface reader(in);
    ioPacketRegistry registry;
    koImage::packetFile::registerTypes(&registry, &reader);
    Lights lights;
    registry.supportedType(new LightPacket(lights));
    demand(in.readAll(registry) == ReadResult::Complete, "lighting is saved whole");
    demand(lights.size() == 1 && fileOf(*lights[0]) == file, "lighting comes back as it was");
}

/// Reads a file that may make images of so many bytes.
void readFile(ByteSource& source, ReadOptions const& options, std::size_t fileBytes,
              std::size_t mostPixelBytes)
{
    heapPeak = heapBytes.load();
    std::int64_t const before = heapBytes;
    {
        ioReadContext in(source, options);
        koImage::packetFile::ReadInterface reader(in);
        ioPacketRegistry registry;
        koImage::packetFile::registerTypes(&registry, &reader);
        registry.supportedType(new AnyPacket("any"));
        Lights lights;
        registry.supportedType(new LightPacket(lights));
        auto const result = in.readAll(registry);
        demand((result == ReadResult::Complete) == (in.report().damageCount() == 0),
               "what is complete is not damaged");
        demand(in.report().bytesSummed <= 4 * fileBytes, "work is in proportion to the file");

        std::uint64_t pixelBytes = 0;
        unsigned sum = 0;
        std::vector<ko::ReferenceCount*> seen = in.objects();
        std::sort(seen.begin(), seen.end());
        seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
        for (ko::ReferenceCount* const object : seen) {
            auto const& image = dynamic_cast<koImage::Image const&>(*object);
            auto const bytes = static_cast<std::size_t>(image.pixelCount()) *
                               static_cast<std::size_t>(image.bytesPerPixel());
            pixelBytes += bytes;
            for (std::size_t i = 0; i < bytes; ++i)
                sum += static_cast<unsigned char const*>(image.data())[i];
        }
        unsigned const volatile used = sum;
        static_cast<void>(used);
        demand(pixelBytes <= mostPixelBytes, "pixels take no more than was allowed");

        // The pixels, and 4 MiB and three times the file for all the rest.
        demand(heapPeak - before <=
                   static_cast<std::int64_t>((std::size_t{4} << 20) + 3 * fileBytes + mostPixelBytes),
               "memory is in proportion to the file");
        if (!lights.empty())
            saveAndLoad(*lights.front());
    }
}

void repair(std::span<std::uint8_t> file)
{
    if (file.size() < fileHeaderBytes)
        return;
    std::copy(fileMagic.begin(), fileMagic.end(), file.begin());
    std::size_t at = load<std::uint32_t>(file.data() + 12);
    if (at < fileHeaderBytes || at > mostFileHeaderBytes || at % 8 != 0 || at > file.size())
        return;
    store(file.data() + at - 4, masked(crc32c(0, file.data(), at - 4)));
    auto const salt = load<std::uint32_t>(file.data() + 28);

    std::uint64_t records = 0;
    std::uint64_t packets = 0;
    std::uint32_t headerCrcs = 0;
    while (file.size() - at >= recordHeaderBytes) {
        std::uint8_t* const header = file.data() + at;
        if (load<std::uint32_t>(header) != recordMarker) {
            at += 8;
            continue;
        }
        auto const length = load<std::uint32_t>(header + 8);
        std::uint8_t* const payload = header + recordHeaderBytes;
        std::size_t const left = file.size() - at - recordHeaderBytes;
        auto const kind = RecordKind{header[12]};
        if (kind == RecordKind::End && left >= endPayloadBytes && length == endPayloadBytes) {
            store(payload, records);
            store(payload + 8, packets);
            store<std::uint64_t>(payload + 16, at);
            store(payload + 24, masked(headerCrcs));
        }
        if (length <= left)
            store(header + 28, masked(crc32c(0, payload, length)));
        store(header + 24, static_cast<std::uint32_t>(records));
        store(header + 4, recordHeaderCrc(header, salt));
        ++records;
        packets += kind == RecordKind::Packet && (header[13] & flag::last) != 0 ? 1u : 0u;
        headerCrcs = crc32c(headerCrcs, header + 4, 4);
        at += recordHeaderBytes + std::min<std::size_t>((length + std::size_t{7}) / 8 * 8, left);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    __sanitizer_install_malloc_and_free_hooks(countNew, countDelete);
    return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t mostBytes,
                                               unsigned seed)
{
    size = LLVMFuzzerMutate(data, size, mostBytes);
    if (seed % 2 == 0)
        repair({data, size});
    return size;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::span const file(reinterpret_cast<std::byte const*>(data), size);
    // One way of reading for each input: three times as many inputs are tried.
    switch (size % 3) {
    case 0: {
        MemorySource source(file);
        readFile(source, {.policy = Policy::Strict}, size, size);
        break;
    }
    case 1: {
        MemorySource source(file);
        readFile(source, {.policy = Policy::Recover}, size, size);
        break;
    }
    default: {
        // What comes through a pipe may promise as much as the caller allows, beside what has come.
        koPacketFile::testing::Pipe pipe(file);
        readFile(pipe, {.policy = Policy::Recover, .mostBytesFromPipe = 1000}, size, size + 1000);
        break;
    }
    }
    return 0;
}
