// The image that every operation takes: an abstract, reference-counted object that knows its pixel type and
// size.
//
// Rows of `width` pixels follow each other without padding, row 0 first. Row 0 is the bottom of a picture
// (v = 0).
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

/// Every size has a meaning. The array holds as many pixels as the signed product width x height modulo 2^32
/// says: six for (-2, -3), none for (65536, 65536). Operations that take the pixels as one line run over all
/// of them; operations that walk rows have nothing to walk where a size is below 1. None leaves the array,
/// also where the rows would: 65537 x 65536 holds 65536 pixels.
///
///   lifetime  whoever creates an image takes it into a ko::Reference, or deletes it
///   threads   no lock: an image stays on one thread while references to it change or it is resized
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

    /// A deep copy, wrap flags included, that owns its pixels; reference count 0.
    ///
    ///   pixels    copied byte for byte; the copy of an image without pixels has none
    ///   failure   throws the allocator's exception; nothing stays behind
    virtual Image* clone() const = 0;

    /// Gives the image another size. Sizes of zero and less are stored as they are.
    ///
    ///   pixels    an owned array stays as it is where the pixel count does (4 x 8 becomes 8 x 4). Any other
    ///             count releases it; a new array is undefined until written, and below 1 there is none.
    ///             A borrowed array is left alone and replaced by an owned one whatever the count, unless
    ///             that is below 1: then it stays, still borrowed.
    ///   failure   throws the allocator's exception: an owned array is gone by then, the size still the old
    ///             one. So any operation may meet an image of positive size without pixels.
    virtual void resize(int width, int height) = 0;

    /// The pixels, or null.
    virtual void const* data() const = 0;
    virtual void* data() = 0;

    PixelTypeId pixelType() const { return pixelType_; }
    int width() const { return width_; }
    int height() const { return height_; }

    /// One pixel in normalised coordinates: 1 / width and 1 / height, or 1 where the size is below 1.
    float invWidth() const { return invWidth_; }
    float invHeight() const { return invHeight_; }

    /// Whether sampling beyond the left and right (bottom and top) edges wraps around instead of clamping.
    bool wrapHorizontal() const { return wrapHorizontal_; }
    bool wrapVertical() const { return wrapVertical_; }
    void setWrap(bool horizontal, bool vertical);

    /// width x height as a signed product modulo 2^32: how many pixels the array holds, none where below 1.
    int pixelCount() const { return wrappedProduct(width_, height_); }

    /// Whether the array holds every pixel that the rows name: there is one, the sizes are 1 or more, and
    /// their product fits 32 bits.
    bool holdsItsRows() const
    {
        return data() != nullptr && width_ > 0 && height_ > 0 &&
               std::int64_t{width_} * height_ == pixelCount();
    }

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
