#include "koPacketFile/encoding.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace koPacketFile {
namespace {

TEST(TypeId, IsTheFnv1aHashOfTheName)
{
    // Values that the hash's authors publish.
    EXPECT_EQ(typeIdOf(""), 0xCBF29CE484222325u);
    EXPECT_EQ(typeIdOf("a"), 0xAF63DC4C8601EC8Cu);
    EXPECT_EQ(typeIdOf("foobar"), 0x85944171F73967E8u);
}

TEST(Store, PutsTheLowByteFirst)
{
    unsigned char bytes[8] = {};
    store<std::uint32_t>(bytes, 0x01020304);
    EXPECT_EQ(bytes[0], 4);
    EXPECT_EQ(bytes[3], 1);
    EXPECT_EQ(load<std::uint32_t>(bytes), 0x01020304u);
    store<double>(bytes, 1.0);
    EXPECT_EQ(bytes[7], 0x3F);
    EXPECT_EQ(bytes[0], 0);
}

TEST(Store, KeepsThePayloadOfASignallingNaN)
{
    auto const bits = std::uint32_t{0x7F800001};
    float value;
    std::memcpy(&value, &bits, 4);
    unsigned char bytes[4];
    copyLittleEndian<float>(bytes, &value, 1);
    EXPECT_EQ(load<std::uint32_t>(bytes), bits);
}

TEST(RecordHeader, ComesBackFromItsBytes)
{
    RecordHeader const header{.payloadBytes = 12345,
                              .kind = RecordKind::Packet,
                              .flags = flag::first | flag::tagged,
                              .typeId = 0x0123456789ABCDEF,
                              .number = 77,
                              .payloadCrc = 0xCAFEBABE};
    auto const bytes = bytesOf(header, 5);
    RecordHeader read;
    ASSERT_TRUE(parseRecordHeader(bytes.data(), 5, read));
    EXPECT_EQ(read.payloadBytes, 12345u);
    EXPECT_EQ(read.kind, RecordKind::Packet);
    EXPECT_EQ(read.flags, flag::first | flag::tagged);
    EXPECT_EQ(read.typeId, 0x0123456789ABCDEFu);
    EXPECT_EQ(read.number, 77u);
    EXPECT_EQ(read.payloadCrc, 0xCAFEBABEu);
    EXPECT_EQ(read.recordBytes(), 32u + 12352u);
}

TEST(RecordHeader, IsRefusedWithAnotherSaltOrAnyBitFlipped)
{
    auto const bytes = bytesOf({.payloadBytes = 8}, 5);
    RecordHeader read;
    EXPECT_FALSE(parseRecordHeader(bytes.data(), 6, read));
    for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
        auto flipped = bytes;
        flipped[bit / 8] = static_cast<unsigned char>(flipped[bit / 8] ^ (1u << (bit % 8)));
        EXPECT_FALSE(parseRecordHeader(flipped.data(), 5, read)) << bit;
    }
}

TEST(RecordHeader, IsRefusedWithAPayloadAboveTheLimit)
{
    RecordHeader read;
    EXPECT_TRUE(parseRecordHeader(bytesOf({.payloadBytes = 1 << 20}, 5).data(), 5, read));
    EXPECT_FALSE(parseRecordHeader(bytesOf({.payloadBytes = (1 << 20) + 1}, 5).data(), 5, read));
}

}  // namespace
}  // namespace koPacketFile
