#include "koPacketFile/record_reader.h"

#include "koPacketFile/testing.h"

#include <gtest/gtest.h>

#include <string>

namespace koPacketFile {
namespace {

using testing::Bytes;
using testing::fileOf;
using testing::headerOf;
using testing::recordBytes;
using testing::recordsOf;
using testing::repairFileHeader;
using testing::repairRecord;
using testing::operator+;

struct Reading {
    bool started = false;
    std::vector<std::uint32_t> numbers;  // of the records given out
    std::vector<Problem> problems;
    Report report;
};

Reading read(Bytes const& file, Policy policy = Policy::Recover)
{
    MemorySource source(file);
    Reading reading;
    RecordReader reader(source, policy, reading.report);
    reading.started = reader.start();
    Record record;
    while (reading.started && reader.next(record))
        reading.numbers.push_back(record.header.number);
    for (auto const* const list : {&reading.report.damage(), &reading.report.information()})
        for (Finding const& finding : *list)
            reading.problems.push_back(finding.problem);
    return reading;
}

using Numbers = std::vector<std::uint32_t>;
using Problems = std::vector<Problem>;

/// A file of the type name "p" and so many packets of some bytes each.
Bytes packetFile(int packets, std::uint32_t salt = 1)
{
    return fileOf(
        [packets](ioWriteContext& out) {
            for (int i = 0; i < packets; ++i) {
                std::vector<std::uint8_t> const bytes(static_cast<std::size_t>(20 + i),
                                                      static_cast<std::uint8_t>(i));
                out.startPacket("p", nullptr);
                out.writeBytes(bytes.data(), bytes.size());
                out.endPacket();
            }
        },
        salt);
}

unsigned char& byteAt(Bytes& file, std::size_t at)
{
    return reinterpret_cast<unsigned char&>(file[at]);
}

TEST(RecordReader, GivesOutEveryRecordOfASoundFile)
{
    for (Policy const policy : {Policy::Strict, Policy::Recover}) {
        auto const reading = read(packetFile(3), policy);
        EXPECT_EQ(reading.numbers, (Numbers{0, 1, 2, 3}));
        EXPECT_EQ(reading.problems, Problems{});
        EXPECT_EQ(reading.report.records, 5u);
        EXPECT_EQ(reading.report.bytesSkipped, 0u);
    }
}

TEST(RecordReader, ReadsFromSourcesThatGiveAByteAtATime)
{
    struct Trickle : MemorySource {
        using MemorySource::MemorySource;
        std::ptrdiff_t read(std::span<std::byte> buffer) override
        {
            return MemorySource::read(buffer.first(std::min<std::size_t>(buffer.size(), 1)));
        }
    };
    Bytes const file = packetFile(3);
    Trickle source(file);
    Report report;
    RecordReader reader(source, Policy::Strict, report);
    ASSERT_TRUE(reader.start());
    Record record;
    int records = 0;
    for (; reader.next(record); ++records)
        EXPECT_EQ(masked(crc32c(0, record.payload.data(), record.payload.size())), record.header.payloadCrc);
    EXPECT_EQ(records, 4);
    EXPECT_EQ(report.damageCount(), 0u);
}

TEST(RecordReader, TellsWhatIsNoPacketFile)
{
    auto const problemOf = [](Bytes const& file) { return read(file).report.first().problem; };
    EXPECT_EQ(problemOf({}), Problem::NotAPacketFile);
    EXPECT_EQ(problemOf(Bytes(100)), Problem::NotAPacketFile);

    Bytes const file = packetFile(1);
    for (std::size_t cut = 1; cut < 40; ++cut)
        EXPECT_EQ(problemOf(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(cut))),
                  Problem::Truncated);

