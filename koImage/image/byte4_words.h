// Walking over pixels of four bytes, each a 32-bit word: its channels lie side by side in one lane, which
// compilers vectorise. Private: see simd.h.
#pragma once

#include "koImage/image/simd.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace koImage {

/// Where channel c of a pixel stands in its word.
constexpr int shiftOfChannel(int c)
{
    return 8 * (std::endian::native == std::endian::little ? c : 3 - c);
}

/// How far in front of an edit its pixels are fetched. Left alone with the arithmetic in between, the
/// processor does not look ahead far enough to keep the memory busy.
inline constexpr std::ptrdiff_t fetchDistance = 4096;

/// Replaces each pixel by edit(pixel).
template <class Edit>
void editWords(void* pixels, std::int64_t count, Edit edit)
{
    auto* const bytes = static_cast<unsigned char*>(pixels);
    auto const editWord = [bytes, edit](std::int64_t i) {
        std::uint32_t pixel;
        std::memcpy(&pixel, bytes + 4 * i, 4);
        pixel = edit(pixel);
        std::memcpy(bytes + 4 * i, &pixel, 4);
    };

    std::int64_t first = 0;
    for (; count - first >= 64; first += 64) {
        for (std::int64_t line = first; line < first + 64; line += 16)
            prefetchAhead(bytes + 4 * line, fetchDistance);
        for (std::int64_t i = first; i < first + 64; ++i)
            editWord(i);
    }
    for (; first < count; ++first)
        editWord(first);
}

}  // namespace koImage
