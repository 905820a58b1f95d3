// Arithmetic of polynomials modulo that of CRC-32C, as far as tables need it. Bit 31 is the coefficient of 1,
// bit 0 that of x^31. Private.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace koPacketFile::crc {

inline constexpr std::uint32_t polynomial = 0x82F63B78;

constexpr std::uint32_t timesX(std::uint32_t a)
{
    return (a >> 1) ^ ((a & 1) != 0 ? polynomial : 0);
}

constexpr std::uint32_t product(std::uint32_t a, std::uint32_t b)
{
    std::uint32_t sum = 0;
    for (; a != 0; a <<= 1, b = timesX(b))
        sum ^= (a >> 31) != 0 ? b : 0;
    return sum;
}

/// x to the power of 8 * bytes.
constexpr std::uint32_t powerOfBytes(std::size_t bytes)
{
    std::uint32_t power = 0x80000000;
    std::uint32_t square = 0x00800000;
    for (; bytes != 0; bytes >>= 1, square = product(square, square))
        if ((bytes & 1) != 0)
            power = product(power, square);
    return power;
}

/// Four tables, one for each byte of a register, whose entries are its products with a constant.
using ProductTables = std::array<std::array<std::uint32_t, 256>, 4>;

constexpr ProductTables productTables(std::uint32_t factor)
{
    ProductTables tables{};
    for (std::size_t byte = 0; byte < 4; ++byte) {
        // Products are linear: each entry is the sum of those of its bits.
        for (std::size_t bit = 0; bit < 8; ++bit)
            tables[byte][std::size_t{1} << bit] = product(std::uint32_t{1} << (8 * byte + bit), factor);
        for (std::size_t i = 1; i < 256; ++i)
            tables[byte][i] = tables[byte][i & (i - 1)] ^ tables[byte][i & (0 - i)];
    }
    return tables;
}

}  // namespace koPacketFile::crc
