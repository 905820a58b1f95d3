// Rows of pictures in the forms that files hold them, and the conversion of whole pictures.
//
// Rows are counted from the top of the picture, as files have them; images begin with the bottom row. This is
// the one place where pictures are turned over.
//
// Values are spread over the channels of a row in the same way everywhere:
//   grey      becomes three equal channels; of colour asked for as one channel the luminance is taken
//   alpha     is opaque where the image has none, left out where the row has none, and never curved
//   luminance 0.2126 r + 0.7152 g + 0.0722 b of the light, and exactly the channel where the three are
//             equal; a NaN is the quiet one without a payload
//   levels    of 8 and 16 bits stand for light by the curve of srgb.h; with Transfer::None, and for alpha,
//             they stand for level / top
//   misfits   counted for each channel of the row. Half floats hold infinities and NaN, which stay; finite
//             values beyond +-65504 become that
#pragma once

#include "koBase/reference_count.h"
#include "koImage/image/pixel_dispatch.h"
#include "koImage/image/typed_image.h"
#include "koImageIO/export.h"
#include "koImageIO/picture.h"

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>

namespace koImageIO {

/// What pictures are read as and written from.
using PicturePixels = koImage::PixelList<unsigned char, koImage::Byte4, koImage::Half4, float,
                                         koImage::Float3, koImage::Float4>;

namespace detail {

/// Index of the first pixel of a row of the picture in an image of that size.
inline std::size_t pictureRowOffset(koImage::Image const& image, int row)
{
    assert(row >= 0 && row < image.height());
    return static_cast<std::size_t>(koImage::pixelOffset(0, image.height() - 1 - row, image.width()));
}

}  // namespace detail

/// The pixels of a row of the picture; the image has pixels, of this type.
template <class Pixel>
std::span<Pixel> pictureRow(koImage::Image& image, int row)
{
    return koImage::pixelsOf<Pixel>(image).subspan(detail::pictureRowOffset(image, row),
                                                   static_cast<std::size_t>(image.width()));
}

template <class Pixel>
std::span<Pixel const> pictureRow(koImage::Image const& image, int row)
{
    return koImage::pixelsOf<Pixel>(image).subspan(detail::pictureRowOffset(image, row),
                                                   static_cast<std::size_t>(image.width()));
}

/// The memory of a row, whatever its pixels.
inline std::span<std::byte> pictureRowBytes(koImage::Image& image, int row)
{
    auto const pixelBytes = static_cast<std::size_t>(image.bytesPerPixel());
    return {static_cast<std::byte*>(image.data()) + detail::pictureRowOffset(image, row) * pixelBytes,
            static_cast<std::size_t>(image.width()) * pixelBytes};
}

/// One row of the picture as values of a file: the image has a type of PicturePixels; `values` holds its
/// width times `channels`, which is 1, 3 or 4. Light as floats; as half floats, and as levels of 8 and 16
/// bits (in the machine's byte order), rounded to nearest. Bytes of an image reach bytes and words unchanged
/// (words: level * 257), half floats half floats.
KOIMAGEIO_EXPORT void rowAsFloats(koImage::Image const& image, int row, int channels, Transfer transfer,
                                  std::span<float> values);
KOIMAGEIO_EXPORT void rowAsHalves(koImage::Image const& image, int row, int channels, Transfer transfer,
                                  std::span<koImage::half> values, Misfits& misfits);
KOIMAGEIO_EXPORT void rowAsBytes(koImage::Image const& image, int row, int channels, Transfer transfer,
                                 std::span<std::uint8_t> values, Misfits& misfits);
KOIMAGEIO_EXPORT void rowAsWords(koImage::Image const& image, int row, int channels, Transfer transfer,
                                 std::span<std::uint16_t> values, Misfits& misfits);

/// The light that words stand for; the fourth channel of four is alpha. As many floats as words.
KOIMAGEIO_EXPORT void wordsAsFloats(std::span<std::uint16_t const> words, int channels, Transfer transfer,
                                    std::span<float> floats);

/// Puts a converted copy in the place of a picture.
///
///   pixels    any of PicturePixels to any other. Byte4 to Float3 and Float4 is imageConvert's division, and
///             then the curve; Float3 to Float4 is imageConvert's (alpha 0, the one case where alpha is not
///             opaque); Float to Byte with Transfer::None is imageConvert's (which wraps, and counts nothing)
///   failure   throws the allocator's exception, the picture as it was
KOIMAGEIO_EXPORT void convertPicture(ko::Reference<koImage::Image>& image, koImage::PixelTypeId type,
                                     Transfer transfer, Misfits& misfits);

}  // namespace koImageIO
