#include "koImage/image/swap_red_blue.h"

#include "koImage/image/byte4_v3.h"
#include "koImage/image/byte4_words.h"

namespace koImage {

void imageSwapRedBlue(char* pixels, int count)
{
    if (pixels == nullptr)
        return;
    std::int64_t done = 0;
#if KO_SIMD_V3
    done = v3::editLines(pixels, count, [](__m256i eight) {
        return v3::shuffleHalves(eight, _mm_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15));
    });
#endif
    editWords(pixels + 4 * done, count - done, [](std::uint32_t pixel) {
        // Half a turn of the word exchanges red with blue, and green with alpha: these two stay as they were.
        constexpr std::uint32_t kept = 0xFFu << shiftOfChannel(1) | 0xFFu << shiftOfChannel(3);
        return (pixel & kept) | (std::rotl(pixel, 16) & ~kept);
    });
}

void imageSwapRedBlue(Image& image)
{
    if (image.pixelType() == PixelTypeId::Byte4)
        imageSwapRedBlue(static_cast<char*>(image.data()), image.pixelCount());
}

}  // namespace koImage
