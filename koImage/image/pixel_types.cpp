#include "koImage/image/pixel_types.h"

#include <array>

namespace koImage {

std::int32_t channelCount(PixelTypeId type)
{
    static constexpr std::array<std::int32_t, 9> counts = {1, 4, 1, 4, 4, 1, 3, 4, 3};
    auto const id = static_cast<std::uint32_t>(type);
    return id < counts.size() ? counts[id] : 1;
}

}  // namespace koImage
