// Sums, products and bilinear resampling by OpenImageIO, which takes halves as they are. Release 2.4
// has no vector code for them.

#include "peers.h"
#include "peers_opencv.h"

#include "koImage/envmap/resize.h"
#include "koImage/ops/arithmetic.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <type_traits>

namespace koImage::peers {

namespace {

constexpr char const* openImageIO = "OpenImageIO";
constexpr int oneThread = 1;

template <class Pixel>
constexpr OIIO::TypeDesc::BASETYPE channelType = OIIO::TypeDesc::FLOAT;
template <>
constexpr OIIO::TypeDesc::BASETYPE channelType<Half4> = OIIO::TypeDesc::HALF;
template <>
constexpr OIIO::TypeDesc::BASETYPE channelType<Byte4> = OIIO::TypeDesc::UINT8;

/// A view: the image must outlive it.
template <class Pixel>
OIIO::ImageBuf bufferOf(TypedImage<Pixel>& image)
{
    return OIIO::ImageBuf(OIIO::ImageSpec(image.width(), image.height(), 4, channelType<Pixel>),
                          image.pixels());
}

using Ours = void (*)(Image const&, Image const&, Image&);
using Theirs = bool (*)(OIIO::ImageBuf&, OIIO::ImageBuf const&, OIIO::ImageBuf const&);

template <class Pixel>
void addOperation(Cases& cases, std::string const& name, Ours ours, Theirs theirs)
{
    cases.push_back({caseName<Pixel>(name, largeSize), openImageIO, [=] {
                         auto const a = randomImage<Pixel>(largeSize, 1);
                         auto const b = randomImage<Pixel>(largeSize, 2);
                         auto const ourResult = imageOf<Pixel>(largeSize);
                         auto const theirResult = imageOf<Pixel>(largeSize);
                         return Race{pixelCount(largeSize),
                                     3 * pixelCount(largeSize) * std::int64_t{sizeof(Pixel)},
                                     [=] { ours(*a, *b, *ourResult); },
                                     [=] {
                                         auto result = bufferOf(*theirResult);
                                         theirs(result, bufferOf(*a), bufferOf(*b));
                                     }};
                     }});
}

template <class Pixel>
void addBilinear(Cases& cases, Size from, Size to)
{
    auto const name =
        std::string("bilinear ") + PeerPixel<Pixel>::name + " " + text(from) + " to " + text(to);
    cases.push_back({name, openImageIO, [=] {
                         auto const source = randomImage<Pixel>(from, 1);
                         auto const theirs = imageOf<Pixel>(to);
                         return Race{
                             pixelCount(to), 2 * pixelCount(to) * std::int64_t{sizeof(Pixel)},
                             [=] { ko::Reference<Image>(resize(*source, to.width, to.height, true)); },
                             [=] {
                                 auto result = bufferOf(*theirs);
                                 OIIO::ImageBufAlgo::resample(result, bufferOf(*source), true, {}, oneThread);
                             }};
                     }});
}

template <class Pixel>
void addAll(Cases& cases)
{
    if constexpr (!std::is_same_v<Pixel, Byte4>) {
        using Buffer = OIIO::ImageBuf;
        addOperation<Pixel>(cases, "add", imageAdd, [](Buffer& result, Buffer const& a, Buffer const& b) {
            return OIIO::ImageBufAlgo::add(result, a, b, {}, oneThread);
        });
        addOperation<Pixel>(cases, "mult", imageMult, [](Buffer& result, Buffer const& a, Buffer const& b) {
            return OIIO::ImageBufAlgo::mul(result, a, b, {}, oneThread);
        });
    }
    addBilinear<Pixel>(cases, {4096, 2048}, {1024, 512});
    addBilinear<Pixel>(cases, {1024, 512}, {4096, 2048});
}

}  // namespace

void addOpenImageIO(Cases& cases)
{
    addAll<Byte4>(cases);
    addAll<Half4>(cases);
    addAll<Float4>(cases);
}

}  // namespace koImage::peers
