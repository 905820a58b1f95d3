// The image that every operation takes: an abstract, reference-counted object that knows its pixel type and
// size.
//
// Rows of `width` pixels follow each other without padding, row 0 first. Row 0 is the bottom of a picture (v
// = 0).
//
// Normalised coordinates u and v run from 0 to 1 across the image; the centre of pixel (x, y) is
// ((x + 0.5) * invWidth, (y + 0.5) * invHeight).
#pragma once

#include "koBase/int_range2d.h"
#include "koBase/reference_count.h"
#include "koImage/export.h"
#include "koImage/image/numeric.h"
#include "koImage/image/pixel_types.h"

#include <cstdint>

namespace koImage {

/// Threads: none of its own, no lock. An image stays on one thread while references to it change or it is
/// resized.
class KOIMAGE_EXPORT Image : public ko::ReferenceCount {
public:
    // The order of the virtual operations is binding.

    ~Image() override;

    /// Size of one pixel in bytes.
    virtual int bytesPerPixel() const = 0;

    /// Bytes of the image object itself, and of its pixels when it has any, borrowed ones included.
    virtual std::uint64_t memorySize() const = 0;

    /// A new image of the same class: 0 x 0, no pixels, default wrap flags, reference count 0.
    virtual Image* createEmpty() const = 0;

    /// A deep copy, wrap flags included, that owns its pixels; reference count 0. The copy of an image
    /// without pixels has none. Pixels are copied byte for byte.
    virtual Image* clone() const = 0;

    /// Gives the image another size.
    ///
    ///   pixels    an owned array with the same pixel count stays as it is, contents included (4 x 8 becomes
    ///             8 x 4); any other count leaves the pixels undefined. A borrowed array is left alone and
    ///             replaced by one of the image's own, unless the new count is below 1: then it stays
    ///             borrowed.
    ///   shape     the pixel count is the signed product modulo 2^32; below 1 an owning image holds no
    ///   pixels.
    ///             Sizes of zero and less are stored as they are.
    ///   failure   throws the allocator's exception; the old array is gone by then, the size still the old
    ///   one.
    virtual void resize(int width, int height) = 0;

    /// The pixels, or null.
    virtual void const* data() const = 0;
    virtual void* data() = 0;

    PixelTypeId pixelType() const { return pixelType_; }
    int width() const { return width_; }
    int height() const { return height_; }

    /// 1 / width and 1 / height, or 1 while the size is below 1: the size of one pixel in normalised
    /// coordinates.
    float invWidth() const { return invWidth_; }
    float invHeight() const { return invHeight_; }

    /// Whether bilinear sampling beyond the left and right (bottom and top) edges wraps around instead of
    /// clamping.
    bool wrapHorizontal() const { return wrapHorizontal_; }
    bool wrapVertical() const { return wrapVertical_; }
    void setWrap(bool horizontal, bool vertical);

    /// width x height as a signed product modulo 2^32: how many pixels the array holds when positive.
    int pixelCount() const { return wrappedProduct(width_, height_); }

    /// Sets the rectangle to the whole image: origin (0, 0), width, height.
    void range(koUtil::IntRange2d& rectangle) const;

protected:
    explicit Image(PixelTypeId pixelType);

    void setSize(int width, int height);

private:
    PixelTypeId pixelType_;
    int width_ = 0;
    int height_ = 0;
    float invWidth_ = 1.0f;
    float invHeight_ = 1.0f;
    bool wrapHorizontal_ = false;
    bool wrapVertical_ = false;
};

}  // namespace koImage
