// The rows of resize_rows.h for x86-64-v3, equal to them to the bit. Private: see simd.h.
#pragma once

#include "koImage/envmap/resize_rows.h"
#include "koImage/image/simd.h"

#if KO_SIMD_V3

#include <cmath>
#include <cstring>

namespace koImage {

namespace v3 {

// --- Points of four bytes, eight at a time: the words, so that a NaN stays as it is ---

template <class Pixel>
void gather(Pixel const* row, std::int32_t const* columns, std::size_t count, Pixel* out)
{
    static_assert(sizeof(Pixel) == 4);
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        __m256i const eight = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(columns + i));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i),
                            _mm256_i32gather_epi32(reinterpret_cast<int const*>(row), eight, 4));
    }
    for (; i < count; ++i)
        out[i] = row[columns[i]];
}

// --- Byte4, eight pixels at a time ---
//
// The products are those of the definition, eight to a register, and no sum of two exceeds 255, so that
// packing with saturation changes nothing: the weights are t and 1 - t, the latter rounded by at most 2^-25,
// and each product is rounded by at most 2^-24 of it.

/// Two pixels.
inline __m128i load2(Byte4 const& first, Byte4 const& second)
{
    std::int32_t words[2];
    std::memcpy(&words[0], &first, 4);
    std::memcpy(&words[1], &second, 4);
    return _mm_insert_epi32(_mm_cvtsi32_si128(words[0]), words[1], 1);
}

/// Two weights, each for the four channels of a pixel.
inline __m256 spread2(float const* weights)
{
    __m256i const both = _mm256_broadcastq_epi64(_mm_loadl_epi64(reinterpret_cast<__m128i const*>(weights)));
    return _mm256_permutevar_ps(_mm256_castsi256_ps(both), _mm256_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1));
}

/// Whole numbers times weights, truncated.
inline __m256i truncatedProducts(__m256i numbers, __m256 weights)
{
    return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(numbers), weights));
}

/// Columns i and i + 1 of a blended row.
inline __m256i across2(Byte4 const* row, Columns const& columns, std::size_t i)
{
    auto const weighted = [&](auto const& x, auto const& weight) {
        return truncatedProducts(_mm256_cvtepu8_epi32(load2(row[x[i]], row[x[i + 1]])), spread2(&weight[i]));
    };
    return _mm256_add_epi32(weighted(columns.near, columns.nearWeight),
                            weighted(columns.far, columns.farWeight));
}

/// Two pixels of two blended rows, blended.
inline __m256i down2(__m256i near, __m256i far, Weights weights)
{
    return _mm256_add_epi32(truncatedProducts(near, _mm256_set1_ps(weights.near)),
                            truncatedProducts(far, _mm256_set1_ps(weights.far)));
}

/// Eight pixels of the numbers that two(k) gives for the pixels k and k + 1.
template <class Two>
__m256i eightOf(Two const& two)
{
    __m256i const bytes =
        _mm256_packus_epi16(_mm256_packs_epi32(two(0), two(2)), _mm256_packs_epi32(two(4), two(6)));
    return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

/// out[i] = eight(i), eight pixels at a time; what eight() gives beyond `count` is not written.
template <class Eight>
void writeEights(std::size_t count, Byte4* out, Eight const& eight)
{
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), eight(i));
    if (i < count) {
        Byte4 rest[8];
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(rest), eight(i));
        std::copy_n(rest, count - i, out + i);
    }
}

// --- Half4, two pixels at a time ---
//
// The processor rounds ties to even, a half rounds them away from zero. So whatever is rounded is first moved
// away from zero: by enough to leave a tie, and by too little to come to the next one. Why it is so stands in
// each function; all products of halves and all sums of two have been compared with half.h.
//
// Products keep the sign of a zero, which a half drops: they are only added up, and the sum drops it.

/// Two pixels.
inline __m128i load2(Half4 const& first, Half4 const& second)
{
    return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<__m128i const*>(&first)),
                              _mm_loadl_epi64(reinterpret_cast<__m128i const*>(&second)));
}

/// To the nearest half, ties to even.
inline __m256 roundedToHalf(__m256 floats)
{
    return _mm256_cvtph_ps(_mm256_cvtps_ph(floats, _MM_FROUND_TO_NEAREST_INT));
}

/// Halves times half weights, rounded to half.
inline __m256 weightedByHalf(__m256 halves, __m256 weights)
{
    // A product p with 2^e <= |p| < 2^(e+1) has 22 bits: it is a multiple of 2^(e-21), and so is every tie
    // near it. A weight moved by one or two units in its last place, 0.66 to 1.34 * 2^-23 of it, moves p by
    // less than 0.67 * 2^(e-21), and rounding the float by at most another 2^(e-24): a tie leaves its place,
    // and nothing else comes to one.
    __m256 const moved = _mm256_mul_ps(weights, _mm256_set1_ps(1 + 0x1p-23f));
    return roundedToHalf(_mm256_mul_ps(halves, moved));
}

/// Halves times a float weight, rounded to float, then to half.
inline __m256 weightedByFloat(__m256 halves, float weight)
{
    // A float that is a tie has a 0 as its last bit: with a 1 there it lies above. Infinity would become NaN,
    // so it becomes a number that overflows; NaN stays.
    __m256 const limit = _mm256_set1_ps(0x1p17f);
    __m256 const product = _mm256_mul_ps(halves, _mm256_set1_ps(weight));
    __m256 const finite = _mm256_max_ps(-limit, _mm256_min_ps(limit, product));
    return roundedToHalf(_mm256_or_ps(finite, _mm256_castsi256_ps(_mm256_set1_epi32(1))));
}

