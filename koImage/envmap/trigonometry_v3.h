// Sines and arcs, four doubles at a time, close enough to tell the float that the C library's function rounds
// to. Private: see simd.h.
//
// A polynomial in double precision has about 45 good bits, a float 24. So the value is rounded to float from
// slightly below and from slightly above; where both give the same float, the library's double, which lies
// between, rounds to it too. Else, for about one value in a million, the caller asks the library.
//
// Relative errors, in units of 2^-45:
//
//   atan2           the polynomial, degree 8 in t^2, |t| <= tan(pi / 8)                       0.90
//   asin            the polynomial, degree 10 in s <= 1/4: 0.13; doubled where pi / 2 - 2 asin(sqrt(s))
//                   leaves half of what it takes away                                         0.26
//   acos            the same polynomial                                                       0.15
//   sine, cosine    the polynomials, degree 5 and 6 in r^2, |r| <= pi / 4                     0.16
//   all             their evaluation: less than 8 roundings of 2^-53                          0.04
//   library         1 ulp of a double                                                         0.01
//
// All below 1, and so is the product of a sine and a cosine; roundedSurely allows 2. The polynomials are
// minimax approximations, by Remez' exchange, of atan(t) / t, asin(w) / w, sin(r) / r and cos(r).
//
// Compared with glibc's functions on every float of their range, atan2 on 160 million pairs: no float that
// was called sure differed, the largest errors were as above, and at most 1.2 in a million were not sure.
//
// A namespace of its own: other rooms have functions of the same names.
#pragma once

#include "koImage/image/simd.h"

#if KO_SIMD_V3

#include <cstddef>

