// What the codecs share: where bytes go to, and what each format offers. Private to koImageIO.
#pragma once

#include "koImageIO/picture.h"

namespace koImageIO {

/// Takes the bytes of a file in order.
class ByteSink {
public:
    virtual ~ByteSink() = default;

    /// Whether they were taken; after a failure nothing more needs to be offered.
    [[nodiscard]] virtual bool write(std::span<std::byte const> bytes) = 0;
};

/// A format: how its files begin, and how they are read and written.
///
///   begins    whether these first bytes are of the format
///   read      fills everything of the picture but its format; `name` is what errors call the file
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

extern Codec const exrCodec;
extern Codec const hdrCodec;
extern Codec const pngCodec;
extern Codec const pfmCodec;
extern Codec const pnmCodec;

}  // namespace koImageIO
