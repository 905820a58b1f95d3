#include "koImage/image/fill.h"

#include "koImage/image/streaming.h"

#include <array>
#include <bit>
#include <cstring>
#include <span>

namespace koImage {

namespace {

// Every white is a 32-bit word over and over, so fills know bytes and a word, not pixels.
struct Filling {
    std::size_t bytesPerPixel;
    std::uint32_t white;
};

constexpr auto one = std::bit_cast<std::uint32_t>(1.0f);

constexpr std::array<Filling, 9> fillings = {{
    {1, 0xFFFFFFFF},  // unsigned char
    {4, 0xFFFFFFFF},  // Byte4
    {4, 255},         // unsigned int
    {16, 255},        // Int4
    {8, 0x3C003C00},  // Half4
    {4, one},         // float
    {12, one},        // Float3
    {16, one},        // Float4
    {16, one},        // Double3, deliberately as Float4: two thirds of the array, and no doubles
}};

/// The bytes that a fill of the image writes.
std::span<unsigned char> filledBytes(Image& image)
{
    auto const type = static_cast<std::uint32_t>(image.pixelType());
    if (type >= fillings.size() || image.data() == nullptr || image.pixelCount() < 1)
        return {};
    return {static_cast<unsigned char*>(image.data()),
            static_cast<std::size_t>(image.pixelCount()) * fillings[type].bytesPerPixel};
}

}  // namespace

void fillWhite(Image& image)
{
    auto const bytes = filledBytes(image);
    if (bytes.empty())
        return;
    std::array<std::uint32_t, 16> line;
    line.fill(fillings[static_cast<std::size_t>(image.pixelType())].white);

    unsigned char* target = bytes.data();
    std::size_t left = bytes.size();
#if KO_SIMD_SSE2
    if (isStreamed(target, left)) {
        // Behind the lead the word begins anew. Where that is inside a word, the array need not be aligned to
        // words: its channels are bytes or halves, and the word is the same from each of them on.
        std::size_t const lead = -reinterpret_cast<std::uintptr_t>(target) % sizeof line;
        std::memcpy(target, line.data(), lead);
        for (target += lead, left -= lead; left >= sizeof line; target += sizeof line, left -= sizeof line)
            streamLines(target, line.data(), sizeof line);
        _mm_sfence();
    }
#endif
    for (; left >= sizeof line; target += sizeof line, left -= sizeof line)
        std::memcpy(target, line.data(), sizeof line);
    std::memcpy(target, line.data(), left);
}

void fillBlack(Image& image)
{
    auto const bytes = filledBytes(image);
    if (!bytes.empty())
        std::memset(bytes.data(), 0, bytes.size());
}

}  // namespace koImage
