// Turning runs of pixels around in 256-bit registers. Private: see simd.h.
#pragma once

#include "koImage/image/simd.h"

#if KO_SIMD_V3

namespace koImage::v3 {

inline __m256i loadRegister(void const* source)
{
    return _mm256_loadu_si256(static_cast<__m256i const*>(source));
}

inline void storeRegister(void* target, __m256i value)
{
    _mm256_storeu_si256(static_cast<__m256i*>(target), value);
}

/// One register of pixels of Size bytes.
template <std::size_t Size>
struct PixelBlock {
    __m256i pixels;

    static PixelBlock load(void const* source) { return {loadRegister(source)}; }
    void store(void* target) const { storeRegister(target, pixels); }

    PixelBlock reversed() const
    {
        if constexpr (Size == 1) {
            __m128i const backward = _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
            __m256i const halves = _mm256_shuffle_epi8(pixels, _mm256_broadcastsi128_si256(backward));
            return {_mm256_permute4x64_epi64(halves, _MM_SHUFFLE(1, 0, 3, 2))};
        } else if constexpr (Size == 4) {
            return {_mm256_permutevar8x32_epi32(pixels, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0))};
        } else if constexpr (Size == 8) {
            return {_mm256_permute4x64_epi64(pixels, _MM_SHUFFLE(0, 1, 2, 3))};
        } else {
            static_assert(Size == 16);
            return {_mm256_permute4x64_epi64(pixels, _MM_SHUFFLE(1, 0, 3, 2))};
        }
    }
};

/// Three registers of pixels of 12 bytes: eight pixels, 24 words.
template <>
struct PixelBlock<12> {
    __m256i first;   // words 0 to 7
    __m256i middle;  // words 8 to 15
    __m256i last;    // words 16 to 23

    static PixelBlock load(void const* source)
    {
        auto const* const bytes = static_cast<unsigned char const*>(source);
        return {loadRegister(bytes), loadRegister(bytes + 32), loadRegister(bytes + 64)};
    }
    void store(void* target) const
    {
        auto* const bytes = static_cast<unsigned char*>(target);
        storeRegister(bytes, first);
        storeRegister(bytes + 32, middle);
        storeRegister(bytes + 64, last);
    }

    // Pixel by pixel, and register by register, the words are then
    //
    //   21 22 23  18 19 20  15 16 | 17  12 13 14  9 10 11  6 | 7 8  3 4 5  0 1 2
    PixelBlock reversed() const
    {
        __m256i const toFirst = _mm256_setr_epi32(5, 6, 7, 2, 3, 4, 7, 0);
        __m256i const toMiddle = _mm256_setr_epi32(1, 4, 5, 6, 1, 2, 3, 6);
        __m256i const toLast = _mm256_setr_epi32(7, 0, 3, 4, 5, 0, 1, 2);
        auto const pick = [](__m256i words, __m256i to) { return _mm256_permutevar8x32_epi32(words, to); };
        __m256i const middleWords =
            _mm256_blend_epi32(pick(middle, toMiddle), pick(first, toMiddle), 0b10000000);
        return {
            _mm256_blend_epi32(pick(last, toFirst), pick(middle, toFirst), 0b01000000),
            _mm256_blend_epi32(middleWords, pick(last, toMiddle), 0b00000001),
            _mm256_blend_epi32(pick(first, toLast), pick(middle, toLast), 0b00000010),
        };
    }
};

}  // namespace koImage::v3

#endif
