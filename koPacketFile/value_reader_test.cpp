#include "koPacketFile/value_reader.h"

#include "koPacketFile/testing.h"

#include <gtest/gtest.h>

#include <array>

namespace koPacketFile {
namespace {

using testing::Bytes;
using testing::bytesOf;
using testing::operator+;

Bytes lengthOf(std::uint64_t length)
{
    Bytes bytes(8);
    store(bytes.data(), length);
    return bytes;
}

Bytes tagged(int tag, std::uint64_t length, Bytes const& data)
{
    return bytesOf({tag}) + lengthOf(length) + data;
}

TEST(ValueReader, ReadsEveryValueWrittenByHand)
{
    Bytes const body =
        bytesOf({0x61, 0xFE, 0xFF, 0xFF, 0xFF, 0x03, 0x02, 0x04, 0x81, 7, 0, 0, 0, 0, 0, 0, 1}) +
        tagged(0xA2, 4, bytesOf({1, 2, 3, 4})) + tagged(0xA5, 8, bytesOf({0, 0, 0, 0, 0, 0, 0xF0, 0xBF}));
    ValueReader values(body);
    EXPECT_EQ(values.readInt(), -2);
    EXPECT_TRUE(values.readBool());
    EXPECT_FALSE(values.readBool());
    EXPECT_TRUE(values.readReference().isNull);
    auto const reference = values.readReference();
    EXPECT_FALSE(reference.isNull);
    EXPECT_EQ(reference.id, 0x0100000000000007u);
    EXPECT_EQ(values.peekCount(), 2u);
    std::array<std::uint16_t, 2> shorts{};
    EXPECT_TRUE(values.readArray(shorts.data(), 2));
    EXPECT_EQ(shorts[1], 0x0403);
    double number = 0;
    EXPECT_TRUE(values.readArray(&number, 1));
    EXPECT_EQ(number, -1.0);
    EXPECT_FALSE(values.hasValues());
    EXPECT_EQ(values.problem(), Problem::None);
}

TEST(ValueReader, StepsOverUnknownValuesOfEverySizeClass)
{
    Bytes const body = bytesOf({0x1F, 0x20, 9, 0x5F, 9, 9, 0x62, 9, 9, 9, 9, 0x83, 9, 9, 9, 9, 9, 9, 9, 9}) +
                       tagged(0xA6, 3, bytesOf({9, 9, 9})) + tagged(0xC2, 2, bytesOf({0x61, 0x61})) +
                       bytesOf({0x01, 0x03});
    ValueReader values(body);
    values.nextChunk();
    EXPECT_TRUE(values.readBool());
    EXPECT_EQ(values.problem(), Problem::None);
}

TEST(ValueReader, NeverTakesZeroesOrTheLastClassForValues)
{
    for (int const tag : {0x00, 0xE0, 0xFF}) {
        Bytes const body = bytesOf({tag, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
        ValueReader skipping(body);
        skipping.skip();
        EXPECT_EQ(skipping.problem(), Problem::DamagedValue) << tag;
        ValueReader reading(body);
        EXPECT_EQ(reading.readInt(), 0);
        EXPECT_EQ(reading.problem(), Problem::WrongValue) << tag;
    }
}

TEST(ValueReader, ReadsNothingBehindTheFirstWrongValue)
{
    Bytes const body = bytesOf({0x03, 0x61, 1, 0, 0, 0, 0x03});
    ValueReader values(body);
    EXPECT_EQ(values.readInt(), 0);
    EXPECT_EQ(values.problem(), Problem::WrongValue);
    EXPECT_FALSE(values.readBool());
    EXPECT_FALSE(values.hasValues());
    values.nextChunk();
    values.endSubPacket();
    EXPECT_FALSE(values.readBool());
    EXPECT_EQ(values.problem(), Problem::WrongValue);
}

TEST(ValueReader, GivesAnEmptyChunkPastTheLast)
{
    Bytes const body = bytesOf({0x03, 0x01, 0x02, 0x01});
    ValueReader values(body);
    values.nextChunk();
    EXPECT_TRUE(values.hasValues());
    EXPECT_FALSE(values.readBool());
    for (int i = 0; i < 3; ++i) {
        values.nextChunk();
        EXPECT_FALSE(values.hasValues());
    }
    EXPECT_EQ(values.problem(), Problem::None);
    EXPECT_FALSE(values.readBool());
    EXPECT_EQ(values.problem(), Problem::MissingValue);
}

TEST(ValueReader, DoesNotReadAcrossTheEndOfAChunk)
{
    Bytes const body = bytesOf({0x03, 0x01, 0x03});
    ValueReader values(body);
    EXPECT_TRUE(values.readBool());
    EXPECT_FALSE(values.hasValues());
    EXPECT_FALSE(values.readBool());
    EXPECT_EQ(values.problem(), Problem::MissingValue);
}

TEST(ValueReader, ComparesAnArrayBeforeItTouchesTheBuffer)
{
    struct Case {
        Bytes body;
        Problem problem;
        float expected;  // of a buffer that held 5
    };
    Bytes const four = bytesOf({1, 2, 3, 4});
    for (auto const& [body, problem, expected] : {
             Case{tagged(0xA3, 4, four), Problem::WrongValue, 0.0f},         // the other type, as many bytes
             Case{tagged(0xA4, 8, four + four), Problem::WrongValue, 5.0f},  // the type, another count
             Case{tagged(0xA4, 3, four), Problem::WrongValue, 5.0f},
             Case{tagged(0xA4, 0, {}), Problem::WrongValue, 5.0f},
             Case{tagged(0xC1, 4, four), Problem::WrongValue, 5.0f},    // as long, but no array
             Case{tagged(0xA4, 5, four), Problem::DamagedValue, 5.0f},  // beyond the packet
             Case{tagged(0xA4, ~std::uint64_t{0}, four), Problem::DamagedValue, 5.0f},
             Case{tagged(0xA4, ~std::uint64_t{8}, four), Problem::DamagedValue, 5.0f},
             Case{bytesOf({0xA4, 4, 0}), Problem::DamagedValue, 5.0f},
             Case{{}, Problem::MissingValue, 5.0f},
         }) {
        ValueReader values(body);
        float value = 5.0f;
        EXPECT_FALSE(values.readArray(&value, 1));
        EXPECT_EQ(values.problem(), problem);
        EXPECT_EQ(value, expected);
    }
}

TEST(ValueReader, ReadsAnArrayWithoutElements)
{
    Bytes const body = tagged(0xA1, 0, {});
    ValueReader values(body);
    EXPECT_EQ(values.peekCount(), 0u);
    EXPECT_TRUE(values.readArray<std::uint8_t>(nullptr, 0));
    EXPECT_EQ(values.problem(), Problem::None);
}

TEST(ValueReader, RefusesValuesThatThePacketCutsOff)
{
    ValueReader number(std::span<std::byte const>{});
    Bytes const cutInt = bytesOf({0x61, 1, 2, 3});
    number = ValueReader(cutInt);
    EXPECT_EQ(number.readInt(), 0);
    EXPECT_EQ(number.problem(), Problem::DamagedValue);

    Bytes const cutReference = bytesOf({0x81, 1, 2, 3});
    ValueReader reference(cutReference);
    EXPECT_TRUE(reference.readReference().isNull);
    EXPECT_EQ(reference.problem(), Problem::DamagedValue);
}

TEST(ValueReader, RefusesASubPacketThatReachesBeyondItsParent)
{
    Bytes const body = tagged(0xC1, 12, tagged(0xC1, 4, bytesOf({0x03, 0x03, 0x03})) + bytesOf({0x03}));
    ValueReader values(body);
    values.startSubPacket();
    values.startSubPacket();
    EXPECT_EQ(values.problem(), Problem::DamagedValue);
    EXPECT_EQ(values.depth(), 1);
}

TEST(ValueReader, NestsSixtyFourDeepAndNoDeeper)
{
    Bytes body = bytesOf({0x03});
    for (int i = 0; i < mostDepth + 1; ++i)
        body = tagged(0xC1, body.size(), body);
    ValueReader values(body);
    for (int i = 0; i < mostDepth; ++i)
        values.startSubPacket();
    EXPECT_EQ(values.problem(), Problem::None);
    EXPECT_EQ(values.depth(), 64);
    values.startSubPacket();
    EXPECT_EQ(values.problem(), Problem::TooDeep);
}

TEST(ValueReader, SkipsWhatIsLeftOfASubPacket)
{
    Bytes const inner = tagged(0xC1, 3, bytesOf({0xFF, 0xFF, 0xFF}));
    Bytes const body = tagged(0xC1, inner.size(), inner) + bytesOf({0x03});
    ValueReader values(body);
    values.startSubPacket();
    values.endSubPacket();
    EXPECT_TRUE(values.readBool());
    EXPECT_EQ(values.problem(), Problem::None);
}

TEST(ValueReader, CountsChunksWithinASubPacket)
{
    Bytes const body = tagged(0xC1, 3, bytesOf({0x02, 0x01, 0x03})) + bytesOf({0x61, 5, 0, 0, 0});
    ValueReader values(body);
    values.startSubPacket();
    values.nextChunk();
    EXPECT_TRUE(values.readBool());
    values.nextChunk();
    EXPECT_FALSE(values.hasValues());
    values.endSubPacket();
    EXPECT_EQ(values.readInt(), 5);
}

TEST(ValueReader, EndsOnlySubPacketsThatItStarted)
{
    Bytes const body = bytesOf({0x03});
    ValueReader values(body);
    values.endSubPacket();
    EXPECT_EQ(values.problem(), Problem::Misuse);
}

}  // namespace
}  // namespace koPacketFile
