// CRC-32C with the processor's instruction. It takes three cycles but a new one can begin every cycle, so
// three stretches of memory are summed side by side and put together by a multiplication. Private.
#pragma once

#include "koPacketFile/crc32c_polynomial.h"

#if defined(__SSE4_2__)

#include <cstring>
#include <nmmintrin.h>

namespace koPacketFile::v3 {

inline std::uint64_t load8(unsigned char const* bytes)
{
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

/// The register after three stretches of `stretch` bytes, a multiple of 8.
template <std::size_t stretch>
std::uint32_t threeStretches(std::uint32_t state, unsigned char const* bytes)
{
    static_assert(stretch % 8 == 0);
    static constexpr crc::ProductTables past = crc::productTables(crc::powerOfBytes(stretch));
    auto const movePast = [](std::uint64_t s) {
        return past[0][s & 0xFF] ^ past[1][(s >> 8) & 0xFF] ^ past[2][(s >> 16) & 0xFF] ^ past[3][s >> 24];
    };

    std::uint64_t a = state;
    std::uint64_t b = 0;
    std::uint64_t c = 0;
    for (std::size_t at = 0; at < stretch; at += 8) {
        a = _mm_crc32_u64(a, load8(bytes + at));
        b = _mm_crc32_u64(b, load8(bytes + at + stretch));
        c = _mm_crc32_u64(c, load8(bytes + at + 2 * stretch));
    }
    return static_cast<std::uint32_t>(movePast(movePast(a) ^ b) ^ c);
}

inline std::uint32_t updated(std::uint32_t state, unsigned char const* bytes, std::size_t count)
{
    // Lengths that leave little over from a parcel of an image: 28 bytes and 4096, 2048 or 1024.
    constexpr std::size_t longStretch = 1360;
    constexpr std::size_t shortStretch = 168;
    for (; count >= 3 * longStretch; count -= 3 * longStretch, bytes += 3 * longStretch)
        state = threeStretches<longStretch>(state, bytes);
    for (; count >= 3 * shortStretch; count -= 3 * shortStretch, bytes += 3 * shortStretch)
        state = threeStretches<shortStretch>(state, bytes);

    for (; count >= 8; count -= 8, bytes += 8)
        state = static_cast<std::uint32_t>(_mm_crc32_u64(state, load8(bytes)));
    for (; count > 0; --count, ++bytes)
        state = _mm_crc32_u8(state, *bytes);
    return state;
}

}  // namespace koPacketFile::v3

#endif