    // A transfer as text turns line ends.
    Bytes asText = file;
    asText.erase(asText.begin() + 5);
    EXPECT_EQ(problemOf(asText), Problem::NotAPacketFile);
}

TEST(RecordReader, RefusesFilesThatAskForMoreThanItKnows)
{
    auto const with = [](std::size_t at, unsigned char value) {
        Bytes file = packetFile(1);
        byteAt(file, at) = value;
        repairFileHeader(file);
        return read(file).problems;
    };
    EXPECT_EQ(with(8, 2), Problems{Problem::NewerVersion});
    EXPECT_EQ(with(9, 1), Problems{Problem::NewerVersion});
    EXPECT_EQ(with(10, 255), Problems{}) << "a minor version";
    EXPECT_EQ(with(16, 1), Problems{Problem::UnknownFeature});
    EXPECT_EQ(with(20, 1), Problems{}) << "an optional feature";
    EXPECT_EQ(with(32, 1), Problems{Problem::DamagedFileHeader});
}

TEST(RecordReader, TellsTheWrongByteOrder)
{
    Bytes file = packetFile(1);
    store<std::uint32_t>(file.data() + 24, 0x04030201);
    store<std::uint32_t>(file.data() + 12, 0x28000000);
    EXPECT_EQ(read(file).problems, Problems{Problem::WrongByteOrder});
}

TEST(RecordReader, ReadsALongerFileHeaderOfALaterVersion)
{
    Bytes const file = packetFile(2);
    for (std::size_t const more : {8u, 4056u}) {
        Bytes longer = headerOf(file);
        longer.insert(longer.begin() + 36, more, std::byte{9});
        store<std::uint32_t>(longer.data() + 12, static_cast<std::uint32_t>(40 + more));
        longer = longer + std::span(file).subspan(40);
        repairFileHeader(longer);
        auto const reading = read(longer);
        EXPECT_EQ(reading.numbers, (Numbers{0, 1, 2}));
        EXPECT_EQ(reading.problems, Problems{Problem::DamagedEndRecord}) << "which stands elsewhere now";
    }
}

TEST(RecordReader, RefusesImpossibleLengthsOfTheFileHeader)
{
    for (std::uint32_t const length : {0u, 36u, 39u, 41u, 44u, 4104u, 0xFFFFFFF8u}) {
        Bytes file = packetFile(1);
        store(file.data() + 12, length);
        EXPECT_EQ(read(file).problems, Problems{Problem::DamagedFileHeader}) << length;
    }
}

TEST(RecordReader, LosesOneRecordToADamagedPayload)
{
    Bytes file = packetFile(3);
    auto const record = recordsOf(file)[2];
    byteAt(file, record.start + 40) ^= 1;
    EXPECT_EQ(read(file, Policy::Strict).numbers, (Numbers{0, 1}));
    auto const reading = read(file);
    EXPECT_EQ(reading.numbers, (Numbers{0, 1, 3}));
    EXPECT_EQ(reading.problems, Problems{Problem::DamagedPayload});
    EXPECT_EQ(reading.report.recordsLost, 1u);
    EXPECT_EQ(reading.report.bytesSkipped, record.end - record.start);
    EXPECT_EQ(reading.report.first().place.offset, record.start);
    EXPECT_EQ(reading.report.first().place.record, 2u);
}

TEST(RecordReader, FindsTheNextRecordBehindADamagedHeader)
{
    Bytes file = packetFile(3);
    auto const record = recordsOf(file)[2];
    byteAt(file, record.start + 8) ^= 1;
    EXPECT_EQ(read(file, Policy::Strict).numbers, (Numbers{0, 1}));
    auto const reading = read(file);
    EXPECT_EQ(reading.numbers, (Numbers{0, 1, 3}));
    EXPECT_EQ(reading.problems, (Problems{Problem::DamagedRecord, Problem::LostRecords}));
    EXPECT_EQ(reading.report.first().amount, record.end - record.start);
    EXPECT_EQ(reading.report.bytesSkipped, record.end - record.start);
}

TEST(RecordReader, DeliversARecordWhosePaddingIsDamaged)
{
    Bytes file = packetFile(3);
    auto const record = recordsOf(file)[2];
    ASSERT_NE(record.header.payloadBytes % 8, 0u);
    byteAt(file, record.end - 1) = 1;
    EXPECT_EQ(read(file, Policy::Strict).numbers, (Numbers{0, 1}));
    auto const reading = read(file);
    EXPECT_EQ(reading.numbers, (Numbers{0, 1, 2, 3}));
    EXPECT_EQ(reading.problems, Problems{Problem::DamagedPadding});
}

TEST(RecordReader, CountsRecordsThatAreMissing)
{
    Bytes const file = packetFile(4);
    auto const records = recordsOf(file);
    Bytes const dropped = Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(records[1].start)) +
                          std::span(file).subspan(records[3].start);
    auto const reading = read(dropped);
    EXPECT_EQ(reading.numbers, (Numbers{0, 3, 4}));
    EXPECT_EQ(reading.problems, Problems{Problem::LostRecords});
    EXPECT_EQ(reading.report.recordsLost, 2u);
    EXPECT_EQ(read(dropped, Policy::Strict).numbers, (Numbers{0}));
}

