#include "koImage/image/typed_image.h"

#include "koImage/image/pixel_array.h"

#include <memory>

namespace koImage {

template <class T>
TypedImage<T>::TypedImage() : Image(pixelTypeIdOf<T>)
{
}

template <class T>
TypedImage<T>::~TypedImage()
{
    releasePixels();
}

template <class T>
void TypedImage<T>::releasePixels()
{
    if (ownsPixels_)
        deletePixelArray(pixels_, pixelCount());
    pixels_ = nullptr;
}

template <class T>
int TypedImage<T>::bytesPerPixel() const
{
    return static_cast<int>(sizeof(T));
}

template <class T>
std::uint64_t TypedImage<T>::memorySize() const
{
    return sizeof(*this) + arrayLength() * sizeof(T);
}

template <class T>
TypedImage<T>* TypedImage<T>::createEmpty() const
{
    return new TypedImage;
}

template <class T>
TypedImage<T>* TypedImage<T>::clone() const
{
    auto copy = std::make_unique<TypedImage>();
    copy->setWrap(wrapHorizontal(), wrapVertical());

    if (arrayLength() > 0)
        copy->pixels_ = copyPixelArray(pixels_, pixelCount());
    copy->setSize(width(), height());
    return copy.release();
}

template <class T>
void TypedImage<T>::resize(int width, int height)
{
    int const count = wrappedProduct(width, height);
    bool const sameCount = count == pixelCount();

    // The old array goes before the new one comes, so that both never stand in memory together.
    if (!sameCount && ownsPixels_)
        releasePixels();

    // The size decides, not the pointer: an image that lost its pixels to a failed resize gets none from a
    // resize to the count it still has.
    if ((!sameCount || !ownsPixels_) && count > 0) {
        pixels_ = newPixelArray<T>(count);
        ownsPixels_ = true;
    }
    setSize(width, height);
}

template <class T>
void const* TypedImage<T>::data() const
{
    return pixels_;
}

template <class T>
void* TypedImage<T>::data()
{
    return pixels_;
}

template <class T>
void TypedImage<T>::borrow(T* pixels, int width, int height)
{
    releasePixels();
    pixels_ = pixels;
    ownsPixels_ = false;
    setSize(width, height);
}

template class TypedImage<unsigned char>;
template class TypedImage<Byte4>;
template class TypedImage<unsigned int>;
template class TypedImage<Int4>;
template class TypedImage<Half4>;
template class TypedImage<float>;
template class TypedImage<Float3>;
template class TypedImage<Float4>;
template class TypedImage<Double3>;
template class TypedImage<HarmonicsPixel>;

}  // namespace koImage
