// The irradiance sums of many pixels. Private: see simd.h.
//
// Every sum takes its pixels one after the other, so only the sums run side by side: the coefficients 0 to 7
// of a channel in one register each, coefficient 8 of the three channels in another.
#pragma once

#include "koImage/image/simd.h"
#include "koImage/lighting/irradiance_run.h"

#include <array>
#include <cstddef>

#if KO_SIMD_V3

namespace koImage::v3 {

inline void addRun(std::array<Float3, 9>& sums, IrradianceRun const& run)
{
    float* const sum = &sums[0].r;
    __m256i const everyThird = _mm256_setr_epi32(0, 3, 6, 9, 12, 15, 18, 21);
    __m256 red = _mm256_i32gather_ps(sum, everyThird, 4);
    __m256 green = _mm256_i32gather_ps(sum + 1, everyThird, 4);
    __m256 blue = _mm256_i32gather_ps(sum + 2, everyThird, 4);
    __m128 last = _mm_setr_ps(sum[24], sum[25], sum[26], 0.0f);

    __m256 const constants = _mm256_setr_ps(0.282095f, -0.488603f, 0.488603f, -0.488603f, 1.092548f,
                                            -1.092548f, 0.315392f, -1.092548f);
    __m256 const ones = _mm256_set1_ps(1.0f);
    for (std::size_t i = 0; i < run.count; ++i) {
        // first = 1 y z x x y q x, second = 1 1 1 1 y z 1 z
        __m256 const x = _mm256_broadcast_ss(&run.x[i]);
        __m256 const y = _mm256_broadcast_ss(&run.y[i]);
        __m256 const z = _mm256_broadcast_ss(&run.z[i]);
        __m256 const q = _mm256_sub_ps(_mm256_mul_ps(_mm256_mul_ps(_mm256_set1_ps(3.0f), z), z), ones);
        __m256 first = _mm256_blend_ps(ones, y, 0b00100010);
        first = _mm256_blend_ps(first, z, 0b00000100);
        first = _mm256_blend_ps(first, x, 0b10011000);
        first = _mm256_blend_ps(first, q, 0b01000000);
        __m256 second = _mm256_blend_ps(ones, y, 0b00010000);
        second = _mm256_blend_ps(second, z, 0b10100000);

        auto const add = [&](__m256& channel, float const& colour) {
            __m256 const scaled = _mm256_mul_ps(constants, _mm256_broadcast_ss(&colour));
            channel = _mm256_add_ps(channel, _mm256_mul_ps(_mm256_mul_ps(scaled, first), second));
        };
        Float3 const& colour = run.colour[i];
        add(red, colour.r);
        add(green, colour.g);
        add(blue, colour.b);

        __m128 const x4 = _mm256_castps256_ps128(x);
        __m128 const y4 = _mm256_castps256_ps128(y);
        __m128 const difference = _mm_sub_ps(_mm_mul_ps(x4, x4), _mm_mul_ps(y4, y4));
        __m128 const scaled = _mm_mul_ps(_mm_set1_ps(0.546274f), _mm_loadu_ps(&colour.r));
        last = _mm_add_ps(last, _mm_mul_ps(scaled, difference));
    }

    alignas(32) std::array<std::array<float, 8>, 3> channels;
    _mm256_store_ps(channels[0].data(), red);
    _mm256_store_ps(channels[1].data(), green);
    _mm256_store_ps(channels[2].data(), blue);
    for (std::size_t k = 0; k < 8; ++k)
        sums[k] = {channels[0][k], channels[1][k], channels[2][k]};
    alignas(16) std::array<float, 4> eighth;
    _mm_store_ps(eighth.data(), last);
    sums[8] = {eighth[0], eighth[1], eighth[2]};
}

}  // namespace koImage::v3

#endif