TEST(RecordReader, SkipsARecordThatItHasPassed)
{
    Bytes const file = packetFile(2);
    auto const records = recordsOf(file);
    Bytes const doubled = Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(records[1].end)) +
                          std::span(file).subspan(records[1].start);
    auto const reading = read(doubled);
    EXPECT_EQ(reading.numbers, (Numbers{0, 1, 2}));
    EXPECT_EQ(reading.problems, Problems{Problem::RepeatedRecord});
}

TEST(RecordReader, DoesNotTakeRecordsOfAnotherFile)
{
    Bytes file = packetFile(3, 1);
    Bytes const older = packetFile(3, 2);
    auto const record = recordsOf(file)[2];
    std::copy(older.begin() + static_cast<std::ptrdiff_t>(record.start),
              older.begin() + static_cast<std::ptrdiff_t>(record.end),
              file.begin() + static_cast<std::ptrdiff_t>(record.start));
    EXPECT_EQ(read(file).numbers, (Numbers{0, 1, 3}));
}

// A damaged record may hold a whole packet file; its records are not this file's.
TEST(RecordReader, DoesNotTakeRecordsOfAFileInsideAPayload)
{
    Bytes const inner = packetFile(5, 2);
    Bytes file = fileOf([&](ioWriteContext& out) {
        for (int i = 0; i < 2; ++i) {
            out.startPacket("p", nullptr);
            out.writeBytes(reinterpret_cast<std::uint8_t const*>(inner.data()), inner.size());
            out.endPacket();
        }
    });
    byteAt(file, recordsOf(file)[1].start) ^= 1;
    EXPECT_EQ(read(file).numbers, (Numbers{0, 2}));
}

TEST(RecordReader, FindsItsWayThroughDamageOfAnyLength)
{
    Bytes file = packetFile(200);
    auto const records = recordsOf(file);
    for (std::size_t first = 1; first < 100; first += 7) {
        for (std::size_t count = 1; count < 100; count += 13) {
            Bytes damaged = file;
            std::fill(damaged.begin() + static_cast<std::ptrdiff_t>(records[first].start + 3),
                      damaged.begin() + static_cast<std::ptrdiff_t>(records[first + count].start - 3),
                      std::byte{0xFF});
            auto const reading = read(damaged);
            EXPECT_EQ(reading.numbers.size(), records.size() - 1 - count);
            EXPECT_EQ(reading.report.recordsLost, count);
        }
    }
}

TEST(RecordReader, TellsThatTheFileIsCutOffAtEveryByte)
{
    Bytes const file = packetFile(3);
    for (std::size_t cut = 40; cut < file.size(); ++cut) {
        Bytes const front(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(cut));
        for (Policy const policy : {Policy::Strict, Policy::Recover})
            EXPECT_EQ(read(front, policy).problems, Problems{Problem::Truncated}) << cut;
    }
}

TEST(RecordReader, TellsBytesBehindTheEnd)
{
    for (std::size_t const more : {1u, 8u, 1000u})
        EXPECT_EQ(read(packetFile(1) + Bytes(more)).problems, Problems{Problem::TrailingData});
    EXPECT_EQ(read(packetFile(1) + packetFile(1)).problems, Problems{Problem::TrailingData});
}

TEST(RecordReader, HoldsTheEndRecordAgainstTheFile)
{
    Bytes const file = packetFile(3);
    auto const end = recordsOf(file).back();
    for (std::size_t at = 0; at < 32; ++at) {
        Bytes wrong = file;
        byteAt(wrong, end.start + 32 + at) ^= 1;
        repairRecord(wrong, end.start);
        EXPECT_EQ(read(wrong).problems, Problems{Problem::DamagedEndRecord}) << at;
    }
    Bytes const shorter = Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(end.start)) +
                          recordBytes({.kind = RecordKind::End, .number = 4}, {});
    EXPECT_EQ(read(shorter).problems, Problems{Problem::DamagedEndRecord});
}

// A file whose records were exchanged for others of the same numbers and salt.
TEST(RecordReader, HoldsTheHeadersAgainstTheEndRecord)
{
    Bytes file = packetFile(3);
    auto const record = recordsOf(file)[2];
    byteAt(file, record.start + 40) ^= 1;
    repairRecord(file, record.start);
    EXPECT_EQ(read(file).problems, Problems{Problem::DamagedEndRecord});
}

