// Conversions of pixel types: 8-bit colour to float for lighting, grey float to grey bytes for masks and
// previews, three float channels to four.
//
// Of all imageConvert:
//   - the result takes the source's size before anything else, and keeps its own wrap flags;
//   - pixels are converted as one line; a source without pixels has none to convert;
//   - a source may borrow the result's array: each of its pixels is read after the one before was written;
//   - nothing is reported; the allocator's exception passes through;
//   - cost: one pass, bound by memory where the images are larger than the cache.
#pragma once

#include "koBase/reference_count.h"
#include "koImage/export.h"
#include "koImage/image/typed_image.h"

namespace koImage {

/// v * 255, truncated toward zero, of which the low byte is kept. Nothing is clamped or rounded: 0.5 gives
/// 127, 1.5 gives 126, -0.5 gives 129, and NaN or a product beyond the 32-bit integers gives 0.
KOIMAGE_EXPORT void imageConvert(TypedImage<float> const& source, TypedImage<unsigned char>& result);

/// Each colour channel divided by 255; alpha is dropped.
KOIMAGE_EXPORT void imageConvert(TypedImage<Byte4> const& source, TypedImage<Float3>& result);

/// Each channel divided by 255, alpha included.
KOIMAGE_EXPORT void imageConvert(TypedImage<Byte4> const& source, TypedImage<Float4>& result);

/// The three channels bit for bit, and alpha 0: transparent, until the caller sets it.
KOIMAGE_EXPORT void imageConvert(TypedImage<Float3> const& source, TypedImage<Float4>& result);

/// Puts a converted copy in the place of the image, with default wrap flags.
///
///   pixels    Byte4 to Float3 and float to unsigned char, as imageConvert does; to its own type any image,
///             which then stays as it is
///   result    whether the image has the type now
///   failure   false, the image unchanged: for any other pair, an empty reference, and an image whose pixel
///             count is 0, whatever the type; unchanged as well when the allocator throws
[[nodiscard]] KOIMAGE_EXPORT bool convertToType(ko::Reference<Image>& image, PixelTypeId type);

}  // namespace koImage
