// What the tests of packet files share. Private.
#pragma once

#include "koPacketFile/read_context.h"
#include "koPacketFile/write_context.h"

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace koPacketFile::testing {

using Bytes = std::vector<std::byte>;

/// The bytes of a file whose size is not known.
class Pipe : public MemorySource {
public:
    using MemorySource::MemorySource;
    std::optional<std::uint64_t> size() const override { return {}; }
};

/// The file that `write` makes; empty when it cannot be committed.
template <class Write>
Bytes fileOf(Write const& write, std::uint32_t salt = 1)
{
    MemorySink sink;
    ioWriteContext out(sink, {.salt = salt});
    write(out);
    return out.commit() ? sink.bytes() : Bytes{};
}

/// A packet type that does what a test says.
class TestType : public ioPacketType {
public:
    using Read = std::function<void(ioReadContext&)>;

    TestType(char const* name, Read read) : ioPacketType(name), read_(std::move(read)) {}

    void read(ioReadContext& context, ioClientReadContext*) override { read_(context); }

    void memoryNotReferenced(ioClientReadContext&, void* object) override
    {
        if (notReferenced)
            notReferenced(static_cast<ko::ReferenceCount*>(object));
    }

    void hasUnresolvedPointer(ioClientReadContext&, void* object, int n) override
    {
        if (unresolved)
            unresolved(static_cast<ko::ReferenceCount*>(object), n);
    }

    std::function<void(ko::ReferenceCount*)> notReferenced;
    std::function<void(ko::ReferenceCount*, int)> unresolved;

private:
    Read read_;
};

/// Types by name, each with what it reads.
using Reads = std::vector<std::pair<char const*, TestType::Read>>;

inline void addTypes(ioPacketRegistry& registry, Reads const& reads)
{
    for (auto const& [name, read] : reads)
        registry.supportedType(new TestType(name, read));
}

struct Outcome {
    ReadResult result;
    Report report;

    bool found(Problem problem) const
    {
        for (auto const* const list : {&report.damage(), &report.information()})
            for (Finding const& finding : *list)
                if (finding.problem == problem)
                    return true;
        return false;
    }
};

inline Outcome readFile(std::span<std::byte const> file, Reads const& reads, ReadOptions const& options = {})
{
    MemorySource source(file);
    ioReadContext in(source, options);
    ioPacketRegistry registry;
    addTypes(registry, reads);
    auto const result = in.readAll(registry);
    return {result, in.report()};
}

/// Where the records of an undamaged file begin and end.
struct RecordPlace {
    std::size_t start;
    std::size_t end;
    RecordHeader header;
};

inline std::vector<RecordPlace> recordsOf(Bytes const& file)
{
    auto const* const bytes = reinterpret_cast<unsigned char const*>(file.data());
    auto const salt = load<std::uint32_t>(bytes + 28);
    std::vector<RecordPlace> places;
    for (std::size_t at = fileHeaderBytes; at + recordHeaderBytes <= file.size();) {
        RecordHeader header;
        if (!parseRecordHeader(bytes + at, salt, header))
            break;
        places.push_back({at, at + header.recordBytes(), header});
        at += header.recordBytes();
    }
    return places;
}

/// Puts the checksums of a record right after its bytes have been changed.
inline void repairRecord(Bytes& file, std::size_t at)
{
    auto* const bytes = reinterpret_cast<unsigned char*>(file.data());
    auto const salt = load<std::uint32_t>(bytes + 28);
    auto const payloadBytes = load<std::uint32_t>(bytes + at + 8);
    if (at + recordHeaderBytes + payloadBytes <= file.size())
        store(bytes + at + 28, masked(crc32c(0, bytes + at + recordHeaderBytes, payloadBytes)));
    store(bytes + at + 4, recordHeaderCrc(bytes + at, salt));
}

/// Puts the checksum of the file header right after its bytes have been changed.
inline void repairFileHeader(Bytes& file)
{
    auto* const bytes = reinterpret_cast<unsigned char*>(file.data());
    std::size_t const summed = load<std::uint32_t>(bytes + 12) - 4;
    store(bytes + summed, masked(crc32c(0, bytes, summed)));
}

/// Bytes of one record, for files that no writer makes.
inline Bytes recordBytes(RecordHeader header, std::span<std::byte const> payload, std::uint32_t salt = 1)
{
    header.payloadBytes = static_cast<std::uint32_t>(payload.size());
    header.payloadCrc = masked(crc32c(0, payload.data(), payload.size()));
    auto const head = bytesOf(header, salt);
    Bytes bytes(header.recordBytes());
    std::memcpy(bytes.data(), head.data(), head.size());
    if (!payload.empty())
        std::memcpy(bytes.data() + head.size(), payload.data(), payload.size());
    return bytes;
}

inline Bytes operator+(Bytes a, std::span<std::byte const> b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// The bytes before the first record.
inline Bytes headerOf(Bytes const& file)
{
    return {file.begin(), file.begin() + fileHeaderBytes};
}

/// The bytes of a value list, written by hand.
inline Bytes bytesOf(std::initializer_list<int> values)
{
    Bytes bytes;
    for (int const value : values)
        bytes.push_back(static_cast<std::byte>(value));
    return bytes;
}

}  // namespace koPacketFile::testing
