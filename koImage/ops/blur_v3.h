// Runs of halves to scaled floats and back, eight and four at a time. Private: see simd.h.
#pragma once

#include "koImage/image/half_v3.h"

#if KO_SIMD_V3

namespace koImage::v3 {

/// floats[i] = halves[i] * scale; count is a multiple of 4.
inline void scaleHalves(half const* halves, float scale, float* floats, int count)
{
    for (int i = 0; i < count; i += 4) {
        __m128 const values = _mm_cvtph_ps(_mm_loadl_epi64(reinterpret_cast<__m128i const*>(halves + i)));
        _mm_storeu_ps(floats + i, _mm_mul_ps(values, _mm_set1_ps(scale)));
    }
}

/// halves[i] = floats[i] * scale * factor; count is a multiple of 8.
inline void roundToHalves(float const* floats, float scale, float factor, half* halves, int count)
{
    for (int i = 0; i < count; i += 8) {
        __m256 const values = _mm256_mul_ps(_mm256_loadu_ps(floats + i), _mm256_set1_ps(scale));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(halves + i),
                         halvesOf(_mm256_mul_ps(values, _mm256_set1_ps(factor))));
    }
}

}  // namespace koImage::v3

#endif
