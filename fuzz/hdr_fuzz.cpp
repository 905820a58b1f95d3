// Radiance HDR of any bytes.

#include "picture_fuzz.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::span const input(data, size);
    if (begins(input, "#?"))
        fuzzPicture(input, std::max<std::size_t>(1 << 22, 32 * size));
    return 0;
}