namespace koImage::v3::trigonometry {

inline constexpr double halfPi = 1.5707963267948966;

/// c[0] + c[1] s + c[2] s^2 + ...
template <std::size_t N>
__m256d polynomial(__m256d s, double const (&c)[N])
{
    __m256d sum = _mm256_set1_pd(c[N - 1]);
    for (std::size_t i = N - 1; i-- > 0;)
        sum = _mm256_fmadd_pd(sum, s, _mm256_set1_pd(c[i]));
    return sum;
}

inline __m256d magnitude(__m256d a)
{
    return _mm256_andnot_pd(_mm256_set1_pd(-0.0), a);
}

inline __m256d signOf(__m256d a)
{
    return _mm256_and_pd(_mm256_set1_pd(-0.0), a);
}

/// yes where the mask is set, else no.
inline __m256d select(__m256d mask, __m256d yes, __m256d no)
{
    return _mm256_blendv_pd(no, yes, mask);
}

/// The angle of (x, y), for widened floats. NaN for (0, 0).
inline __m256d atan2(__m256d y, __m256d x)
{
    static constexpr double c[] = {0.9999999999999744,   -0.33333333330889137,  0.1999999961531495,
                                   -0.14285690907473994, 0.11110396076374882,   -0.09078528771554681,
                                   0.07564642531571529,  -0.058778654520618874, 0.030711295557662215};
    __m256d const ax = magnitude(x);
    __m256d const ay = magnitude(y);
    __m256d const steep = _mm256_cmp_pd(ay, ax, _CMP_GT_OQ);
    __m256d const least = _mm256_min_pd(ax, ay);
    __m256d const most = _mm256_max_pd(ax, ay);

    // Beyond tan(pi / 8) the angle is pi / 4 + atan((least - most) / (least + most)). Sum and difference are
    // exact there: floats within a factor of 2.5.
    __m256d const far =
        _mm256_cmp_pd(least, _mm256_mul_pd(most, _mm256_set1_pd(0.41421356237309503)), _CMP_GT_OQ);
    __m256d const t = _mm256_div_pd(select(far, _mm256_sub_pd(least, most), least),
                                    select(far, _mm256_add_pd(least, most), most));
    __m256d const offset = _mm256_and_pd(far, _mm256_set1_pd(halfPi / 2));
    __m256d angle = _mm256_fmadd_pd(t, polynomial(_mm256_mul_pd(t, t), c), offset);

    // From the first eighth of the circle to all of it.
    angle = select(steep, _mm256_sub_pd(_mm256_set1_pd(halfPi), angle), angle);
    angle = select(x, _mm256_sub_pd(_mm256_set1_pd(2 * halfPi), angle), angle);  // by the sign of x
    return _mm256_or_pd(angle, signOf(y));
}

struct SineCosine {
    __m256d sine;
    __m256d cosine;
};

/// For widened floats in -pi .. pi, but -0.
inline SineCosine sineCosine(__m256d a)
{
    static constexpr double sineFactor[] = {0.9999999999999954,    -0.1666666666661489,
                                            0.008333333323646773,  -0.00019841263193753772,
                                            2.755525256125354e-06, -2.4755307895566186e-08};
    static constexpr double cosineOf[] = {
        0.9999999999999999,     -0.4999999999999915,     0.041666666666453966,  -0.001388888886872182,
        2.4801578148389926e-05, -2.7555177978906423e-07, 2.0627447367873983e-09};

    // a = n pi / 2 + r with |r| <= pi / 4. Near a multiple of pi / 2 the first difference is exact, and what
    // the double pi / 2 lacks follows.
    __m256d const n = _mm256_round_pd(_mm256_mul_pd(a, _mm256_set1_pd(1 / halfPi)),
                                      _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    __m256d const r = _mm256_fnmadd_pd(n, _mm256_set1_pd(6.123233995736766e-17),
                                       _mm256_fnmadd_pd(n, _mm256_set1_pd(halfPi), a));
    __m256d const s = _mm256_mul_pd(r, r);
    __m256d const sine = _mm256_mul_pd(r, polynomial(s, sineFactor));
    __m256d const cosine = polynomial(s, cosineOf);

    // Bits 0 and 1 of n are the quarter of the circle; they decide from the place of a sign.
    __m256i const quarter = _mm256_cvtepi32_epi64(_mm256_cvtpd_epi32(n));
    __m256d const odd = _mm256_castsi256_pd(_mm256_slli_epi64(quarter, 63));
    auto const signIn = [](__m256i bits) { return signOf(_mm256_castsi256_pd(_mm256_slli_epi64(bits, 62))); };
    return {
        _mm256_xor_pd(select(odd, cosine, sine), signIn(quarter)),
        _mm256_xor_pd(select(odd, sine, cosine), signIn(_mm256_add_epi64(quarter, _mm256_set1_epi64x(1))))};
}

/// asin(w) = w * asinFactor(w * w) for 0 <= w <= 1/2.
inline __m256d asinFactor(__m256d s)
{
    static constexpr double c[] = {1.0000000000000036,    0.16666666666331478,  0.0750000005262205,
                                   0.0446428249886156,    0.030382948813039917, 0.022353947276987342,
                                   0.017557077926908127,  0.012510696872114216, 0.018059634913445304,
                                   -0.007564545185866212, 0.03170575143383597};
    return polynomial(s, c);
}

/// What the arc of a in -1 .. 1 is made of: for |a| > 1/2 its complement, twice the arc of sqrt((1 - |a|) /
/// 2).
struct Arc {
    __m256d large;  // whether |a| > 1/2
    __m256d angle;  // asin |a|, or where large acos |a| / 2
};

inline Arc arcOf(__m256d a)
{
    __m256d const size = magnitude(a);
    __m256d const half = _mm256_set1_pd(0.5);
    __m256d const large = _mm256_cmp_pd(size, half, _CMP_GT_OQ);
    __m256d const s =
        select(large, _mm256_mul_pd(_mm256_sub_pd(_mm256_set1_pd(1), size), half), _mm256_mul_pd(size, size));
    __m256d const w = select(large, _mm256_sqrt_pd(s), size);
    return {large, _mm256_mul_pd(w, asinFactor(s))};
}

/// For widened floats; NaN outside -1 .. 1.
inline __m256d asin(__m256d a)
{
    Arc const arc = arcOf(a);
    __m256d const complement = _mm256_fnmadd_pd(_mm256_set1_pd(2), arc.angle, _mm256_set1_pd(halfPi));
    return _mm256_or_pd(select(arc.large, complement, arc.angle), signOf(a));
}

/// For widened floats; NaN outside -1 .. 1.
inline __m256d acos(__m256d a)
{
    Arc const arc = arcOf(a);
    __m256d const twice = _mm256_add_pd(arc.angle, arc.angle);
    __m256d const ofLarge = select(a, _mm256_sub_pd(_mm256_set1_pd(2 * halfPi), twice), twice);
    __m256d const ofSmall = _mm256_sub_pd(_mm256_set1_pd(halfPi), _mm256_or_pd(arc.angle, signOf(a)));
    return select(arc.large, ofLarge, ofSmall);
}

/// Eight floats, and where they are those that the library's values round to (never for NaN).
struct Rounded {
    __m256 value;
    __m256 sure;
};

inline __m256 floatsOf(__m256d low, __m256d high)
{
    return _mm256_set_m128(_mm256_cvtpd_ps(high), _mm256_cvtpd_ps(low));
}

inline Rounded rounded(__m256 below, __m256 above)
{
    return {below, _mm256_cmp_ps(below, above, _CMP_EQ_OQ)};
}

/// Of values with a relative error below 2^-44.
inline Rounded roundedSurely(__m256d low, __m256d high)
{
    __m256d const less = _mm256_set1_pd(1 - 0x1p-44);
    __m256d const more = _mm256_set1_pd(1 + 0x1p-44);
    return rounded(floatsOf(_mm256_mul_pd(low, less), _mm256_mul_pd(high, less)),
                   floatsOf(_mm256_mul_pd(low, more), _mm256_mul_pd(high, more)));
}

/// Of values with an absolute error below 2^-45.
inline Rounded roundedSurelyNearOne(__m256d low, __m256d high)
{
    __m256d const step = _mm256_set1_pd(0x1p-45);
    return rounded(floatsOf(_mm256_sub_pd(low, step), _mm256_sub_pd(high, step)),
                   floatsOf(_mm256_add_pd(low, step), _mm256_add_pd(high, step)));
}

inline __m256d lowDoubles(__m256 a)
{
    return _mm256_cvtps_pd(_mm256_castps256_ps128(a));
}

inline __m256d highDoubles(__m256 a)
{
    return _mm256_cvtps_pd(_mm256_extractf128_ps(a, 1));
}

}  // namespace koImage::v3::trigonometry

#endif
