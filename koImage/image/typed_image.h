// The image of one pixel type.
#pragma once

#include "koImage/image/image.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace koImage {

/// Owns its pixel array, or borrows one that it never releases.
///
/// Pixels are raw memory, undefined until written; harmonics pixels alone are constructed and destroyed.
template <class T>
class KOIMAGE_EXPORT TypedImage : public Image {
public:
    TypedImage();
    ~TypedImage() override;

    int bytesPerPixel() const override;
    std::uint64_t memorySize() const override;
    TypedImage* createEmpty() const override;
    TypedImage* clone() const override;
    void resize(int width, int height) override;
    void const* data() const override;
    void* data() override;

    T* pixels() { return pixels_; }
    T const* pixels() const { return pixels_; }
    bool ownsPixels() const { return ownsPixels_; }

    /// How many pixels there are to read and write: pixelCount(), or 0 where that is below 1 or there is no
    /// array.
    std::size_t arrayLength() const
    {
        return pixels_ != nullptr && pixelCount() > 0 ? static_cast<std::size_t>(pixelCount()) : 0;
    }

    /// Attaches memory of the caller's: width x height pixels (as pixelCount() counts them), aligned as T
    /// asks, that outlive their use here. The image reads and writes them but never releases them; an array
    /// that it owned is released.
    void borrow(T* pixels, int width, int height);

private:
    void releasePixels();

    T* pixels_ = nullptr;
    bool ownsPixels_ = true;
};

/// The pixels of an image whose type is known to be Pixel; empty when it has none.
template <class Pixel>
std::span<Pixel> pixelsOf(Image& image)
{
    auto& typed = static_cast<TypedImage<Pixel>&>(image);
    return {typed.pixels(), typed.arrayLength()};
}

template <class Pixel>
std::span<Pixel const> pixelsOf(Image const& image)
{
    auto const& typed = static_cast<TypedImage<Pixel> const&>(image);
    return {typed.pixels(), typed.arrayLength()};
}

extern template class TypedImage<unsigned char>;
extern template class TypedImage<Byte4>;
extern template class TypedImage<unsigned int>;
extern template class TypedImage<Int4>;
extern template class TypedImage<Half4>;
extern template class TypedImage<float>;
extern template class TypedImage<Float3>;
extern template class TypedImage<Float4>;
extern template class TypedImage<Double3>;
extern template class TypedImage<HarmonicsPixel>;

}  // namespace koImage
