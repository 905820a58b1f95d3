// Images whose type is known at run time only.
#pragma once

#include "koImage/export.h"
#include "koImage/image/image.h"

namespace koImage {

/// A new image of that type, as Image::createEmpty makes it: 0 x 0, no pixels, reference count 0. The caller
/// owns it.
///
///   pixels    StoredPixels, the types 0 to 8
///   failure   null for any other value, the harmonics type included: whoever needs that makes it directly
[[nodiscard]] KOIMAGE_EXPORT Image* imageCreateByType(PixelTypeId type);

}  // namespace koImage
