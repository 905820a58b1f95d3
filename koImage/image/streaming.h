// Writing large results past the cache.
//
// A store to memory that is not in the cache first reads the line; streaming stores do not. They pay from
// about 16 MiB on and cost up to 2.5 times below, when the result is read next. On new memory they cost up to
// twice the time: the system has just cleared its pages, in the cache. Private: see simd.h.
#pragma once

#include "koImage/image/pixel_array.h"
#include "koImage/image/simd.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace koImage {

inline constexpr std::size_t streamingBytes = std::size_t{16} << 20;

/// Whether a result of that many bytes is to be streamed.
inline bool isStreamed(void const* target, std::size_t bytes)
{
    return bytes >= streamingBytes && hasPages(target, bytes);
}

#if KO_SIMD_SSE2
/// Copies whole cache lines to 64-byte aligned memory, past the cache. A sfence must follow the last copy.
inline void streamLines(void* target, void const* source, std::size_t bytes)
{
    auto* to = static_cast<char*>(target);
    auto const* from = static_cast<char const*>(source);
    for (char* const end = to + bytes; to != end; to += 64, from += 64) {
#if KO_SIMD_V3
        __m256i const a = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(from));
        __m256i const b = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(from) + 1);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(to), a);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(to) + 1, b);
#else
        for (int i = 0; i < 4; ++i)
            _mm_stream_si128(reinterpret_cast<__m128i*>(to) + i,
                             _mm_loadu_si128(reinterpret_cast<__m128i const*>(from) + i));
#endif
    }
}
#endif

/// memcpy past the cache. finishStreaming must follow the last one.
inline void streamBytes(void* target, void const* source, std::size_t bytes)
{
#if KO_SIMD_SSE2
    auto* const to = static_cast<char*>(target);
    auto const* const from = static_cast<char const*>(source);

    // The partial lines at both ends go past the cache too, where they consist of words: an ordinary store
    // would have the processor fetch the lines around it, which costs a third of the speed.
    auto const copyEdge = [&](std::size_t first, std::size_t end) {
        if ((reinterpret_cast<std::uintptr_t>(to + first) | (end - first)) % 4 != 0) {
            std::memcpy(to + first, from + first, end - first);
            return;
        }
        for (std::size_t i = first; i < end; i += 4) {
            std::int32_t word;
            std::memcpy(&word, from + i, sizeof word);
            _mm_stream_si32(reinterpret_cast<std::int32_t*>(to + i), word);
        }
    };
    std::size_t const lead = std::min<std::size_t>(bytes, -reinterpret_cast<std::uintptr_t>(to) % 64);
    std::size_t const end = lead + (bytes - lead) / 64 * 64;
    copyEdge(0, lead);
    streamLines(to + lead, from + lead, end - lead);
    copyEdge(end, bytes);
#else
    std::memcpy(target, source, bytes);
#endif
}

/// Makes streamed bytes visible in order with all that is stored after them.
inline void finishStreaming()
{
#if KO_SIMD_SSE2
    _mm_sfence();
#endif
}

/// Whether two arrays share a byte, as borrowed ones may.
inline bool overlap(void const* a, std::size_t aBytes, void const* b, std::size_t bBytes)
{
    auto const startA = reinterpret_cast<std::uintptr_t>(a);
    auto const startB = reinterpret_cast<std::uintptr_t>(b);
    return startA < startB + bBytes && startB < startA + aBytes;
}

/// Writes target[0 .. count) through fill(run, first, length), which writes `length` values to `run` for the
/// positions first, first + 1, ... of the target. Small targets, and targets that are also an operand
/// (`inPlace`: their lines are in the cache already), are filled where they stand; large ones through a small
/// block in the cache that is streamed out.
template <class T, class Fill>
void writeRuns(T* target, std::size_t count, bool inPlace, Fill const& fill)
{
    static_assert(std::is_trivially_copyable_v<T>);
#if KO_SIMD_SSE2
    // About 1 KiB: a processor that streams one block out reads ahead for the next. Whole lines, so that
    // every block starts on a line when the first one does.
    constexpr std::size_t blockLength = 16 * (sizeof(T) >= 64 ? 1 : 64 / sizeof(T));
    static_assert(blockLength * sizeof(T) % 64 == 0);
    std::size_t first = 0;
    if (!inPlace && isStreamed(target, count * sizeof(T))) {
        auto const misaligned = [&](std::size_t at) {
            return reinterpret_cast<std::uintptr_t>(target + at) % 64 != 0;
        };
        std::size_t lead = 0;
        while (lead < 64 && misaligned(lead))
            ++lead;
        if (lead < 64) {
            fill(target, std::size_t{0}, lead);
            first = lead;
            alignas(64) std::byte block[blockLength * sizeof(T)];
            auto* const run = reinterpret_cast<T*>(block);
            for (; count - first >= blockLength; first += blockLength) {
                fill(run, first, blockLength);
                streamLines(target + first, run, blockLength * sizeof(T));
            }
            _mm_sfence();
        }
    }
    fill(target + first, first, count - first);
#else
    static_cast<void>(inPlace);
    fill(target, std::size_t{0}, count);
#endif
}

}  // namespace koImage
