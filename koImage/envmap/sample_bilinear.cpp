#include "koImage/envmap/sample_bilinear.h"

#include "koImage/envmap/bilinear.h"

namespace koImage {

namespace {

template <class Pixel>
void sample(TypedImage<Pixel> const& image, float u, float v, SampleOf<Pixel>& result)
{
    auto const pixels = pixelsOf<Pixel>(image);
    if (pixels.empty())
        return;

    Neighbours const x = neighboursOf(u, image.width(), image.wrapHorizontal());
    Neighbours const y = neighboursOf(v, image.height(), image.wrapVertical());
    auto const row = [&](std::int64_t at) {
        return blendAcross(pixelNear(pixels, image, x.near, at), pixelNear(pixels, image, x.far, at),
                           rowWeights<Pixel>(x.t));
    };
    result = blendDown(row(y.near), row(y.far), Weights(y.t));
}

}  // namespace

void sampleBilinear(TypedImage<Byte4> const& image, float u, float v, Byte4Sample& result)
{
    sample(image, u, v, result);
}

void sampleBilinear(TypedImage<Half4> const& image, float u, float v, Half4& result)
{
    sample(image, u, v, result);
}

void sampleBilinear(TypedImage<float> const& image, float u, float v, float& result)
{
    sample(image, u, v, result);
}

void sampleBilinear(TypedImage<Float3> const& image, float u, float v, Float3& result)
{
    sample(image, u, v, result);
}

void sampleBilinear(TypedImage<Float4> const& image, float u, float v, Float4& result)
{
    sample(image, u, v, result);
}

}  // namespace koImage
