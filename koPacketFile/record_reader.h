// The records of a file, checked, and what lies between them.
#pragma once

#include "koPacketFile/byte_stream.h"
#include "koPacketFile/encoding.h"
#include "koPacketFile/export.h"
#include "koPacketFile/report.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace koPacketFile {

/// What a reader does about damage.
enum class Policy {
    Strict,   // stops at it
    Recover,  // goes on behind it, with whatever is sound
};

struct KOPACKETFILE_EXPORT Record {
    RecordHeader header;
    std::span<std::byte const> payload;  // until the next record is read
    std::uint64_t offset = 0;
};

/// Reads a file from front to end. No byte of a record is given out before its checksum has been compared.
///
/// After damage it looks, eight bytes at a time, for the next header whose checksum holds. A record whose
/// header holds tells its length, so damage to its payload loses that record and nothing else.
///
///   memory    256 KiB, and 1.25 MiB from the first record that needs it
///   cost      each byte is summed once, and those in damaged places up to three times more
class KOPACKETFILE_EXPORT RecordReader {
public:
    /// Both outlive the reader.
    RecordReader(ByteSource& source, Policy policy, Report& report);

    /// Reads the file header. False when it is not that of a file that can be read.
    bool start();

    /// Reads the next sound record of the kinds TypeName, Packet and Information. False after the last, or
    /// after damage when the policy is strict.
    bool next(Record& record);

    /// How many bytes follow those that have been looked at, where the size of the file is known.
    std::optional<std::uint64_t> bytesLeft() const;

private:
    std::size_t available(std::size_t wanted);
    unsigned char const* at() const { return reinterpret_cast<unsigned char const*>(buffer_.get()) + first_; }
    void advance(std::size_t bytes);
    void skip(std::size_t bytes);
    void note(Problem problem, std::uint64_t amount = 0);
    bool damaged(Problem problem, std::uint64_t amount = 0);
    bool refuse(Problem problem);
    bool cutOff();
    bool parseHeader(RecordHeader& header);
    bool findHeader();
    bool readEnd(Record const& record);

    ByteSource& source_;
    Policy policy_;
    Report& report_;

    // What has been read and not yet been passed: [first_, end_) of the buffer.
    std::unique_ptr<std::byte[]> buffer_;
    std::size_t capacity_ = 0;
    std::size_t first_ = 0;
    std::size_t end_ = 0;
    std::uint64_t offset_ = 0;  // of first_ in the file
    bool sourceEnded_ = false;
    bool sourceFailed_ = false;

    std::uint32_t salt_ = 0;
    std::size_t recordBytes_ = 0;  // of the record given out last
    std::uint32_t number_ = 0;     // the next record's

    // What the end record must say, as long as nothing is lost.
    std::uint64_t records_ = 0;
    std::uint64_t packets_ = 0;
    std::uint32_t headerCrcs_ = 0;
};

}  // namespace koPacketFile
