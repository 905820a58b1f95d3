#include "koPacketFile/crc32c.h"

#include "koPacketFile/encoding.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace koPacketFile {
namespace {

// One bit at a time, from the definition of the checksum.
std::uint32_t bitwise(std::uint32_t crc, unsigned char const* bytes, std::size_t count)
{
    std::uint32_t state = ~crc;
    for (std::size_t i = 0; i < count; ++i) {
        state ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit)
            state = (state & 1) != 0 ? (state >> 1) ^ 0x82F63B78u : state >> 1;
    }
    return ~state;
}

std::vector<unsigned char> randomBytes(std::size_t count)
{
    std::mt19937 random(7);
    std::vector<unsigned char> bytes(count);
    for (auto& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

TEST(Crc32c, HasTheCheckValueOfItsPolynomial)
{
    EXPECT_EQ(crc32c(0, "123456789", 9), 0xE3069283u);
}

TEST(Crc32c, IsTheBitwiseOneAtEveryLengthAndAlignment)
{
    constexpr std::size_t most = 4200;
    auto const bytes = randomBytes(most + 8);
    for (std::size_t alignment = 0; alignment < 8; ++alignment) {
        unsigned char const* const first = bytes.data() + alignment;
        std::uint32_t expected = 0x12345678;
        for (std::size_t length = 0; length <= most; ++length) {
            ASSERT_EQ(crc32c(0x12345678, first, length), expected) << length << " bytes at " << alignment;
            expected = bitwise(expected, first + length, 1);
        }
    }
}

TEST(Crc32c, IsTheBitwiseOneOfAMegabyte)
{
    auto const bytes = randomBytes((1 << 20) + 5);
    EXPECT_EQ(crc32c(0, bytes.data(), bytes.size()), bitwise(0, bytes.data(), bytes.size()));
}

TEST(Crc32c, GoesOnFromTheChecksumOfWhatCameBefore)
{
    auto const bytes = randomBytes(9000);
    for (std::size_t const cut : {0u, 1u, 8u, 503u, 4080u, 4081u, 8999u, 9000u})
        EXPECT_EQ(crc32c(crc32c(0, bytes.data(), cut), bytes.data() + cut, bytes.size() - cut),
                  crc32c(0, bytes.data(), bytes.size()));
}

TEST(Crc32c, OfNothingIsWhatCameBefore)
{
    EXPECT_EQ(crc32c(0, nullptr, 0), 0u);
    EXPECT_EQ(crc32c(0xDEADBEEF, nullptr, 0), 0xDEADBEEFu);
}

// Without the mask both messages end in the same checksum.
TEST(Masked, KeepsMessagesApartThatHoldTheirOwnChecksum)
{
    auto const withChecksum = [](char const* text, bool mask) {
        std::uint32_t const crc = crc32c(0, text, std::strlen(text));
        unsigned char stored[4];
        store(stored, mask ? masked(crc) : crc);
        return crc32c(crc, stored, sizeof stored);
    };
    EXPECT_EQ(withChecksum("one", false), withChecksum("another", false));
    EXPECT_NE(withChecksum("one", true), withChecksum("another", true));
}

TEST(Crc32c, IsStoredInAFormThatCanBeUndone)
{
    for (std::uint32_t crc = 0; crc < 0xFFF00000u; crc += 0xFEDCB)
        ASSERT_EQ(unmasked(masked(crc)), crc);
    EXPECT_EQ(unmasked(masked(0xFFFFFFFFu)), 0xFFFFFFFFu);
    EXPECT_NE(masked(0x12345678u), 0x12345678u);
}

}  // namespace
}  // namespace koPacketFile
