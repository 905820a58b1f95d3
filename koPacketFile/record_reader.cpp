#include "koPacketFile/record_reader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace koPacketFile {

namespace {

constexpr std::size_t usualCapacity = std::size_t{256} << 10;
constexpr std::size_t mostCapacity = usualCapacity + mostPayloadBytes;

}  // namespace

RecordReader::RecordReader(ByteSource& source, Policy policy, Report& report)
    : source_(source),
      policy_(policy),
      report_(report)
{
}

// Reads on until `wanted` bytes are at hand, or the file ends. Returns how many there are.
std::size_t RecordReader::available(std::size_t wanted)
{
    if (end_ - first_ >= wanted || sourceEnded_)
        return end_ - first_;

    // Pieces of the usual capacity stay in the cache between being read, summed and used. Small files take
    // less.
    std::uint64_t const fileBytes = source_.size().value_or(mostCapacity);
    std::size_t const usual =
        fileBytes < usualCapacity ? std::max<std::size_t>(wanted, fileBytes) : usualCapacity;
    std::size_t const capacity = wanted <= usual ? usual : mostCapacity;
    if (capacity > capacity_) {
        std::unique_ptr<std::byte[]> larger(new std::byte[capacity]);
        std::copy(buffer_.get() + first_, buffer_.get() + end_, larger.get());
        buffer_ = std::move(larger);
        capacity_ = capacity;
    } else {
        std::copy(buffer_.get() + first_, buffer_.get() + end_, buffer_.get());
    }
    end_ -= first_;
    first_ = 0;

    std::size_t const target = std::max(wanted, usual);
    while (end_ < target && !sourceEnded_) {
        auto const count = source_.read({buffer_.get() + end_, target - end_});
        sourceFailed_ = count < 0;
        sourceEnded_ = count <= 0;
        end_ += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return end_ - first_;
}

void RecordReader::advance(std::size_t bytes)
{
    first_ += bytes;
    offset_ += bytes;
}

void RecordReader::skip(std::size_t bytes)
{
    bytes = std::min(bytes, available(bytes));
    advance(bytes);
    report_.bytesSkipped += bytes;
}

void RecordReader::note(Problem problem, std::uint64_t amount)
{
    report_.add(problem, {.offset = offset_, .record = number_}, amount);
}

// Notes damage. Returns whether to go on.
bool RecordReader::damaged(Problem problem, std::uint64_t amount)
{
    note(problem, amount);
    return policy_ == Policy::Recover;
}

// Notes what ends reading under any policy.
bool RecordReader::refuse(Problem problem)
{
    note(problem);
    return false;
}

// The file ends where something should stand.
bool RecordReader::cutOff()
{
    note(sourceFailed_ ? Problem::CannotRead : Problem::Truncated);
    skip(available(1));
    return false;
}

std::optional<std::uint64_t> RecordReader::bytesLeft() const
{
    auto const size = source_.size();
    if (!size)
        return {};
    std::uint64_t const passed = offset_ + recordBytes_;
    return *size > passed ? *size - passed : 0;
}

bool RecordReader::start()
{
    std::size_t const have = available(fileHeaderBytes);
    if (sourceFailed_)
        return refuse(Problem::CannotRead);
    std::size_t const magicBytes = std::min(have, fileMagic.size());
    if (magicBytes == 0 || std::memcmp(at(), fileMagic.data(), magicBytes) != 0)
        return refuse(Problem::NotAPacketFile);
    if (have < fileHeaderBytes)
        return cutOff();

    // In the wrong byte order no other number makes sense.
    auto const mark = load<std::uint32_t>(at() + 24);
    if (mark == 0x04030201)
        return refuse(Problem::WrongByteOrder);
    auto const headerBytes = load<std::uint32_t>(at() + 12);
    if (headerBytes < fileHeaderBytes || headerBytes > mostFileHeaderBytes || headerBytes % 8 != 0)
        return refuse(Problem::DamagedFileHeader);
    if (available(headerBytes) < headerBytes)
        return cutOff();
    std::size_t const summed = headerBytes - 4;
    if (load<std::uint32_t>(at() + summed) != masked(crc32c(0, at(), summed)) || mark != byteOrderMark ||
        load<std::uint32_t>(at() + 32) != 0)
        return refuse(Problem::DamagedFileHeader);

    if (load<std::uint16_t>(at() + 8) > majorVersion)
        return refuse(Problem::NewerVersion);
    if (load<std::uint32_t>(at() + 16) != 0)
        return refuse(Problem::UnknownFeature);
    salt_ = load<std::uint32_t>(at() + 28);
    advance(headerBytes);
    return true;
}

// Whether a header stands here.
bool RecordReader::parseHeader(RecordHeader& header)
{
    report_.bytesSummed += recordHeaderBytes - 8;  // those behind the checksum
    return parseRecordHeader(at(), salt_, header);
}

// Goes on to the next place where a header holds. False when there is none.
bool RecordReader::findHeader()
{
    Finding const finding{Problem::DamagedRecord, {.offset = offset_, .record = number_}, 0};
    std::uint64_t const start = offset_;
    bool found = false;
    RecordHeader header;
    do {
        skip(8);
        // A record that has been passed already, or an older one, does not end the search.
        found = available(recordHeaderBytes) >= recordHeaderBytes && parseHeader(header) &&
                static_cast<std::int32_t>(header.number - number_) >= 0;
    } while (!found && available(8) >= 8);
    report_.add(finding.problem, finding.place, offset_ - start);
    return found;
}

bool RecordReader::next(Record& record)
{
    advance(std::exchange(recordBytes_, 0));
    for (;;) {
        if (available(recordHeaderBytes) < recordHeaderBytes)
            return cutOff();
        RecordHeader& header = record.header;
        if (!parseHeader(header)) {
            if (policy_ == Policy::Strict)
                return refuse(Problem::DamagedRecord);
            if (!findHeader())
                return cutOff();
            continue;
        }

        // Numbers count on: one ahead tells how many records are missing, one behind that it was here before.
        auto const ahead = static_cast<std::int32_t>(header.number - number_);
        if (ahead < 0) {
            if (!damaged(Problem::RepeatedRecord))
                return false;
            skip(header.recordBytes());
            continue;
        }
        if (ahead > 0) {
            report_.recordsLost += static_cast<std::uint32_t>(ahead);
            if (!damaged(Problem::LostRecords, static_cast<std::uint32_t>(ahead)))
                return false;
            number_ = header.number;
        }

        std::size_t const unpadded = recordHeaderBytes + header.payloadBytes;
        if (available(header.recordBytes()) < unpadded)
            return cutOff();
        unsigned char const* const payload = at() + recordHeaderBytes;
        report_.bytesSummed += header.payloadBytes;
        if (masked(crc32c(0, payload, header.payloadBytes)) != header.payloadCrc) {
            if (!damaged(Problem::DamagedPayload))
                return false;
            ++report_.recordsLost;
            ++number_;
            skip(header.recordBytes());
            continue;
        }

        // Without its padding the file is cut off, which the next call finds.
        std::size_t const bytes = std::min(header.recordBytes(), end_ - first_);
        if (std::any_of(at() + unpadded, at() + bytes, [](unsigned char c) { return c != 0; }) &&
            !damaged(Problem::DamagedPadding))
            return false;

        record.payload = {reinterpret_cast<std::byte const*>(payload), header.payloadBytes};
        record.offset = offset_;
        if (header.kind == RecordKind::End)
            return readEnd(record);

        ++number_;
        ++records_;
        ++report_.records;
        packets_ += header.kind == RecordKind::Packet && header.is(flag::last) ? 1u : 0u;
        headerCrcs_ = crc32c(headerCrcs_, at() + 4, 4);

        bool const known = header.kind == RecordKind::TypeName || header.kind == RecordKind::Packet ||
                           header.kind == RecordKind::Information;
        if (known && (header.flags & ~flag::all) == 0) {
            recordBytes_ = bytes;
            return true;
        }
        if (header.is(flag::mustUnderstand) || known) {
            if (!damaged(Problem::UnknownRecord))
                return false;
        } else {
            note(Problem::SkippedRecord);
        }
        advance(bytes);
    }
}

// The end record counts what came before it. After damage its numbers are others, and say nothing new.
bool RecordReader::readEnd(Record const& record)
{
    std::array<unsigned char, endPayloadBytes> expected{};
    store<std::uint64_t>(expected.data(), records_);
    store<std::uint64_t>(expected.data() + 8, packets_);
    store<std::uint64_t>(expected.data() + 16, offset_);
    store<std::uint32_t>(expected.data() + 24, masked(headerCrcs_));
    bool const agrees = record.payload.size() == expected.size() &&
                        std::memcmp(record.payload.data(), expected.data(), expected.size()) == 0 &&
                        record.header.flags == 0 && record.header.typeId == 0;
    if (!agrees && report_.damageCount() == 0)
        note(Problem::DamagedEndRecord);
    ++report_.records;
    advance(std::min(record.header.recordBytes(), end_ - first_));

    if (available(1) > 0)
        note(Problem::TrailingData);
    else if (sourceFailed_)
        note(Problem::CannotRead);
    return false;
}

}  // namespace koPacketFile
