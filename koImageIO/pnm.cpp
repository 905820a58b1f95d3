// PPM and PGM: the words P2 or P5 (grey), P3 or P6 (colour), width, height and the largest level, then
// levels; P2 and P3 as text, P5 and P6 as bytes, or as pairs of bytes where the largest level is above 255.
//
//   levels    of a file whose largest is below 256 are read as bytes, of any other as words, scaled to the
//             full range and rounded to nearest where it is not 255 or 65535. One above the largest level
//             becomes that, and counts as an overflow.
//   comments  from # to the end of the line, wherever white space may be, but not between binary levels
//   written   P5 for Byte and Float images, P6 for all others; of 8 bits for bytes, 16 for floats, unless
//   asked
//             otherwise. Alpha is left out. The name of the file changes none of it: programs tell by the
//             content.

#include "koImageIO/codec.h"
#include "koImageIO/file_cursor.h"
#include "koImageIO/rows.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

namespace koImageIO {
namespace {

using koImage::Byte4;
using koImage::Float3;
using koImage::Image;
using koImage::PixelTypeId;
using koUtil::Error;

bool begins(std::span<std::byte const> file)
{
    return file.size() >= 2 && file[0] == std::byte{'P'} && file[1] >= std::byte{'1'} &&
           file[1] <= std::byte{'6'};
}

struct Header {
    bool plain = false;
    bool colour = false;
    int width = 0;
    int height = 0;
    unsigned largest = 255;

