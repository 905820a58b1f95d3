// Eight halves at a time, equal to the single conversions of half.h on all 2^16 halves and 2^32 floats.
//
// The processor's conversion rounds ties to even and keeps the sign of zero, so it serves here only to
// truncate what has been rounded beforehand. Private: see simd.h.
#pragma once

#include "koImage/image/half.h"
#include "koImage/image/simd.h"

#if KO_SIMD_V3

namespace koImage::v3 {

/// Eight floats, except that a signalling NaN comes out quiet: for arithmetic, where a NaN's payload is free.
inline __m256 quietFloatsOf(__m128i halves)
{
    return _mm256_cvtph_ps(halves);
}

/// Eight floats, payloads of signalling NaNs included.
inline __m256 floatsOf(__m128i halves)
{
    // Signalling: exponent 31, a significand that is not zero, its top bit clear.
    __m128i const magnitude = _mm_and_si128(halves, _mm_set1_epi16(0x7FFF));
    __m128i const signalling = _mm_and_si128(_mm_cmpgt_epi16(magnitude, _mm_set1_epi16(0x7C00)),
                                             _mm_cmpgt_epi16(_mm_set1_epi16(0x7E00), magnitude));
    if (_mm_testz_si128(signalling, signalling)) [[likely]]
        return _mm256_cvtph_ps(halves);

    alignas(16) std::uint16_t words[8];
    alignas(32) std::uint32_t floats[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(words), halves);
    for (int i = 0; i < 8; ++i)
        floats[i] = half::_toFloat[words[i]];
    return _mm256_castsi256_ps(_mm256_load_si256(reinterpret_cast<__m256i const*>(floats)));
}

/// Eight halves.
inline __m128i halvesOf(__m256 floats)
{
    __m256i const bits = _mm256_castps_si256(floats);
    __m256i const magnitude = _mm256_and_si256(bits, _mm256_set1_epi32(0x7FFFFFFF));

    // From 65520 on, infinity and NaN included, one by one: overflow is raised there.
    __m256i const large = _mm256_cmpgt_epi32(magnitude, _mm256_set1_epi32(0x477FEFFF));
    if (!_mm256_testz_si256(large, large)) [[unlikely]] {
        alignas(32) float values[8];
        alignas(16) std::uint16_t words[8];
        _mm256_store_ps(values, floats);
        for (int i = 0; i < 8; ++i)
            words[i] = half(values[i]).bits();
        return _mm_load_si128(reinterpret_cast<__m128i const*>(words));
    }

    // Half a unit of the result, in the pattern of the float: bit 12 where the half is normal, further left
    // by one for every power of two below 2^-14. Added to the magnitude it rounds half away from zero.
    __m256i const exponent = _mm256_srli_epi32(magnitude, 23);
    __m256i const below =
        _mm256_max_epi32(_mm256_sub_epi32(_mm256_set1_epi32(113), exponent), _mm256_setzero_si256());
    __m256i const rounded = _mm256_add_epi32(bits, _mm256_sllv_epi32(_mm256_set1_epi32(0x1000), below));

    // Magnitudes below 2^-25 become +0, their sign dropped.
    __m256i const kept = _mm256_cmpgt_epi32(magnitude, _mm256_set1_epi32(0x32FFFFFF));
    return _mm256_cvtps_ph(_mm256_castsi256_ps(_mm256_and_si256(rounded, kept)), _MM_FROUND_TO_ZERO);
}

}  // namespace koImage::v3

#endif
