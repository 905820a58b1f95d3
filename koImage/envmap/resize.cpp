#include "koImage/envmap/resize.h"

#include "koImage/envmap/bilinear.h"

#include <memory>

namespace koImage {

namespace {

/// Whether the sizes describe the pixel array: positive, their product within 32 bits.
bool isRegular(Image const& image)
{
    return image.width() > 0 && image.height() > 0 &&
           std::int64_t{image.width()} * image.height() == image.pixelCount();
}

/// result(x, y) = pixelAt(u, v) at the centre of every pixel.
template <class Pixel, class PixelAt>
void fill(TypedImage<Pixel>& result, PixelAt const& pixelAt)
{
    Pixel* out = result.pixels();
    for (int y = 0; y < result.height(); ++y) {
        float const v = centreOf(y, result.invHeight());
        for (int x = 0; x < result.width(); ++x)
            *out++ = pixelAt(centreOf(x, result.invWidth()), v);
    }
}

template <class Pixel>
void fillBilinear(TypedImage<Pixel> const& source, TypedImage<Pixel>& result)
{
    fill(result, [&source](float u, float v) {
        SampleOf<Pixel> sample;
        sampleBilinear(source, u, v, sample);
        return pixelOf(sample);
    });
}

template <class Pixel>
void fillNearest(TypedImage<Pixel> const& source, TypedImage<Pixel>& result)
{
    auto const pixels = pixelsOf<Pixel>(source);
    fill(result, [&](float u, float v) {
        return pixelNear(pixels, source, truncateToInt(positionOf(u, source.width())),
                         truncateToInt(positionOf(v, source.height())));
    });
}

}  // namespace

Image* resize(Image const& source, int width, int height, bool filter)
{
    Image* result = nullptr;
    dispatchPixel(source.pixelType(), ResamplePixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        auto image = std::make_unique<TypedImage<Pixel>>();
        image->resize(width, height);

        if (isRegular(*image) && !pixelsOf<Pixel>(source).empty()) {
            auto const& typedSource = static_cast<TypedImage<Pixel> const&>(source);
            if (filter)
                fillBilinear(typedSource, *image);
            else
                fillNearest(typedSource, *image);
        }
        result = image.release();
    });
    return result;
}

}  // namespace koImage