    std::size_t rowLevels() const { return static_cast<std::size_t>(width) * (colour ? 3 : 1); }
};

Error readHeader(FileCursor& file, Header& header)
{
    std::string_view const magic = file.takeWord();
    if (magic == "P1" || magic == "P4")
        return file.errorOfText("bitmaps (P1 and P4) are not read");
    if (magic != "P2" && magic != "P3" && magic != "P5" && magic != "P6")
        return file.errorOfText("the file begins with none of P2, P3, P5 and P6");
    header.plain = magic == "P2" || magic == "P3";
    header.colour = magic == "P3" || magic == "P6";

    header.width = numberOf<int>(file.takeWord()).value_or(0);
    if (header.width < 1)
        return file.errorOfText("the width is not a positive number");
    header.height = numberOf<int>(file.takeWord()).value_or(0);
    if (header.height < 1)
        return file.errorOfText("the height is not a positive number");
    unsigned const largest = numberOf<unsigned>(file.takeWord()).value_or(0);
    if (largest < 1 || largest > 65535)
        return file.errorOfText("the largest level is not one of 1 to 65535");
    header.largest = largest;

    // One white space, whichever it is, or the end of a comment: the next byte may look like white space and
    // be a level.
    if (file.rest().starts_with('#'))
        file.takeLine();
    else if (file.left() > 0)
        file.take(1);
    return {};
}

/// Whether the rest of the file is long enough.
bool holds(FileCursor const& file, Header const& header)
{
    // A level as text takes a digit, and white space before the next one.
    std::uint64_t const bytes = file.left();
    std::uint64_t const levels = header.plain           ? bytes / 2 + bytes % 2
                                 : header.largest < 256 ? bytes
                                                        : bytes / 2;
    // Three times the product of any two sizes stays below 2^64.
    return static_cast<std::uint64_t>(header.height) * header.rowLevels() <= levels;
}

/// The levels of one row, scaled to the full range.
template <class Level>
Error readLevels(FileCursor& file, Header const& header, std::span<Level> row, Misfits& misfits)
{
    constexpr std::uint64_t top = std::numeric_limits<Level>::max();

    // Nearly every file has its levels as they are wanted.
    if (!header.plain && header.largest == top) {
        unsigned char const* bytes = file.take(row.size_bytes());
        if constexpr (sizeof(Level) == 1)
            std::copy_n(bytes, row.size(), row.data());
        else
            for (Level& level : row) {
                level = static_cast<Level>(bytes[0] * 256 + bytes[1]);
                bytes += 2;
            }
        return {};
    }

    for (Level& level : row) {
        std::uint64_t value = 0;
        if (header.plain) {
            auto const number = numberOf<std::uint32_t>(file.takeWord());
            if (!number)
                return file.errorOfText("a level is missing or no number");
            value = *number;
        } else if constexpr (sizeof(Level) == 1) {
            value = *file.take(1);
        } else {
            unsigned char const* const pair = file.take(2);
            value = pair[0] * 256u + pair[1];
        }

        if (value > header.largest) {
            ++misfits.overflow;
            value = header.largest;
        }
        level = static_cast<Level>((2 * value * top + header.largest) / (2 * header.largest));
    }
    return {};
}

PixelTypeId pixelTypeOf(Header const& header)
{
    if (header.largest < 256)
        return header.colour ? PixelTypeId::Byte4 : PixelTypeId::Byte;
    return header.colour ? PixelTypeId::Float3 : PixelTypeId::Float;
}

Error readByteRows(FileCursor& file, Header const& header, Picture& picture, koUtil::Progress* progress)
{
    std::vector<std::uint8_t> levels(header.colour ? header.rowLevels() : 0);
    for (int row = 0; row < header.height; ++row) {
        koUtil::setProgress(progress, static_cast<double>(row) / header.height);
        if (!header.colour) {
            auto const pixels = pictureRow<unsigned char>(*picture.image, row);
            if (Error error = readLevels(file, header, pixels, picture.misfits))
                return error;
            continue;
        }
        if (Error error = readLevels(file, header, std::span(levels), picture.misfits))
            return error;
        std::uint8_t const* level = levels.data();
        for (Byte4& pixel : pictureRow<Byte4>(*picture.image, row)) {
            pixel = {level[0], level[1], level[2], 255};
            level += 3;
        }
    }
    return {};
}

Error readWordRows(FileCursor& file, Header const& header, Transfer transfer, Picture& picture,
                   koUtil::Progress* progress)
{
    std::vector<std::uint16_t> levels(header.rowLevels());
    for (int row = 0; row < header.height; ++row) {
        koUtil::setProgress(progress, static_cast<double>(row) / header.height);
        if (Error error = readLevels(file, header, std::span(levels), picture.misfits))
            return error;
        if (header.colour)
            wordsAsFloats(levels, 3, transfer,
                          {&pictureRow<Float3>(*picture.image, row)[0].r, levels.size()});
        else
            wordsAsFloats(levels, 1, transfer, pictureRow<float>(*picture.image, row));
    }
    return {};
}

Error read(std::span<std::byte const> bytes, std::string const& name, ReadOptions const& options,
           Picture& picture, koUtil::Progress* progress)
{
    FileCursor file(bytes, name);
    Header header;
    if (Error error = readHeader(file, header))
        return error;
    if (!holds(file, header))
        return file.error("the file is too short for a picture of this size");
    if (Error error = makePicture(name, file.position(), pixelTypeOf(header), header.width, header.height,
                                  picture.image))
        return error;
    return header.largest < 256 ? readByteRows(file, header, picture, progress)
                                : readWordRows(file, header, options.transfer, picture, progress);
}

Error write(Image const& image, WriteOptions const& options, ByteSink& sink, Misfits& misfits,
            koUtil::Progress* progress)
{
    bool const bytes = image.pixelType() == PixelTypeId::Byte || image.pixelType() == PixelTypeId::Byte4;
    int const bits = options.bits != 0 ? options.bits : bytes ? 8 : 16;
    if (bits != 8 && bits != 16)
        return Error(1, "PPM and PGM have 8 or 16 bits in a channel, not %d", bits);
    bool const words = bits == 16;
    int const channels = koImage::channelCount(image.pixelType()) > 1 ? 3 : 1;
    std::string const header = std::string(channels == 3 ? "P6\n" : "P5\n") + std::to_string(image.width()) +
                               ' ' + std::to_string(image.height()) + (words ? "\n65535\n" : "\n255\n");
    bool taken = sink.write(std::as_bytes(std::span(header)));

    std::size_t const levels = static_cast<std::size_t>(image.width()) * static_cast<std::size_t>(channels);
    std::vector<std::uint16_t> wordRow(words ? levels : 0);
    std::vector<std::uint8_t> byteRow(words ? 2 * levels : levels);
    for (int row = 0; taken && row < image.height(); ++row) {
        koUtil::setProgress(progress, static_cast<double>(row) / image.height());
        if (words) {
            rowAsWords(image, row, channels, options.transfer, wordRow, misfits);
            for (std::size_t i = 0; i < levels; ++i) {
                byteRow[2 * i] = static_cast<std::uint8_t>(wordRow[i] >> 8);
                byteRow[2 * i + 1] = static_cast<std::uint8_t>(wordRow[i] & 0xFF);
            }
        } else {
            rowAsBytes(image, row, channels, options.transfer, byteRow, misfits);
        }
        taken = sink.write(std::as_bytes(std::span(byteRow)));
    }
    return {};
}

constexpr char const* extensions[] = {"ppm", "pgm"};

}  // namespace

Codec const pnmCodec = {PictureFormat::Pnm, extensions, begins, read, write};

}  // namespace koImageIO