/// Sums of two halves, rounded to half.
inline __m128i halfSums(__m256 a, __m256 b)
{
    // Let 2^e <= |sum| < 2^(e+1), e >= -14; below 2^-14 sums of halves are halves. Ties are the odd multiples
    // of 2^(e-11). To fall short of one by a little, the smaller summand must fall short by as much of a
    // multiple of 2^(e-11), and then has bits of 2^(e-22) and more: by two units in the last place of the sum
    // at least. The sum is moved by one; powers of two, which are halves, stay.
    __m256 const sum = _mm256_add_ps(_mm256_add_ps(a, b), _mm256_setzero_ps());  // -0 becomes +0
    return _mm256_cvtps_ph(_mm256_fmadd_ps(sum, _mm256_set1_ps(0x1p-24f), sum), _MM_FROUND_TO_NEAREST_INT);
}

/// Columns i and i + 1 of a blended row.
inline __m256 across2(Half4 const* row, Columns const& columns, std::size_t i)
{
    auto const weighted = [&](auto const& x, auto const& weight) {
        return weightedByHalf(_mm256_cvtph_ps(load2(row[x[i]], row[x[i + 1]])), spread2(&weight[i]));
    };
    return _mm256_cvtph_ps(
        halfSums(weighted(columns.near, columns.nearWeight), weighted(columns.far, columns.farWeight)));
}

/// Two pixels of two blended rows, blended.
inline __m128i down2(__m256 near, __m256 far, Weights weights)
{
    return halfSums(weightedByFloat(near, weights.near), weightedByFloat(far, weights.far));
}

/// out[i] = two(i), two pixels at a time; what two() gives beyond `count` is not written.
template <class Two>
void writePairs(std::size_t count, Half4* out, Two const& two)
{
    std::size_t i = 0;
    for (; i + 2 <= count; i += 2)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), two(i));
    if (i < count)
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i), two(i));
}

}  // namespace v3

template <>
inline void copyColumns(Byte4 const* row, std::int32_t const* columns, std::size_t count, Byte4* out)
{
    v3::gather(row, columns, count, out);
}

template <>
inline void copyColumns(float const* row, std::int32_t const* columns, std::size_t count, float* out)
{
    v3::gather(row, columns, count, out);
}

template <>
struct RowBlend<Byte4> {
    using Kept = Byte4;

    static void across(Byte4 const* row, Columns const& columns, Kept* kept)
    {
        v3::writeEights(columns.paddedCount(), kept, [&](std::size_t i) {
            return v3::eightOf([&](std::size_t k) { return v3::across2(row, columns, i + k); });
        });
    }

    static void down(Kept const* near, Kept const* far, Weights weights, std::size_t count, Byte4* out)
    {
        // Weights of 16 binary digits, as rows from 128 on have them: their products with bytes have 24 and
        // are exact as floats, so that truncation leaves the upper half of an integer product.
        float const scaled = weights.far * 0x1p16f;
        if (scaled >= 1 && scaled == std::trunc(scaled)) {
            __m256i const zero = _mm256_setzero_si256();
            __m256i const farWeight = _mm256_set1_epi16(static_cast<short>(static_cast<int>(scaled)));
            __m256i const nearWeight = _mm256_sub_epi16(zero, farWeight);  // 2^16 - farWeight
            v3::writeEights(count, out, [&](std::size_t i) {
                __m256i const n = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(near + i));
                __m256i const f = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(far + i));
                auto const sum = [=](__m256i nearWords, __m256i farWords) {
                    return _mm256_add_epi16(_mm256_mulhi_epu16(nearWords, nearWeight),
                                            _mm256_mulhi_epu16(farWords, farWeight));
                };
                return _mm256_packus_epi16(sum(_mm256_unpacklo_epi8(n, zero), _mm256_unpacklo_epi8(f, zero)),
                                           sum(_mm256_unpackhi_epi8(n, zero), _mm256_unpackhi_epi8(f, zero)));
            });
            return;
        }

        auto const numbers = [](Kept const* kept) {
            return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<__m128i const*>(kept)));
        };
        v3::writeEights(count, out, [&](std::size_t i) {
            return v3::eightOf([&](std::size_t k) {
                return v3::down2(numbers(near + i + k), numbers(far + i + k), weights);
            });
        });
    }

    static void both(Byte4 const* near, Byte4 const* far, Columns const& columns, Weights weights, Byte4* out)
    {
        v3::writeEights(columns.count, out, [&](std::size_t i) {
            return v3::eightOf([&](std::size_t k) {
                return v3::down2(v3::across2(near, columns, i + k), v3::across2(far, columns, i + k),
                                 weights);
            });
        });
    }
};

template <>
struct RowBlend<Half4> {
    using Kept = Float4;  // of halves

    static void across(Half4 const* row, Columns const& columns, Kept* kept)
    {
        for (std::size_t i = 0; i < columns.count; i += 2)
            _mm256_storeu_ps(&kept[i].r, v3::across2(row, columns, i));
    }

    static void down(Kept const* near, Kept const* far, Weights weights, std::size_t count, Half4* out)
    {
        v3::writePairs(count, out, [=](std::size_t i) {
            return v3::down2(_mm256_loadu_ps(&near[i].r), _mm256_loadu_ps(&far[i].r), weights);
        });
    }

    static void both(Half4 const* near, Half4 const* far, Columns const& columns, Weights weights, Half4* out)
    {
        v3::writePairs(columns.count, out, [&](std::size_t i) {
            return v3::down2(v3::across2(near, columns, i), v3::across2(far, columns, i), weights);
        });
    }
};

}  // namespace koImage

#endif
