// What the edits of a whole array are measured against: the plainest loops that touch the same bytes.
#pragma once

#include "koImage/image/simd.h"
#include "koImage/image/typed_image.h"

#include <cstdint>
#include <cstring>
#include <span>

namespace koImage::testing {

/// Reads, changes and writes every byte (in whole words of eight).
inline void readModifyWrite(std::span<unsigned char> bytes)
{
    for (std::size_t at = 0; at + 8 <= bytes.size(); at += 8) {
        std::uint64_t word;
        std::memcpy(&word, bytes.data() + at, 8);
        word = ~word;
        std::memcpy(bytes.data() + at, &word, 8);
    }
}

/// Writes every byte (in whole lines of 64, from an aligned start) past the cache.
inline void streamingFill(std::span<unsigned char> bytes)
{
#if KO_SIMD_SSE2
    __m128i const value = _mm_set1_epi32(0x3F800000);
    for (std::size_t at = 0; at + 64 <= bytes.size(); at += 64)
        for (std::size_t i = 0; i < 64; i += 16)
            _mm_stream_si128(reinterpret_cast<__m128i*>(bytes.data() + at + i), value);
    _mm_sfence();
#else
    std::memset(bytes.data(), 0x3F, bytes.size());
#endif
}

/// The pixels of an image as bytes.
template <class Pixel>
std::span<unsigned char> bytesOf(TypedImage<Pixel>& image)
{
    auto const pixels = pixelsOf<Pixel>(image);
    return {reinterpret_cast<unsigned char*>(pixels.data()), pixels.size_bytes()};
}

}  // namespace koImage::testing
