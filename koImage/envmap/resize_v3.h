// The blends of resize_rows.h for x86-64-v3, equal to them to the bit. Private: see simd.h.
#pragma once

#include "koImage/envmap/resize_rows.h"
#include "koImage/image/simd.h"

#if KO_SIMD_V3

#include <cmath>
#include <cstring>

namespace koImage {

namespace v3 {

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

}  // namespace v3

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

}  // namespace koImage

#endif
