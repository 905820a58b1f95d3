#include "koPacketFile/crc32c.h"

#include "koPacketFile/crc32c_v3.h"

namespace koPacketFile {

namespace {

#if !defined(__SSE4_2__)

// Entry [n][i]: the register after the byte i and n bytes of zero.
using ByteTables = std::array<std::array<std::uint32_t, 256>, 8>;

constexpr ByteTables byteTables()
{
    ByteTables tables{};
    for (std::size_t n = 0; n < 8; ++n) {
        crc::ProductTables const products = crc::productTables(crc::powerOfBytes(n + 1));
        tables[n] = products[0];
    }
    return tables;
}

constexpr ByteTables tables = byteTables();

// Eight bytes a step: each looks up what it becomes by the end of the step, on its own.
std::uint32_t updated(std::uint32_t state, unsigned char const* bytes, std::size_t count)
{
    for (; count >= 8; count -= 8, bytes += 8) {
        std::uint32_t next = 0;
        for (std::size_t i = 0; i < 4; ++i)
            next ^= tables[7 - i][bytes[i] ^ ((state >> (8 * i)) & 0xFF)] ^ tables[3 - i][bytes[4 + i]];
        state = next;
    }
    for (; count > 0; --count, ++bytes)
        state = (state >> 8) ^ tables[0][*bytes ^ (state & 0xFF)];
    return state;
}

#else

using v3::updated;

#endif

}  // namespace

std::uint32_t crc32c(std::uint32_t crc, void const* bytes, std::size_t count)
{
    return ~updated(~crc, static_cast<unsigned char const*>(bytes), count);
}

}  // namespace koPacketFile
