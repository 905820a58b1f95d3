// PFM of any bytes.

#include "picture_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::span const input(data, size);
    if (begins(input, "PF") || begins(input, "Pf"))
        fuzzPicture(input, size / sizeof(float));
    return 0;
}
