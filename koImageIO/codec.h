// What the codecs share: where bytes go to, and what each format offers. Private to koImageIO.
#pragma once

#include "koImageIO/picture.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace koImageIO {

/// Takes the bytes of a file in order.
class ByteSink {
public:
    virtual ~ByteSink() = default;

    /// Whether they were taken; after a failure nothing more needs to be offered.
    [[nodiscard]] virtual bool write(std::span<std::byte const> bytes) noexcept = 0;
};

/// A format: how its files begin, and how they are read and written.
///
///   begins    whether these first bytes are of the format
///   read      fills everything of the picture but its format, which is set; `name` is what errors call the
///             file. The image has the type that the file suggests: readPicture converts it to the one asked
///   write     hands the whole file to the sink; an error says why the image cannot be written. A sink that
///             fails ends the writing; whoever owns it reports that
struct Codec {
    PictureFormat format;
    std::span<char const* const> extensions;
    bool (*begins)(std::span<std::byte const> file);
    koUtil::Error (*read)(std::span<std::byte const> file, std::string const& name,
                          ReadOptions const& options, Picture& picture, koUtil::Progress* progress);
    koUtil::Error (*write)(koImage::Image const& image, WriteOptions const& options, ByteSink& sink,
                           Misfits& misfits, koUtil::Progress* progress);
};

/// The error of a file: "name: byte 12: reason".
koUtil::Error errorAt(std::string const& name, std::size_t byte, std::string const& reason);

/// The program and its version, as files name it.
std::string programName();

/// Makes the image that a file's pixels go into, undefined until written. Whoever calls it has made sure that
/// the file can hold as many. Throws std::bad_alloc, which readPicture reports.
///
///   failure   an error at that byte for a size below 1, or beyond 2^31 - 1 pixels
[[nodiscard]] koUtil::Error makePicture(std::string const& name, std::size_t byte, koImage::PixelTypeId type,
                                        std::int64_t width, std::int64_t height,
                                        ko::Reference<koImage::Image>& image);

extern Codec const exrCodec;
extern Codec const hdrCodec;
extern Codec const pngCodec;
extern Codec const pfmCodec;
extern Codec const pnmCodec;

}  // namespace koImageIO
