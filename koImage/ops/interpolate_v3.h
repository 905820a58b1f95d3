// Which of 64 pixels are holes, in a few instructions. Private: see simd.h.
#pragma once

#include "koImage/image/simd.h"

#if KO_SIMD_V3

#include <cstdint>

namespace koImage::v3 {

/// Bit i is set where mask[i] is 0, i < 64.
inline std::uint64_t holesOf64(unsigned char const* mask)
{
    auto const holesOf32 = [](unsigned char const* bytes) {
        __m256i const loaded = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(bytes));
        __m256i const zero = _mm256_cmpeq_epi8(loaded, _mm256_setzero_si256());
        return static_cast<std::uint32_t>(_mm256_movemask_epi8(zero));
    };
    return holesOf32(mask) | std::uint64_t{holesOf32(mask + 32)} << 32;
}

}  // namespace koImage::v3

#endif
