#include "koImage/image/convert.h"

#include "koImage/image/convert_v3.h"
#include "koImage/image/numeric.h"
#include "koImage/image/streaming.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace koImage {

namespace {

void convertPixel(float value, unsigned char& result)
{
    // Neither clamped nor rounded, on purpose: 1.5 gives 126, 0.999 gives 254.
    result = lowByte(truncateToInt(value * 255.0f));
}

void convertPixel(Byte4 const& p, Float3& result)
{
    // Divisions, not products with 1 / 255, which round differently.
    result = {p.r / 255.0f, p.g / 255.0f, p.b / 255.0f};
}

void convertPixel(Byte4 const& p, Float4& result)
{
    result = {p.r / 255.0f, p.g / 255.0f, p.b / 255.0f, p.a / 255.0f};
}

void convertPixel(Float3 const& p, Float4& result)
{
    // Alpha 0, not 1, on purpose: callers rely on a result that is transparent until they set it.
    result = {p.r, p.g, p.b, 0.0f};
}

template <class From, class To>
void convertPixels(From const* from, To* to, std::size_t count)
{
    std::size_t i = 0;
#if KO_SIMD_V3
    if constexpr (requires { v3::convertBlocks(from, to, count); })
        i = v3::convertBlocks(from, to, count);
#endif
    for (; i < count; ++i)
        convertPixel(from[i], to[i]);
}

// Each pixel is read after the previous one was written, into memory of either type.
template <class From, class To>
void convertSharedPixels(void const* from, void* to, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        From pixel;
        To converted;
        std::memcpy(&pixel, static_cast<std::byte const*>(from) + i * sizeof(From), sizeof(From));
        convertPixel(pixel, converted);
        std::memcpy(static_cast<std::byte*>(to) + i * sizeof(To), &converted, sizeof(To));
    }
}

template <class From, class To>
void convertImage(TypedImage<From> const& source, TypedImage<To>& result)
{
    result.resize(source.width(), source.height());
    auto const from = pixelsOf<From>(source);
    auto const to = pixelsOf<To>(result);
    std::size_t const count = std::min(from.size(), to.size());

    // Images of different types share memory only where the source borrows it.
    if (overlap(from.data(), from.size_bytes(), to.data(), to.size_bytes())) {
        convertSharedPixels<From, To>(from.data(), to.data(), count);
        return;
    }
    writeRuns(to.data(), count, false, [&](To* run, std::size_t first, std::size_t length) {
        convertPixels(from.data() + first, run, length);
    });
}

template <class From, class To>
bool replaceByConverted(ko::Reference<Image>& image)
{
    // The wrap flags of the old image are not passed on, on purpose.
    ko::Reference<TypedImage<To>> converted(new TypedImage<To>);
    imageConvert(static_cast<TypedImage<From> const&>(*image), *converted);
    image = std::move(converted);
    return true;
}

}  // namespace

void imageConvert(TypedImage<float> const& source, TypedImage<unsigned char>& result)
{
    convertImage(source, result);
}

void imageConvert(TypedImage<Byte4> const& source, TypedImage<Float3>& result)
{
    convertImage(source, result);
}

void imageConvert(TypedImage<Byte4> const& source, TypedImage<Float4>& result)
{
    convertImage(source, result);
}

void imageConvert(TypedImage<Float3> const& source, TypedImage<Float4>& result)
{
    convertImage(source, result);
}

bool convertToType(ko::Reference<Image>& image, PixelTypeId type)
{
    // A count of exactly 0 is refused, whatever the type: a negative one is as good as any.
    if (!image || image->pixelCount() == 0)
        return false;
    if (image->pixelType() == type)
        return true;
    if (image->pixelType() == PixelTypeId::Byte4 && type == PixelTypeId::Float3)
        return replaceByConverted<Byte4, Float3>(image);
    if (image->pixelType() == PixelTypeId::Float && type == PixelTypeId::Byte)
        return replaceByConverted<float, unsigned char>(image);
    return false;
}

}  // namespace koImage
