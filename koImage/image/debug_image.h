// The hook through which an algorithm could show its intermediate images.
//
//   threads   the function is stored without synchronisation
#pragma once

#include "koImage/export.h"
#include "koImage/image/image.h"

namespace koImage {

/// Stores the function, null allowed, in place of the previous one.
KOIMAGE_EXPORT void setDebugImageFunction(void (*function)(char const* name, Image const* image));

/// Does nothing: name and image are ignored, and the stored function is never called. Cheap enough to call at
/// any point of an algorithm.
KOIMAGE_EXPORT void dumpDebugImage(char const* name, Image const& image);

}  // namespace koImage
