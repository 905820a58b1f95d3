// Conversion of whole runs between half and float.
//
// Each value comes out as the single conversion of half.h makes it, to the bit: ties away from zero, signs of
// zero, payloads of signalling NaNs, and the overflow condition, which is raised when a finite float of the
// run overflows and else left as it was. Nothing is said of the other conditions.
//
//   runs     any length; aligned as their types ask, no more; the two do not overlap
//   numbers  half to float is exact; float to half rounds once
//   cost     one pass, no allocation; results of 16 MiB and more are written past the cache
#pragma once

#include "koImage/export.h"
#include "koImage/image/half.h"

#include <cstddef>

namespace koImage {

/// floats[i] = halves[i] for i in 0 .. count - 1.
KOIMAGE_EXPORT void halvesToFloats(half const* halves, float* floats, std::size_t count);

/// halves[i] = floats[i] for i in 0 .. count - 1.
KOIMAGE_EXPORT void floatsToHalves(float const* floats, half* halves, std::size_t count);

}  // namespace koImage
