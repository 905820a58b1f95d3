// Eight halves at a time, equal to the single conversions of half.h on all 2^16 halves and 2^32 floats, the
// overflow condition included.
//
// The processor converts in the same way but for three things, which are put right around its instruction:
// it rounds ties to even, keeps the sign of zero, and makes signalling NaNs quiet. Private: see simd.h.
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

/// All ones where a half is a signalling NaN, else zero.
inline __m128i signallingOf(__m128i halves)
{
    // Exponent 31, the top bit of the significand clear, the others not all zero. With the sign shifted out
    // these are the words 0xF802 to 0xFBFE, moved here to the upper end of the signed range.
    __m128i const moved = _mm_add_epi16(_mm_add_epi16(halves, halves), _mm_set1_epi16(0x7FFE - 0xFBFE));
    return _mm_cmpgt_epi16(moved, _mm_set1_epi16(0x7C00));
}

/// Eight floats, payloads of signalling NaNs included.
inline __m256 floatsOf(__m128i halves)
{
    __m128i const signalling = signallingOf(halves);
    if (_mm_testz_si128(signalling, signalling)) [[likely]]
        return quietFloatsOf(halves);

    alignas(16) std::uint16_t words[8];
    alignas(32) std::uint32_t floats[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(words), halves);
    for (int i = 0; i < 8; ++i)
        floats[i] = half::_toFloat[words[i]];
    return _mm256_castsi256_ps(_mm256_load_si256(reinterpret_cast<__m256i const*>(floats)));
}

/// The bit patterns without their signs.
inline __m256i magnitudesOf(__m256 floats)
{
    return _mm256_and_si256(_mm256_castps_si256(floats), _mm256_set1_epi32(0x7FFFFFFF));
}

/// All ones where a magnitude is infinity or NaN, else zero.
inline __m256i specialOf(__m256i magnitudes)
{
    return _mm256_cmpgt_epi32(magnitudes, _mm256_set1_epi32(0x7F7FFFFF));
}

/// Eight halves of finite floats.
inline __m128i finiteHalvesOf(__m256 floats)
{
    // A tie with its last bit set lies above the tie, and goes away from zero; the last bit of any other
    // float is too far down to change its rounding.
    __m256i const noTies = _mm256_or_si256(_mm256_castps_si256(floats), _mm256_set1_epi32(1));

    // Magnitudes below 2^-25 become +0, their sign dropped.
    __m256i const kept = _mm256_cmpgt_epi32(magnitudesOf(floats), _mm256_set1_epi32(0x32FFFFFF));
    __m256 const rounded = _mm256_castsi256_ps(_mm256_and_si256(noTies, kept));

    // Raises the overflow condition by itself.
    return _mm256_cvtps_ph(rounded, _MM_FROUND_TO_NEAREST_INT);
}

/// Eight halves.
inline __m128i halvesOf(__m256 floats)
{
    __m256i const special = specialOf(magnitudesOf(floats));
    if (_mm256_testz_si256(special, special)) [[likely]]
        return finiteHalvesOf(floats);

    alignas(32) float values[8];
    alignas(16) std::uint16_t words[8];
    _mm256_store_ps(values, floats);
    for (int i = 0; i < 8; ++i)
        words[i] = half(values[i]).bits();
    return _mm_load_si128(reinterpret_cast<__m128i const*>(words));
}

}  // namespace koImage::v3

#endif
