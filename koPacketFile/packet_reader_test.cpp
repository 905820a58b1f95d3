#include "koPacketFile/packet_reader.h"

#include "koPacketFile/testing.h"

#include <gmock/gmock.h>

namespace koPacketFile {
namespace {

using testing::Bytes;
using testing::bytesOf;
using testing::fileOf;
using testing::recordsOf;

struct Found {
    std::string name;
    std::uint64_t id;
    Bytes values;
    std::uint64_t offset;

    bool operator==(Found const&) const = default;
};

std::vector<Found> packetsOf(Bytes const& file, Report& report, Policy policy = Policy::Recover)
{
    MemorySource source(file);
    PacketReader reader(source, policy, report);
    std::vector<Found> found;
    Packet packet;
    if (reader.start())
        while (reader.next(packet)) {
            EXPECT_EQ(packet.typeName.empty() ? packet.typeId : typeIdOf(packet.typeName), packet.typeId);
            found.push_back({std::string(packet.typeName),
                             packet.id,
                             {packet.values.begin(), packet.values.end()},
                             reader.place().offset});
        }
    return found;
}

/// Records: name a, a, name b, b, a; and the end.
Bytes threePackets()
{
    int const object = 0;
    return fileOf([&](ioWriteContext& out) {
        out.startPacket("a", &object);
        out.writeBool(true);
        out.endPacket();
        out.startPacket("b", nullptr);
        out.writeReference(&object);
        out.endPacket();
        out.startPacket("a", &object);
        out.endPacket();
    });
}

TEST(PacketReader, GivesOutPacketsOfEveryTypeInTheOrderOfTheFile)
{
    Bytes const file = threePackets();
    auto const records = recordsOf(file);
    std::vector<Found> const expected = {{"a", 1, bytesOf({3}), records[1].start},
                                         {"b", 0, bytesOf({0x81, 1, 0, 0, 0, 0, 0, 0, 0}), records[3].start},
                                         {"a", 2, {}, records[4].start}};
    for (Policy const policy : {Policy::Strict, Policy::Recover}) {
        Report report;
        EXPECT_EQ(packetsOf(file, report, policy), expected);
        EXPECT_EQ(report.damageCount(), 0u);
        EXPECT_EQ(report.packets, 3u);
    }
}

TEST(PacketReader, GivesOutPacketsWhoseNameIsLostWithoutIt)
{
    Bytes file = threePackets();
    file[recordsOf(file)[0].start + recordHeaderBytes] ^= std::byte{1};
    Report report;
    auto const found = packetsOf(file, report);
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0].name, "");
    EXPECT_EQ(found[0].id, 1u);
    EXPECT_EQ(found[1].name, "b");
}

TEST(PacketReader, StopsAtDamageUnlessItRecovers)
{
    Bytes file = threePackets();
    file[recordsOf(file)[3].start + recordHeaderBytes] ^= std::byte{1};
    Report strict;
    EXPECT_EQ(packetsOf(file, strict, Policy::Strict).size(), 1u);
    Report recovered;
    EXPECT_EQ(packetsOf(file, recovered, Policy::Recover).size(), 2u);
    EXPECT_EQ(strict.damageCount(), 1u);
}

// What a file repeats or breaks apart is tested with the context that reads packets by their types.
TEST(PacketReader, PutsTheRecordsOfLargePacketsTogether)
{
    std::vector<std::uint8_t> bytes(3 << 20);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(i * i >> 7);
    int const object = 0;
    Bytes const file = fileOf([&](ioWriteContext& out) {
        out.startPacket("large", &object);
        out.writeBytes(bytes.data(), bytes.size());
        out.endPacket();
    });
    Report report;
    auto const found = packetsOf(file, report);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].id, 1u);
    ASSERT_EQ(found[0].values.size(), 9 + bytes.size());
    EXPECT_EQ(std::memcmp(found[0].values.data() + 9, bytes.data(), bytes.size()), 0);
    EXPECT_EQ(report.damageCount(), 0u);
}

}  // namespace
}  // namespace koPacketFile
