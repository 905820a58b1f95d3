// Walking over pixels of four bytes, eight to a register. Private: see simd.h.
#pragma once

#include "koImage/image/byte4_words.h"

#if KO_SIMD_V3

namespace koImage::v3 {

/// The same shuffle of bytes in both halves of a register; a negative index gives 0.
inline __m256i shuffleHalves(__m256i pixels, __m128i indices)
{
    return _mm256_shuffle_epi8(pixels, _mm256_broadcastsi128_si256(indices));
}

/// Edits whole lines of 16 pixels and returns how many pixels they hold; the rest is the caller's.
template <class Edit>
std::int64_t editLines(void* pixels, std::int64_t count, Edit edit)
{
    auto* line = static_cast<__m256i*>(pixels);
    std::int64_t done = 0;
    for (; count - done >= 16; done += 16, line += 2) {
        prefetchAhead(line, fetchDistance);
        _mm256_storeu_si256(line, edit(_mm256_loadu_si256(line)));
        _mm256_storeu_si256(line + 1, edit(_mm256_loadu_si256(line + 1)));
    }
    return done;
}

}  // namespace koImage::v3

#endif
