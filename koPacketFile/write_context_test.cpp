#include "koPacketFile/write_context.h"

#include "koPacketFile/testing.h"

#include <gtest/gtest.h>

#include <limits>

namespace koPacketFile {
namespace {

using testing::Bytes;
using testing::fileOf;
using testing::Outcome;
using testing::readFile;
using testing::recordsOf;

/// What a context says after calls that it must refuse.
template <class Write>
Problem refusalOf(Write const& write, WriteOptions const& options = {.salt = 1})
{
    MemorySink sink;
    ioWriteContext out(sink, options);
    write(out);
    EXPECT_FALSE(out.commit());
    EXPECT_TRUE(sink.bytes().empty());
    return out.error().problem;
}

/// A sink that fails after so many bytes, or when it is committed.
class FailingSink : public ByteSink {
public:
    explicit FailingSink(std::size_t room) : room_(room) {}

    bool write(std::span<std::byte const> bytes) override
    {
        ++writes;
        largest = std::max(largest, bytes.size());
        if (bytes.size() > room_)
            return false;
        room_ -= bytes.size();
        return true;
    }
    bool commit() override { return false; }

    int writes = 0;
    std::size_t largest = 0;

private:
    std::size_t room_;
};

TEST(WriteContext, WritesAnEmptyFileAsHeaderAndEnd)
{
    Bytes const file = fileOf([](ioWriteContext&) {});
    EXPECT_EQ(file.size(), 40u + 32u + 32u);
    EXPECT_EQ(readFile(file, {}).result, ReadResult::Complete);
}

TEST(WriteContext, WritesEqualFilesWithEqualSalts)
{
    auto const write = [](ioWriteContext& out) {
        int object = 0;
        out.startPacket("a", &object);
        out.writeReference(&object);
        out.endPacket();
    };
    EXPECT_EQ(fileOf(write, 7), fileOf(write, 7));
    EXPECT_NE(fileOf(write, 7), fileOf(write, 8));
}

TEST(WriteContext, DrawsAnotherSaltForEveryFile)
{
    MemorySink a;
    MemorySink b;
    EXPECT_TRUE(ioWriteContext(a).commit());
    EXPECT_TRUE(ioWriteContext(b).commit());
    EXPECT_NE(a.bytes(), b.bytes());  // fails once in four thousand million runs
}

TEST(WriteContext, NamesATypeOnceBeforeItsFirstPacket)
{
    Bytes const file = fileOf([](ioWriteContext& out) {
        for (char const* const type : {"a", "b", "a"}) {
            out.startPacket(type, nullptr);
            out.endPacket();
        }
    });
    std::vector<RecordKind> kinds;
    for (auto const& record : recordsOf(file))
        kinds.push_back(record.header.kind);
    using enum RecordKind;
    EXPECT_EQ(kinds, (std::vector{TypeName, Packet, TypeName, Packet, Packet, End}));
}

TEST(WriteContext, PutsAnInnerPacketBeforeTheOuterOne)
{
    std::vector<int> order;
    Bytes const file = fileOf([](ioWriteContext& out) {
        int inner = 0;
        out.startPacket("outer", nullptr);
        out.writeInt(1);
        out.startSubPacket();
        out.startPacket("inner", &inner);
        out.writeInt(2);
        out.endPacket();
        out.writeReference(&inner);
        out.endSubPacket();
        out.writeInt(3);
        out.endPacket();
    });
    struct Object : ko::ReferenceCount {};
    auto const outcome = readFile(file, {{"outer",
                                          [&](ioReadContext& in) {
                                              order.push_back(in.readInt());
                                              in.startSubPacket();
                                              EXPECT_NE(in.readReference<Object>(), nullptr);
                                              in.endSubPacket();
                                              order.push_back(in.readInt());
                                          }},
                                         {"inner", [&](ioReadContext& in) {
                                              order.push_back(in.readInt());
                                              in.setObject(new Object);
                                          }}});
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_EQ(order, (std::vector{2, 1, 3}));
}

TEST(WriteContext, SplitsALargePacketIntoRecords)
{
    std::vector<float> numbers(600'000);
    for (std::size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = static_cast<float>(i);
    Bytes const file = fileOf([&](ioWriteContext& out) {
        out.startPacket("large", &numbers);
        out.writeFloats(numbers.data(), numbers.size());
        out.writeInt(5);
        out.endPacket();
    });
    EXPECT_EQ(recordsOf(file).size(), 1u + 3u + 1u);

    std::vector<float> read(numbers.size());
    auto const outcome = readFile(file, {{"large", [&](ioReadContext& in) {
                                              EXPECT_EQ(in.peekCount(), read.size());
                                              EXPECT_TRUE(in.readFloats(read.data(), read.size()));
                                              EXPECT_EQ(in.readInt(), 5);
                                          }}});
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_EQ(read, numbers);
}

// Where one record ends, whole packets and split ones meet: 1 MiB holds 1048567 bytes of one array.
TEST(WriteContext, HandlesPacketsAroundTheSizeOfARecord)
{
    for (bool const isTagged : {false, true}) {
        for (std::size_t const size : {1048566u, 1048567u, 1048568u, 1048559u, 1048560u, 2097134u}) {
            SCOPED_TRACE(size);
            std::vector<std::uint8_t> const bytes(size, 7);
            Bytes const file = fileOf([&](ioWriteContext& out) {
                out.startPacket("p", isTagged ? &bytes : nullptr);
                out.writeBytes(bytes.data(), bytes.size());
                out.endPacket();
            });
            std::vector<std::uint8_t> read(size);
            auto const outcome = readFile(
                file, {{"p", [&](ioReadContext& in) { EXPECT_TRUE(in.readBytes(read.data(), size)); }}});
            EXPECT_EQ(outcome.result, ReadResult::Complete);
            EXPECT_EQ(read, bytes);
        }
    }
}

TEST(WriteContext, RefersToTheNewestPacketOfAnAddress)
{
    int first = 0;
    int second = 0;
    Bytes const file = fileOf([&](ioWriteContext& out) {
        for (int const value : {1, 2}) {
            out.startPacket("value", &first);
            out.writeInt(value);
            out.endPacket();
            out.startPacket("use", &second);
            out.writeReference(&first);
            out.endPacket();
        }
    });
    struct Object : ko::ReferenceCount {
        int value = 0;
    };
    std::vector<int> used;
    auto const outcome = readFile(
        file, {{"value",
                [](ioReadContext& in) {
                    auto* const object = new Object;
                    object->value = in.readInt();
                    in.setObject(object);
                }},
               {"use", [&](ioReadContext& in) { used.push_back(in.readReference<Object>()->value); }}});
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_EQ(used, (std::vector{1, 2}));
}

TEST(WriteContext, StoresAReferenceToAnOpenPacketThatFindsNoObject)
{
    Bytes const file = fileOf([](ioWriteContext& out) {
        int outer = 0;
        int inner = 0;
        out.startPacket("p", &outer);
        out.startPacket("p", &inner);
        out.writeReference(&outer);
        out.endPacket();
        out.writeReference(&outer);
        out.endPacket();
    });
    struct Object : ko::ReferenceCount {};
    auto const outcome = readFile(file, {{"p", [](ioReadContext& in) {
                                              EXPECT_EQ(in.readReference(), nullptr);
                                              in.setObject(new Object);
                                          }}});
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_TRUE(outcome.found(Problem::UnresolvedReference));
}

TEST(WriteContext, RefusesAReferenceToWhatWasNotWritten)
{
    EXPECT_EQ(refusalOf([](ioWriteContext& out) {
                  int stranger = 0;
                  out.startPacket("a", nullptr);
                  out.writeReference(&stranger);
                  out.endPacket();
              }),
              Problem::ReferenceToUntagged);
}

TEST(WriteContext, RefusesCallsOutOfOrder)
{
    using Write = void (*)(ioWriteContext&);
    Write const sequences[] = {
        [](ioWriteContext& out) { out.endPacket(); },
        [](ioWriteContext& out) { out.writeInt(1); },
        [](ioWriteContext& out) { out.writeBool(true); },
        [](ioWriteContext& out) { out.writeReference(nullptr); },
        [](ioWriteContext& out) { out.writeBytes(nullptr, 0); },
        [](ioWriteContext& out) { out.nextChunk(); },
        [](ioWriteContext& out) { out.startSubPacket(); },
        [](ioWriteContext& out) { out.endSubPacket(); },
        [](ioWriteContext& out) { out.startPacket("a", nullptr); },
        [](ioWriteContext& out) {
            out.startPacket("a", nullptr);
            out.endSubPacket();
        },
        [](ioWriteContext& out) {
            out.startPacket("a", nullptr);
            out.startSubPacket();
            out.endPacket();
        },
        [](ioWriteContext& out) {
            out.startPacket("a", nullptr);
            out.startSubPacket();
            out.startPacket("b", nullptr);
            out.endSubPacket();  // of the outer packet
        },
        [](ioWriteContext& out) {
            out.startPacket("a", nullptr);
            out.writeFloats(nullptr, 1);
        },
    };
    for (Write const write : sequences)
        EXPECT_EQ(refusalOf(write), Problem::Misuse);
}

TEST(WriteContext, RefusesNamesThatNoFileCanHold)
{
    for (std::string const& name : {std::string(), std::string(256, 'x')})
        EXPECT_EQ(refusalOf([&](ioWriteContext& out) { out.startPacket(name.c_str(), nullptr); }),
                  Problem::InvalidName);
    EXPECT_EQ(refusalOf([](ioWriteContext& out) { out.startPacket(nullptr, nullptr); }),
              Problem::InvalidName);
}

TEST(WriteContext, RefusesSubPacketsMoreThanSixtyFourDeep)
{
    auto const nest = [](int depth) {
        return [depth](ioWriteContext& out) {
            out.startPacket("deep", nullptr);
            for (int i = 0; i < depth; ++i)
                out.startSubPacket();
            for (int i = 0; i < depth; ++i)
                out.endSubPacket();
            out.endPacket();
        };
    };
    EXPECT_FALSE(fileOf(nest(64)).empty());
    EXPECT_EQ(refusalOf(nest(65)), Problem::TooDeep);
}

TEST(WriteContext, RefusesAPacketAboveTheLimit)
{
    std::vector<std::uint8_t> const bytes(1000);
    auto const write = [&](ioWriteContext& out) {
        out.startPacket("large", nullptr);
        out.writeBytes(bytes.data(), 500);
        out.writeBytes(bytes.data(), 482);
        out.endPacket();
    };
    MemorySink sink;
    ioWriteContext out(sink, {.salt = 1, .mostPacketBytes = 1000});
    write(out);
    EXPECT_TRUE(out.commit());
    EXPECT_EQ(refusalOf(write, {.salt = 1, .mostPacketBytes = 999}), Problem::PacketTooLarge);

    // No count overflows; nothing is read from these addresses.
    auto const tooMany = [](ioWriteContext& context) {
        double const one = 1;
        context.startPacket("large", nullptr);
        context.writeDoubles(&one, std::numeric_limits<std::size_t>::max() / 8 + 2);
    };
    EXPECT_EQ(refusalOf(tooMany), Problem::PacketTooLarge);
}

TEST(WriteContext, KeepsItsFirstErrorAndWritesNothingAfterIt)
{
    FailingSink sink(std::numeric_limits<std::size_t>::max());
    ioWriteContext out(sink, {.salt = 1});
    out.endPacket();
    std::vector<std::uint8_t> const bytes(1 << 20);
    for (int i = 0; i < 3; ++i) {
        out.startPacket("p", nullptr);
        out.writeBytes(bytes.data(), bytes.size());
        out.endPacket();
    }
    out.startPacket(nullptr, nullptr);
    EXPECT_FALSE(out.commit());
    EXPECT_EQ(out.error().problem, Problem::Misuse);
    EXPECT_EQ(sink.writes, 0);
}

TEST(WriteContext, TellsWhenItsSinkFails)
{
    std::vector<std::uint8_t> const bytes(10'000);
    auto const write = [&](ByteSink& sink) {
        ioWriteContext out(sink, {.salt = 1});
        for (int i = 0; i < 100; ++i) {
            out.startPacket("p", nullptr);
            out.writeBytes(bytes.data(), bytes.size());
            out.endPacket();
        }
        EXPECT_FALSE(out.commit());
        return out.error().problem;
    };
    for (std::size_t const room : {0u, 300'000u, 900'000u}) {
        FailingSink sink(room);
        EXPECT_EQ(write(sink), Problem::CannotWrite);
    }
    FailingSink full(2'000'000);
    EXPECT_EQ(write(full), Problem::CannotWrite) << "only the commit fails";
    EXPECT_EQ(full.writes, 4);
    EXPECT_EQ(full.largest, std::size_t{256} << 10);
}

TEST(WriteContext, CommitsOnce)
{
    MemorySink sink;
    ioWriteContext out(sink, {.salt = 1});
    EXPECT_TRUE(out.commit());
    auto const file = sink.bytes();
    EXPECT_FALSE(out.commit());
    EXPECT_EQ(out.error().problem, Problem::Misuse);
    out.startPacket("late", nullptr);
    EXPECT_EQ(sink.bytes(), file);
}

TEST(WriteContext, LeavesTheSinkAloneWithoutACommit)
{
    MemorySink sink;
    {
        ioWriteContext out(sink);
        out.startPacket("p", nullptr);
        out.endPacket();
    }
    EXPECT_TRUE(sink.bytes().empty());
}

}  // namespace
}  // namespace koPacketFile
