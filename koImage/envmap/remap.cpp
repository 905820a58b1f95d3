#include "koImage/envmap/remap.h"

#include "koImage/envmap/bilinear.h"
#include "koImage/envmap/remap_v3.h"
#include "koImage/image/streaming.h"

namespace koImage {

namespace {

/// The definition: one pixel at a time, for any shapes, those that callers derive among them.
template <class Pixel>
void remapPixels(EnvironmentMap const& source, TypedImage<Pixel> const& from,
                 EnvironmentMap const& destination, TypedImage<Pixel>& to)
{
    Pixel* out = to.pixels();
    for (int y = 0; y < to.height(); ++y) {
        float const v = centreOf(y, to.invHeight());
        for (int x = 0; x < to.width(); ++x) {
            koLinear::VectorFlt dir;
            float unusedWeight;
            Pixel pixel{};
            if (destination.coordToDir(centreOf(x, to.invWidth()), v, dir, unusedWeight, true)) {
                float sourceU;
                float sourceV;
                source.dirToCoord(dir, sourceU, sourceV);
                sampleBilinear(from, sourceU, sourceV, pixel);
            }
            *out++ = pixel;
        }
    }
}

}  // namespace

void remap(EnvironmentMap const& source, EnvironmentMap& destination)
{
    Image const* const from = source.image();
    Image* const to = destination.image();
    if (from == nullptr || to == nullptr || from->pixelType() != to->pixelType() || !to->holdsItsRows())
        return;

    dispatchPixel(from->pixelType(), RemapPixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        auto const& typedFrom = static_cast<TypedImage<Pixel> const&>(*from);
        auto& typedTo = static_cast<TypedImage<Pixel>&>(*to);
        auto const read = pixelsOf<Pixel>(*from);
        if (read.empty())
            return;
#if KO_SIMD_V3
        auto const written = pixelsOf<Pixel>(*to);
        if (from->holdsItsRows() &&
            !overlap(read.data(), read.size_bytes(), written.data(), written.size_bytes()) &&
            v3::remapping::remapPixels(source, typedFrom, destination, typedTo))
            return;
#endif
        remapPixels(source, typedFrom, destination, typedTo);
    });
}

}  // namespace koImage
