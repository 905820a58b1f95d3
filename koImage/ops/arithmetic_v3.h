// Arithmetic of halves, eight at a time; equal to zipChannels on all inputs. Private: see simd.h.
#pragma once

#include "koImage/image/half_v3.h"
#include "koImage/image/pixel_types.h"
#include "koImage/image/simd.h"
#include "koImage/image/streaming.h"

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

}  // namespace koImage::v3

#endif
