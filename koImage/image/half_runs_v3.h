// The loops of half_runs.cpp, sixteen values a turn. Private: see simd.h.
#pragma once

#include "koImage/image/half_v3.h"

#include <cstddef>

#if KO_SIMD_V3

namespace koImage::v3 {

/// Converts all but the last count % 16 values; returns how many those are.
inline std::size_t convertSixteens(half const* halves, float* floats, std::size_t count)
{
    std::size_t const end = count - count % 16;
    for (std::size_t i = 0; i < end; i += 16) {
        prefetchAhead(halves + i);
        auto const* const from = reinterpret_cast<__m128i const*>(halves + i);
        __m128i const low = _mm_loadu_si128(from);
        __m128i const high = _mm_loadu_si128(from + 1);

        __m128i const signalling = _mm_or_si128(signallingOf(low), signallingOf(high));
        if (_mm_testz_si128(signalling, signalling)) [[likely]] {
            _mm256_storeu_ps(floats + i, quietFloatsOf(low));
            _mm256_storeu_ps(floats + i + 8, quietFloatsOf(high));
        } else {
            _mm256_storeu_ps(floats + i, floatsOf(low));
            _mm256_storeu_ps(floats + i + 8, floatsOf(high));
        }
    }
    return end;
}

inline std::size_t convertSixteens(float const* floats, half* halves, std::size_t count)
{
    std::size_t const end = count - count % 16;
    for (std::size_t i = 0; i < end; i += 16) {
        prefetchAhead(floats + i);
        __m256 const low = _mm256_loadu_ps(floats + i);
        __m256 const high = _mm256_loadu_ps(floats + i + 8);

        auto* const to = reinterpret_cast<__m128i*>(halves + i);
        __m256i const special = specialOf(_mm256_max_epi32(magnitudesOf(low), magnitudesOf(high)));
        if (_mm256_testz_si256(special, special)) [[likely]] {
            _mm_storeu_si128(to, finiteHalvesOf(low));
            _mm_storeu_si128(to + 1, finiteHalvesOf(high));
        } else {
            _mm_storeu_si128(to, halvesOf(low));
            _mm_storeu_si128(to + 1, halvesOf(high));
        }
    }
    return end;
}

}  // namespace koImage::v3

#endif
