// Arithmetic of halves and division of bytes, many at a time; equal to the loops of arithmetic.cpp on all
// inputs. Private: see simd.h.
#pragma once

#include "koImage/image/half_v3.h"
#include "koImage/image/pixel_types.h"
#include "koImage/image/simd.h"

#include <cstddef>
#include <functional>
#include <type_traits>

#if KO_SIMD_V3

namespace koImage::v3 {

/// Eight halves of eight sums or differences of two halves: half the work of halvesOf.
///
/// A half is a multiple of 2^-24, and so is a sum. One below 2^-14 therefore is a half as it stands. Above,
/// half a unit of the result is bit 12 of the float: adding that bit and cutting the float off rounds half
/// away from zero. Below it adds less than what is cut off, so it can be added everywhere.
inline __m128i halvesOfSums(__m256 sums)
{
    // -0 becomes +0 when 0 is added; nothing else changes.
    __m256i const bits = _mm256_castps_si256(_mm256_add_ps(sums, _mm256_setzero_ps()));

    // From 65520 on, infinity and NaN included, the general way.
    __m256i const magnitude = _mm256_and_si256(bits, _mm256_set1_epi32(0x7FFFFFFF));
    __m256i const large = _mm256_cmpgt_epi32(magnitude, _mm256_set1_epi32(0x477FEFFF));
    if (!_mm256_testz_si256(large, large)) [[unlikely]]
        return halvesOf(sums);

    __m256i const rounded = _mm256_add_epi32(bits, _mm256_set1_epi32(0x1000));
    return _mm256_cvtps_ph(_mm256_castsi256_ps(rounded), _MM_FROUND_TO_ZERO);
}

/// result[i] = op(a[i], b[i]), four pixels at a time: `count` is a multiple of 4. Op takes vectors of floats,
/// as the function objects of the standard library do.
template <class Op>
void zipHalves(Half4 const* a, Half4 const* b, Half4* result, std::size_t count, Op op)
{
    auto const zip8 = [op](Half4 const* p, Half4 const* q) {
        __m256 const floats = op(quietFloatsOf(_mm_loadu_si128(reinterpret_cast<__m128i const*>(p))),
                                 quietFloatsOf(_mm_loadu_si128(reinterpret_cast<__m128i const*>(q))));
        constexpr bool sums = std::is_same_v<Op, std::plus<>> || std::is_same_v<Op, std::minus<>>;
        return sums ? halvesOfSums(floats) : halvesOf(floats);
    };
    // Written 32 bytes at a time, as streamLines reads them: a read of two fresh writes has to wait.
    for (std::size_t i = 0; i < count; i += 4) {
        prefetchAhead(a + i);
        prefetchAhead(b + i);
        __m256i const halves = _mm256_set_m128i(zip8(a + i + 2, b + i + 2), zip8(a + i, b + i));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(result + i), halves);
    }
}

/// Eight quotients of bytes that stand in the low bytes of 32-bit lanes, the divisors not 0: their low bytes.
inline __m256i byteQuotients(__m256i a, __m256i b)
{
    __m256 const quotient = _mm256_div_ps(_mm256_cvtepi32_ps(a), _mm256_cvtepi32_ps(b));
    __m256 const scaled = _mm256_mul_ps(quotient, _mm256_set1_ps(255.0f));
    __m256i const rounded = _mm256_cvttps_epi32(_mm256_add_ps(scaled, _mm256_set1_ps(0.5f)));
    return _mm256_and_si256(rounded, _mm256_set1_epi32(0xFF));
}

/// result[i] = a[i] / b[i] as imageDiv defines it. `count` is a multiple of 32.
inline void divideBytes(unsigned char const* a, unsigned char const* b, unsigned char* result,
                        std::size_t count)
{
    __m256i const zero = _mm256_setzero_si256();
    for (std::size_t i = 0; i < count; i += 32) {
        __m256i const p = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(a + i));
        __m256i const q = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(b + i));
        __m256i const byZero = _mm256_cmpeq_epi8(q, zero);
        __m256i const divisor = _mm256_sub_epi8(q, byZero);  // 1 instead of 0

        // Widened and narrowed within each half of the register, so the order comes back.
        auto const quotients16 = [zero](__m256i p16, __m256i q16) {
            return _mm256_packus_epi32(
                byteQuotients(_mm256_unpacklo_epi16(p16, zero), _mm256_unpacklo_epi16(q16, zero)),
                byteQuotients(_mm256_unpackhi_epi16(p16, zero), _mm256_unpackhi_epi16(q16, zero)));
        };
        __m256i const quotients = _mm256_packus_epi16(
            quotients16(_mm256_unpacklo_epi8(p, zero), _mm256_unpacklo_epi8(divisor, zero)),
            quotients16(_mm256_unpackhi_epi8(p, zero), _mm256_unpackhi_epi8(divisor, zero)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(result + i), _mm256_blendv_epi8(quotients, p, byZero));
    }
}

}  // namespace koImage::v3

#endif
