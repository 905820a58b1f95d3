// The conversions that compilers leave far from the speed of memory, each for a leading multiple of its
// block. Private: see simd.h.
#pragma once

#include "koImage/image/pixel_types.h"
#include "koImage/image/simd.h"

#include <cstddef>

#if KO_SIMD_V3

namespace koImage::v3 {

/// Eight times lowByte(truncateToInt(value * 255)), in 32-bit lanes. The processor's truncation gives the
/// 32-bit minimum for NaN and values out of range, as the definition does.
inline __m256i lowBytesOf(float const* values)
{
    __m256 const scaled = _mm256_mul_ps(_mm256_loadu_ps(values), _mm256_set1_ps(255.0f));
    return _mm256_and_si256(_mm256_cvttps_epi32(scaled), _mm256_set1_epi32(0xFF));
}

/// Floats to bytes, 32 at a time. Returns how many were converted.
inline std::size_t convertBlocks(float const* from, unsigned char* to, std::size_t count)
{
    std::size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        // Every lane holds a byte, so the packs saturate nothing. They interleave the halves of their
        // operands and leave the groups of four in the order 0 2 4 6 1 3 5 7.
        __m256i const a = _mm256_packus_epi32(lowBytesOf(from + i), lowBytesOf(from + i + 8));
        __m256i const b = _mm256_packus_epi32(lowBytesOf(from + i + 16), lowBytesOf(from + i + 24));
        __m256i const inOrder =
            _mm256_permutevar8x32_epi32(_mm256_packus_epi16(a, b), _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + i), inOrder);
    }
    return i;
}

/// Three channels to four, alpha 0, eight pixels at a time. Returns how many were converted.
inline std::size_t convertBlocks(Float3 const* from, Float4* to, std::size_t count)
{
    // Two pixels of eight loaded floats: the first six, or for the last pair the last six.
    __m256i const firstSix = _mm256_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0);
    __m256i const lastSix = _mm256_setr_epi32(2, 3, 4, 0, 5, 6, 7, 0);
    auto const spread = [](float const* channels, __m256i six, Float4* pair) {
        __m256 const rgb = _mm256_permutevar8x32_ps(_mm256_loadu_ps(channels), six);
        _mm256_storeu_ps(&pair->r, _mm256_blend_ps(rgb, _mm256_setzero_ps(), 0x88));
    };
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        float const* const channels = &from[i].r;
        spread(channels, firstSix, to + i);
        spread(channels + 6, firstSix, to + i + 2);
        spread(channels + 12, firstSix, to + i + 4);
        spread(channels + 16, lastSix, to + i + 6);
    }
    return i;
}

}  // namespace koImage::v3

#endif
