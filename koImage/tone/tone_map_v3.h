// Powers of many floats with one exponent, equal to those of the C library. Private: see simd.h.
//
// Each power is computed in double precision as 2^z, z = y log2 x, and again from slightly below and slightly
// above. Where both ends round to the same float, so does every value between them, the library's own among
// them. Elsewhere, about twice in a hundred powers, and for subnormals, infinities, NaN, negative values and
// results near the ends of the normal floats, the library is called.
//
// How far apart the ends must be, relative to the result:
//   our error    both polynomials interpolate at Chebyshev points, log2 within 2^-45 of itself, 2^f within
//   2^-39.7;
//                the roundings are far smaller
//   powf         computes in double precision and rounds once: 0.002 + 0.0025 |z| of an ulp beyond the
//   rounding pow          within an ulp of a double
#pragma once

#include "koImage/image/pixel_types.h"
#include "koImage/image/simd.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#if KO_SIMD_V3

namespace koImage::v3 {

/// The library's power for each kind of pixel, and by how much its value may lie off, relative to the value:
/// a + b |z|.
template <class Pixel>
struct LibraryPower;

template <>
struct LibraryPower<FloatPixel3<float>> {
    // An ulp of a float is at most 2^-23 of it.
    static constexpr double errorAt0 = 0.002 * 0x1p-23 + 0x1p-39;
    static constexpr double errorPerZ = 0.0025 * 0x1p-23 + 0x1p-44;
    static float of(float x, float y) { return std::pow(x, y); }
};

template <>
struct LibraryPower<FloatPixel4<float>> {
    static constexpr double errorAt0 = 0x1p-39;
    static constexpr double errorPerZ = 0x1p-44;
    static float of(float x, float y)
    {
        return static_cast<float>(std::pow(static_cast<double>(x), static_cast<double>(y)));
    }
};

/// A polynomial by Horner's rule, the constant first.
template <class... Coefficients>
__m256d polynomial(__m256d x, double constant, Coefficients... higher)
{
    __m256d const c = _mm256_set1_pd(constant);
    if constexpr (sizeof...(higher) == 0)
        return c;
    else
        return _mm256_fmadd_pd(polynomial(x, higher...), x, c);
}

/// log2 of four positive normal floats.
inline __m256d log2Of(__m128 floats)
{
    // x = 2^e m with m in sqrt(1/2) .. sqrt(2): the exponent is that of x / sqrt(1/2), by its bits.
    __m128i const bits = _mm_castps_si128(floats);
    __m128i const e = _mm_srai_epi32(_mm_sub_epi32(bits, _mm_set1_epi32(0x3F3504F3)), 23);
    __m128 const m = _mm_castsi128_ps(_mm_sub_epi32(bits, _mm_slli_epi32(e, 23)));

    // log2 m is odd in s = (m - 1) / (m + 1), |s| <= 0.1716.
    __m256d const one = _mm256_set1_pd(1.0);
    __m256d const wide = _mm256_cvtps_pd(m);
    __m256d const s = _mm256_div_pd(_mm256_sub_pd(wide, one), _mm256_add_pd(wide, one));
    __m256d const series =
        polynomial(_mm256_mul_pd(s, s), 2.8853900817778504, 0.9617966941125642, 0.5770779425652734,
                   0.4122092344018181, 0.3199063518268179, 0.28289185125038263);
    return _mm256_fmadd_pd(s, series, _mm256_cvtepi32_pd(e));
}

/// 2^z for |z| < 1000.
inline __m256d exp2Of(__m256d z)
{
    // z = k + f, |f| <= 1/2: 1.5 * 2^52 pushes the fraction out, and the low bits of the sum are k.
    __m256d const shift = _mm256_set1_pd(0x1.8p52);
    __m256d const sum = _mm256_add_pd(z, shift);
    __m256d const f = _mm256_sub_pd(z, _mm256_sub_pd(sum, shift));

    __m256d const fraction = polynomial(f, 1.0, 0.6931471805459335, 0.2402265069581299, 0.05550410941205933,
                                        0.009618129159402558, 0.0013333450568000645, 0.00015403455852453838,
                                        1.5310079402249296e-05, 1.3255224878668817e-06);
    __m256i const k = _mm256_slli_epi64(_mm256_castpd_si256(sum), 52);
    return _mm256_castsi256_pd(_mm256_add_epi64(_mm256_castpd_si256(fraction), k));
}

/// Raises every value, a multiple of 4 of them.
template <class Pixel>
void powers(std::span<float> values, float exponent)
{
    using Library = LibraryPower<Pixel>;
    if (exponent == 1.0f)
        return;  // so are the library's, exactly
    __m256d const y = _mm256_set1_pd(static_cast<double>(exponent));
    __m256d const sign = _mm256_set1_pd(-0.0);
    __m128i const blackStays = _mm_set1_epi32(exponent > 0.0f ? -1 : 0);

    for (std::size_t i = 0; i < values.size(); i += 4) {
        __m128 const x = _mm_loadu_ps(&values[i]);

        // Only positive normal floats, and black.
        __m128i const bits = _mm_castps_si128(x);
        __m128i const normal = _mm_and_si128(_mm_cmpgt_epi32(bits, _mm_set1_epi32(0x007FFFFF)),
                                             _mm_cmpgt_epi32(_mm_set1_epi32(0x7F800000), bits));
        __m128i const black = _mm_and_si128(_mm_cmpeq_epi32(bits, _mm_setzero_si128()), blackStays);

        // So are results of 2^-125 and less or 2^127 and more; NaN exponents compare false.
        __m256d const z = _mm256_mul_pd(y, log2Of(x));
        __m256d const magnitude = _mm256_andnot_pd(sign, z);
        __m256d const small = _mm256_cmp_pd(magnitude, _mm256_set1_pd(125.0), _CMP_LT_OQ);

        __m256d const power = exp2Of(z);
        __m256d const error =
            _mm256_mul_pd(power, _mm256_fmadd_pd(magnitude, _mm256_set1_pd(Library::errorPerZ),
                                                 _mm256_set1_pd(Library::errorAt0)));
        __m128 const below = _mm256_cvtpd_ps(_mm256_sub_pd(power, error));
        __m128 const above = _mm256_cvtpd_ps(_mm256_add_pd(power, error));

        __m128 const result = _mm_andnot_ps(_mm_castsi128_ps(black), below);

        int const certain = (_mm_movemask_ps(_mm_cmpeq_ps(below, above)) & _mm256_movemask_pd(small) &
                             _mm_movemask_ps(_mm_castsi128_ps(normal))) |
                            _mm_movemask_ps(_mm_castsi128_ps(black));
        if (certain == 0xF) [[likely]] {
            _mm_storeu_ps(&values[i], result);
            continue;
        }
        alignas(16) float found[4];
        _mm_store_ps(found, result);
        for (std::size_t lane = 0; lane < 4; ++lane)
            values[i + lane] =
                (certain >> lane & 1) != 0 ? found[lane] : Library::of(values[i + lane], exponent);
    }
}

}  // namespace koImage::v3

#endif
