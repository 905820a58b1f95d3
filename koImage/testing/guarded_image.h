// Images for tests of operations that work in place: pixels between guards, at any alignment, and of types
// that the library does not know.
#pragma once

#include "koImage/testing/test_images.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <vector>

namespace koImage::testing {

/// Random bytes: any value of any channel.
inline std::vector<unsigned char> noise(std::size_t count)
{
    Random random(1);
    std::vector<unsigned char> bytes(count);
    for (std::size_t at = 0; at < count; at += 4) {
        auto const word = static_cast<std::uint32_t>(random());
        std::memcpy(bytes.data() + at, &word, std::min<std::size_t>(4, count - at));
    }
    return bytes;
}

/// An image that borrows its pixels from the middle of an array of noise. They start `offset` channels behind
/// a 16-byte boundary, so channels are aligned and pixels need not be.
template <class Pixel>
class GuardedImage {
public:
    explicit GuardedImage(Size size, int offset = 1)
        : first_(guard + static_cast<std::size_t>(offset) * sizeof(typename ChannelOf<Pixel>::type)),
          count_(static_cast<std::size_t>(std::max(0, wrappedProduct(size.width, size.height)))),
          before_(noise(first_ + count_ * sizeof(Pixel) + guard)),
          bytes_(before_)
    {
        image_->borrow(reinterpret_cast<Pixel*>(bytes_.data() + first_), size.width, size.height);
    }

    TypedImage<Pixel>& operator*() { return *image_; }
    Pixel* pixels() { return image_->pixels(); }

    /// The bytes of the pixels before anything happened to them.
    std::vector<unsigned char> bytesBefore() const
    {
        auto const start = before_.begin() + static_cast<std::ptrdiff_t>(first_);
        return {start, start + static_cast<std::ptrdiff_t>(count_ * sizeof(Pixel))};
    }

    /// The pixels are these bytes, and the guards are what they were.
    ::testing::AssertionResult holds(std::vector<unsigned char> const& pixels) const
    {
        auto const start = bytes_.begin() + static_cast<std::ptrdiff_t>(first_);
        auto const [expected, actual] = std::mismatch(pixels.begin(), pixels.end(), start);
        if (expected != pixels.end())
            return ::testing::AssertionFailure()
                   << "byte " << actual - start << " of " << pixels.size() << ": expected " << int{*expected}
                   << ", got " << int{*actual};
        if (!std::equal(bytes_.begin(), start, before_.begin()))
            return ::testing::AssertionFailure() << "bytes in front of the pixels changed";
        if (!std::equal(bytes_.end() - guard, bytes_.end(), before_.end() - guard))
            return ::testing::AssertionFailure() << "bytes behind the pixels changed";
        return ::testing::AssertionSuccess();
    }

private:
    static constexpr std::size_t guard = 256;

    std::size_t first_;
    std::size_t count_;
    std::vector<unsigned char> before_;
    std::vector<unsigned char> bytes_;
    ImageRef<Pixel> image_{new TypedImage<Pixel>};
};

/// An image of noise whose type is none of the library's: pixels of three bytes.
class ForeignImage : public Image {
public:
    ForeignImage(PixelTypeId type, Size size) : Image(type) { resize(size.width, size.height); }

    int bytesPerPixel() const override { return 3; }
    std::uint64_t memorySize() const override { return sizeof *this + bytes_.size(); }
    Image* createEmpty() const override { return new ForeignImage(pixelType(), {0, 0}); }
    Image* clone() const override { return new ForeignImage(pixelType(), {width(), height()}); }
    void resize(int width, int height) override
    {
        setSize(width, height);
        bytes_ = noise(3 * static_cast<std::size_t>(std::max(0, pixelCount())));
    }
    void const* data() const override { return bytes_.data(); }
    void* data() override { return bytes_.data(); }

    std::vector<unsigned char> const& bytes() const { return bytes_; }

private:
    std::vector<unsigned char> bytes_;
};

/// Values of PixelTypeId that no pixel type has.
inline constexpr PixelTypeId foreignTypes[] = {PixelTypeId{10}, PixelTypeId{-1}, PixelTypeId{INT_MAX},
                                               PixelTypeId{INT_MIN}};

/// Sizes whose rows are not what the array holds: six pixels, none, and then eight each, of rows that would
/// need 2^32 more or less.
inline constexpr Size rowlessSizes[] = {{-2, -3},       {-1, 4},        {3, -7},         {65536, 65536},
                                        {8, 536870913}, {536870913, 8}, {-8, 536870911}, {536870911, -8}};

}  // namespace koImage::testing
