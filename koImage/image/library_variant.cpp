#include "koImage/image/library_variant.h"

#include "koImage/image/simd.h"

namespace koImage {

char const* libraryVariant()
{
    return KO_SIMD_V3 ? "x86-64-v3" : "baseline";
}

}  // namespace koImage