TEST(RecordReader, SkipsRecordsOfUnknownKindsUnlessTheyMustBeUnderstood)
{
    Bytes const file = packetFile(0);
    Bytes const payload = testing::bytesOf({1, 2, 3});
    auto const with = [&](RecordHeader const& header) {
        return read(headerOf(file) + recordBytes(header, payload) +
                    recordBytes({.kind = RecordKind::Information, .number = 1}, payload));
    };
    auto const optional = with({.kind = RecordKind{9}});
    EXPECT_EQ(optional.numbers, (Numbers{1}));
    EXPECT_EQ(optional.problems, (Problems{Problem::Truncated, Problem::SkippedRecord}));
    auto const needed = with({.kind = RecordKind{9}, .flags = flag::mustUnderstand});
    EXPECT_EQ(needed.numbers, (Numbers{1}));
    EXPECT_EQ(needed.problems, (Problems{Problem::UnknownRecord, Problem::Truncated}));
    auto const newFlag = with({.kind = RecordKind::Packet, .flags = 0x13});
    EXPECT_EQ(newFlag.numbers, (Numbers{1}));
    EXPECT_EQ(newFlag.problems, (Problems{Problem::UnknownRecord, Problem::Truncated}));
}

TEST(RecordReader, CountsNumbersBeyondThirtyTwoBits)
{
    // From the last number to the first again, as after 2^32 records.
    Bytes const payload = testing::bytesOf({1});
    Bytes file = headerOf(packetFile(0));
    for (std::uint32_t const number : {0x7FFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu, 0u, 1u})
        file = file + recordBytes({.kind = RecordKind::Information, .number = number}, payload);
    auto const reading = read(file);
    EXPECT_EQ(reading.numbers, (Numbers{0x7FFFFFFF, 0xFFFFFFFE, 0xFFFFFFFF, 0, 1}));
    EXPECT_EQ(reading.report.recordsLost, 0x7FFFFFFFu + 0x7FFFFFFEu);
}

TEST(RecordReader, TellsWhenItsSourceFails)
{
    struct Failing : MemorySource {
        using MemorySource::MemorySource;
        std::ptrdiff_t read(std::span<std::byte> buffer) override
        {
            auto const count = MemorySource::read(buffer);
            return count > 0 ? count : -1;
        }
    };
    Bytes const file = packetFile(3);
    for (std::size_t cut = 0; cut <= file.size(); ++cut) {
        Failing source({file.data(), cut});
        Report report;
        RecordReader reader(source, Policy::Recover, report);
        Record record;
        if (reader.start())
            while (reader.next(record))
                continue;
        EXPECT_EQ(report.first().problem, Problem::CannotRead) << cut;
    }
}

// Nothing but markers: the most that looking for records can cost.
// Work is counted, for time is not the same twice.
TEST(RecordReader, TakesTimeInProportionToAHostileFile)
{
    Bytes const head = headerOf(packetFile(0));
    std::size_t const bytes = std::size_t{32} << 20;

    // A marker everywhere.
    Bytes markers = head;
    markers.resize(head.size() + bytes);
    for (std::size_t at = head.size(); at < markers.size(); at += 8)
        store(markers.data() + at, recordMarker);
    auto const reading = read(markers);
    EXPECT_EQ(reading.problems, (Problems{Problem::DamagedRecord, Problem::Truncated}));
    EXPECT_EQ(reading.report.bytesSkipped, bytes);
    EXPECT_GE(reading.report.bytesSummed, 2 * bytes);
    EXPECT_LE(reading.report.bytesSummed, 4 * bytes);

    // Sound headers everywhere, each of which promises a megabyte that holds the next ones; some between
    // damaged places.
    for (std::size_t const gap : {std::size_t{0}, std::size_t{8}, std::size_t{4096}}) {
        Bytes headers = head;
        headers.resize(head.size() + bytes);
        auto const salt = load<std::uint32_t>(head.data() + 28);
        std::uint32_t number = 0;
        for (std::size_t at = head.size(); at + recordHeaderBytes <= headers.size();
             at += recordHeaderBytes + gap) {
            auto const header =
                bytesOf(RecordHeader{.payloadBytes = mostPayloadBytes, .number = number++}, salt);
            std::memcpy(headers.data() + at, header.data(), header.size());
        }
        auto const summed = read(headers).report.bytesSummed;
        EXPECT_GE(summed, bytes / 2) << gap;
        EXPECT_LE(summed, 4 * bytes) << gap;
    }
}

}  // namespace
}  // namespace koPacketFile
