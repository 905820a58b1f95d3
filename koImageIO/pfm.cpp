// Portable float map: the words PF (colour) or Pf (grey), width, height and a scale, then floats.
//
//   rows      from the bottom to the top, in this format alone
//   scale     its sign is the byte order, negative the little one. Its size is reported as "scale" where it
//   is
//             not 1, and not applied: programs do not agree whether it multiplies or divides.
//   bits      read as they are, those of NaN included, and written so from Float and Float3
//   written   Byte and Float images as grey, all others as colour, in the byte order of the machine. Alpha is
//             left out.

#include "koImageIO/codec.h"
#include "koImageIO/file_cursor.h"
#include "koImageIO/rows.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

namespace koImageIO {
namespace {

using koImage::Float3;
using koImage::Image;
using koImage::PixelTypeId;
using koUtil::Error;

bool begins(std::span<std::byte const> file)
{
    std::string_view const text(reinterpret_cast<char const*>(file.data()), file.size());
    return text.starts_with("PF") || text.starts_with("Pf");
}

void swapByteOrder(std::span<std::byte> floats)
{
    for (std::size_t at = 0; at < floats.size(); at += sizeof(float)) {
        std::swap(floats[at], floats[at + 3]);
        std::swap(floats[at + 1], floats[at + 2]);
    }
}

std::span<std::byte> rowBytes(Image& image, int row)
{
    return image.pixelType() == PixelTypeId::Float ? std::as_writable_bytes(pictureRow<float>(image, row))
                                                   : std::as_writable_bytes(pictureRow<Float3>(image, row));
}

Error read(std::span<std::byte const> bytes, std::string const& name, ReadOptions const&, Picture& picture,
           koUtil::Progress* progress)
{
    FileCursor file(bytes, name);
    std::string_view const magic = file.takeWord();
    if (magic != "PF" && magic != "Pf")
        return file.errorOfText("the file begins neither with PF nor with Pf");
    bool const colour = magic == "PF";

    std::array<int, 2> size;
    for (int& side : size) {
        side = numberOf<int>(file.takeWord()).value_or(0);
        if (side < 1)
            return file.errorOfText("the size is not a positive number");
    }
    std::string_view const scaleText = file.takeWord();
    double const scale = numberOf<double>(scaleText).value_or(0);
    if (!std::isfinite(scale) || scale == 0)
        return file.errorOfText("the scale is not a number other than 0");

    // One white space, whichever it is: the next byte may look like another and be a pixel's.
    if (file.left() > 0)
        file.take(1);
    auto const [width, height] = size;
    auto const pixels = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
    if (pixels > file.left() / (colour ? sizeof(Float3) : sizeof(float)))
        return file.error("the file is too short for a picture of this size");
    if (Error error = makePicture(name, file.position(), colour ? PixelTypeId::Float3 : PixelTypeId::Float,
                                  width, height, picture.image))
        return error;

    bool const swapped = (scale < 0) != (std::endian::native == std::endian::little);
    for (int row = height - 1; row >= 0; --row) {
        std::span<std::byte> const values = rowBytes(*picture.image, row);
        std::memcpy(values.data(), file.take(values.size()), values.size());
        if (swapped)
            swapByteOrder(values);
        koUtil::setProgress(progress, static_cast<double>(height - row) / height);
    }
    if (std::abs(scale) != 1)
        picture.metadata.emplace_back("scale", scaleText.substr(scale < 0 ? 1 : 0));
    return {};
}

Error write(Image const& image, WriteOptions const& options, ByteSink& sink, Misfits&,
            koUtil::Progress* progress)
{
    bool const colour = koImage::channelCount(image.pixelType()) > 1;
    std::string const header = std::string(colour ? "PF\n" : "Pf\n") + std::to_string(image.width()) + ' ' +
                               std::to_string(image.height()) +
                               (std::endian::native == std::endian::little ? "\n-1.0\n" : "\n1.0\n");
    bool taken = sink.write(std::as_bytes(std::span(header)));

    std::vector<float> values(static_cast<std::size_t>(image.width()) * (colour ? 3 : 1));
    for (int row = image.height() - 1; taken && row >= 0; --row) {
        // Conversions may change the bits of a NaN: what needs none has none.
        if (image.pixelType() == PixelTypeId::Float)
            taken = sink.write(std::as_bytes(pictureRow<float>(image, row)));
        else if (image.pixelType() == PixelTypeId::Float3)
            taken = sink.write(std::as_bytes(pictureRow<Float3>(image, row)));
        else {
            rowAsFloats(image, row, colour ? 3 : 1, options.transfer, values);
            taken = sink.write(std::as_bytes(std::span(values)));
        }
        koUtil::setProgress(progress, static_cast<double>(image.height() - row) / image.height());
    }
    return {};
}

constexpr char const* extensions[] = {"pfm"};

}  // namespace

Codec const pfmCodec = {PictureFormat::Pfm, extensions, begins, read, write};

}  // namespace koImageIO
