#include "koImage/packet/irradiance_packet.h"

#include "koPacketFile/testing.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>

namespace koImage::packetFile {
namespace {

using koPacketFile::Problem;
using koPacketFile::ReadResult;
using koPacketFile::testing::fileOf;
using koPacketFile::testing::readFile;

/// Every element another number, some of them odd ones.
Irradiance awkwardIrradiance()
{
    Irradiance irradiance;
    double next = 0.1;
    for (auto* const matrix : {&irradiance.red, &irradiance.green, &irradiance.blue})
        for (int i = 0; i < 16; ++i)
            matrix->data()[i] = next *= -1.7;
    irradiance.red(0, 1) = -0.0;
    irradiance.green(2, 3) = std::bit_cast<double>(std::uint64_t{0x7FF0000000000001});
    irradiance.blue(3, 0) = std::numeric_limits<double>::denorm_min();
    return irradiance;
}

bool sameBits(Irradiance const& a, Irradiance const& b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(IrradiancePacket, ComesBackToTheBit)
{
    Irradiance const written = awkwardIrradiance();
    auto const file = fileOf([&](ioWriteContext& out) {
        out.startPacket("light", nullptr);
        out.writeInt(1);
        writeIrradiance(out, written);
        out.writeInt(2);
        out.endPacket();
    });
    Irradiance read;
    auto const outcome = readFile(file, {{"light", [&](ioReadContext& in) {
                                              EXPECT_EQ(in.readInt(), 1);
                                              readIrradiance(in, read);
                                              EXPECT_EQ(in.readInt(), 2);
                                          }}});
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_TRUE(sameBits(read, written));
}

TEST(IrradiancePacket, IsThreeArraysInASubPacket)
{
    Irradiance const written = awkwardIrradiance();
    auto const file = fileOf([&](ioWriteContext& out) {
        out.startPacket("light", nullptr);
        writeIrradiance(out, written);
        out.endPacket();
    });
    auto const outcome =
        readFile(file, {{"light", [&](ioReadContext& in) {
                             in.startSubPacket();
                             for (auto const* const matrix : {&written.red, &written.green, &written.blue}) {
                                 std::array<double, 16> elements{};
                                 EXPECT_EQ(in.peekCount(), 16u);
                                 EXPECT_TRUE(in.readDoubles(elements.data(), 16));
                                 EXPECT_EQ(elements[1], (*matrix)(0, 1));
                                 EXPECT_EQ(elements[12], (*matrix)(3, 0));
                             }
                             EXPECT_FALSE(in.hasValues());
                             in.endSubPacket();
                         }}});
    EXPECT_EQ(outcome.result, ReadResult::Complete);
}

TEST(IrradiancePacket, OfAnotherShapeLeavesTheMatricesAfterIt)
{
    std::array<double, 16> const ones{1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    auto const file = fileOf([&](ioWriteContext& out) {
        out.startPacket("light", nullptr);
        out.startSubPacket();
        out.writeDoubles(ones.data(), 16);
        out.writeDoubles(ones.data(), 15);
        out.writeDoubles(ones.data(), 16);
        out.endSubPacket();
        out.endPacket();
    });
    Irradiance read = awkwardIrradiance();
    Irradiance const before = read;
    auto const outcome = readFile(file, {{"light", [&](ioReadContext& in) { readIrradiance(in, read); }}});
    EXPECT_EQ(outcome.result, ReadResult::Damaged);
    EXPECT_EQ(outcome.report.first().problem, Problem::WrongValue);
    EXPECT_EQ(read.red(2, 2), 1.0);
    EXPECT_EQ(std::memcmp(&read.green, &before.green, 2 * sizeof read.green), 0);
}

TEST(IrradiancePacket, OutsideAPacketIsMisuse)
{
    koPacketFile::MemorySink sink;
    ioWriteContext out(sink);
    writeIrradiance(out, {});
    EXPECT_FALSE(out.commit());
    EXPECT_EQ(out.error().problem, Problem::Misuse);
}

}  // namespace
}  // namespace koImage::packetFile
