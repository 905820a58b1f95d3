// The packets of a file, put together from their records.
#pragma once

#include "koPacketFile/byte_stream.h"
#include "koPacketFile/encoding.h"
#include "koPacketFile/export.h"
#include "koPacketFile/record_reader.h"
#include "koPacketFile/report.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace koPacketFile {

struct Packet {
    std::uint64_t typeId = 0;
    std::string_view typeName = {};  // empty where the file has not told it so far
    bool mustUnderstand = false;
    std::uint64_t id = 0;                    // 0 when it is not tagged
    std::span<std::byte const> values = {};  // until the next packet is read
};

/// Reads a file from front to end: every packet of which all records are sound, whatever its type.
///
///   memory    that of the RecordReader, and the packet that was read last where it is larger than 1 MiB
class KOPACKETFILE_EXPORT PacketReader {
public:
    /// Source and report outlive the reader. A larger packet is reported and stepped over.
    PacketReader(ByteSource& source, Policy policy, Report& report,
                 std::uint64_t mostBytes = mostPacketBytes);

    /// Reads the file header. False when it is not that of a file that can be read.
    bool start() { return records_.start(); }

    /// Reads the next packet. False after the last, or after damage when the policy is strict.
    bool next(Packet& packet);

    /// Where the record begins that was read last.
    Place place() const { return {.offset = record_.offset, .record = record_.header.number}; }

    /// How many bytes follow those that have been looked at, where the size of the file is known.
    std::optional<std::uint64_t> bytesLeft() const { return records_.bytesLeft(); }

private:
    bool stops() const;
    void checkTypeName();
    bool takePart(Packet& packet);
    bool open(RecordHeader const& header, std::span<std::byte const> body, Packet& packet);
    void appendPart();
    std::uint64_t announcedBytes() const;
    void dropParts();

    Policy policy_;
    Report& report_;
    std::uint64_t mostBytes_;
    RecordReader records_;
    Record record_;
    std::map<std::uint64_t, std::string> typeNames_;  // the first of them
    std::uint64_t lastId_ = 0;

    // The packet whose records are being put together.
    std::vector<std::byte> parts_;
    std::vector<std::byte> whole_;  // of the packet given out last
    RecordHeader firstPart_;
    std::uint32_t nextPart_ = 0;
    bool hasParts_ = false;
    bool dropping_ = false;  // the rest of a packet that has lost a part
};

}  // namespace koPacketFile
