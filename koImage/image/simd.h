// Which instruction set a source is compiled for, and the few intrinsics that every fast path shares.
//
// libkoImage is built for baseline x86-64 and for x86-64-v3 from the same sources. A fast path stands in a
// room of its own, <concept>_v3.h, included by <concept>.cpp where KO_SIMD_V3 is 1; the definition beside it
// serves every other processor. Rooms are private: nothing that is installed includes them.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__AVX2__) && defined(__FMA__) && defined(__F16C__) && defined(__BMI2__)
#define KO_SIMD_V3 1
#include <immintrin.h>
#else
#define KO_SIMD_V3 0
#endif

#if defined(__SSE2__)
#define KO_SIMD_SSE2 1
#include <emmintrin.h>
#else
#define KO_SIMD_SSE2 0
#endif

namespace koImage {

/// Asks for the cache line that lies `bytes` after `address`: for loops over large arrays that do so much for
/// each line, or stream so much out beside, that the processor by itself looks too short a way ahead. A hint:
/// nothing happens where there is no memory.
inline void prefetchAhead([[maybe_unused]] void const* address, [[maybe_unused]] std::ptrdiff_t bytes = 2048)
{
#if KO_SIMD_SSE2
    auto const line = reinterpret_cast<std::uintptr_t>(address) + static_cast<std::uintptr_t>(bytes);
    _mm_prefetch(reinterpret_cast<char const*>(line), _MM_HINT_T0);  // NOLINT(performance-no-int-to-ptr)
#endif
}

}  // namespace koImage
