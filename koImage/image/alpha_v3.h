// Both alpha edits on eight pixels at a time, equal to the definitions of alpha.cpp on all 2^16 pairs of
// colour and alpha. Private: see simd.h.
#pragma once

#include "koImage/image/byte4_v3.h"

#if KO_SIMD_V3

namespace koImage::v3 {

/// In single precision, byte * (alpha / 255) truncated is the integer quotient byte * alpha / 255.
inline __m256i preMultiplied(__m256i pixels)
{
    __m256i const zero = _mm256_setzero_si256();
    __m256i const alphaLow =
        shuffleHalves(pixels, _mm_setr_epi8(3, -1, 3, -1, 3, -1, 3, -1, 7, -1, 7, -1, 7, -1, 7, -1));
    __m256i const alphaHigh =
        shuffleHalves(pixels, _mm_setr_epi8(11, -1, 11, -1, 11, -1, 11, -1, 15, -1, 15, -1, 15, -1, 15, -1));
    __m256i const low = _mm256_mullo_epi16(_mm256_unpacklo_epi8(pixels, zero), alphaLow);
    __m256i const high = _mm256_mullo_epi16(_mm256_unpackhi_epi8(pixels, zero), alphaHigh);

    // x / 255 = (x * 0x8081) >> 23 for every 16-bit x.
    auto const quotient = [](__m256i x) {
        return _mm256_srli_epi16(_mm256_mulhi_epu16(x, _mm256_set1_epi16(static_cast<short>(0x8081))), 7);
    };
    __m256i const colours = _mm256_packus_epi16(quotient(low), quotient(high));
    return _mm256_blendv_epi8(colours, pixels, _mm256_set1_epi32(static_cast<int>(0xFF000000)));
}

/// The definition itself: here the roundings of 255 / alpha and of the product decide some quotients.
inline __m256i unPreMultiplied(__m256i pixels)
{
    __m256i const lowByte = _mm256_set1_epi32(0xFF);
    __m256i const alpha = _mm256_srli_epi32(pixels, 24);
    __m256i const noAlpha = _mm256_cmpeq_epi32(alpha, _mm256_setzero_si256());
    __m256i const divisor = _mm256_or_si256(alpha, _mm256_and_si256(noAlpha, lowByte));
    __m256 const factor = _mm256_div_ps(_mm256_set1_ps(255.0f), _mm256_cvtepi32_ps(divisor));

    auto const scaled = [factor](__m256i channel) {
        return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(channel), factor));
    };
    __m256i const red = scaled(_mm256_and_si256(pixels, lowByte));
    __m256i const green = scaled(
        shuffleHalves(pixels, _mm_setr_epi8(1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1)));
    __m256i const blue = scaled(
        shuffleHalves(pixels, _mm_setr_epi8(2, -1, -1, -1, 6, -1, -1, -1, 10, -1, -1, -1, 14, -1, -1, -1)));

    // Both packs saturate, the second one at 255: that is the clamp.
    __m256i const planes =
        _mm256_packus_epi16(_mm256_packs_epi32(red, green), _mm256_packs_epi32(blue, alpha));
    return shuffleHalves(planes, _mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15));
}

}  // namespace koImage::v3

#endif
