// Picture files to and from images.
//
//   format          read                                            written                    extension
//   OpenEXR         scanlines and tiles, half and float             half, float                .exr
//   Radiance HDR    RGBE and XYZE, every orientation                RGBE                       .hdr .pic
//   PNG             8 and 16 bits, grey to RGBA, palette            8 and 16 bits              .png
//   PFM             grey and colour, both byte orders               grey and colour            .pfm
//   PPM, PGM        8 and 16 bits, binary and plain                 8 and 16 bits, binary      .ppm .pgm
//
// A file is recognised by its first bytes when it is read, by the extension of its name when it is written.
//
// OpenEXR: the first part of a file, at full resolution. A channel "key.R" is R of the layer "key". A layer
// of one channel is grey, whatever its name; else R, G and B make the picture, or Y, with A beside them; what
// is missing of R, G, B is 0, missing A is 1. The picture is the display window: pixels of it that lie
// outside the data window are 0, alpha too, and data outside it is left out. Deep parts, subsampled channels
// and luminance with chroma are errors.
//
// PNG: levels are taken as sRGB, whatever the file says of its colours; only a gAMA of 1 without sRGB means
// linear levels. Colour profiles are not applied.
//
//   rows     row 0 of an image is the bottom of the picture; files begin with the top. Reading and writing
//            turn the rows over, and nothing else in koImage ever does.
//   light    images of floats and halves hold linear light, images of bytes hold what the file stores. So
//            PNG, PPM and PGM pixels are read as bytes unchanged, and go through the sRGB curve when floats
//            are made of them; floats are written through the curve. Transfer::None leaves the curve out.
//            Alpha is never curved, and never multiplied or divided into the colours.
//   types    the file decides, or the caller asks. Conversions that imageConvert defines are made by it (so
//            Float3 to Float4 gives alpha 0); others clamp to what the type holds, and every clamped value
//            is counted.
//   failure  an error tells the file, the byte and the reason; nothing is made then. No file, however
//            damaged, makes a reader crash, read outside its bytes, or allocate more than such a file can
//            hold.
//   writing  a file appears whole under its name or not at all; one that stood there before stays until then.
#pragma once

#include "koBase/error.h"
#include "koBase/filename.h"
#include "koBase/progress.h"
#include "koBase/reference_count.h"
#include "koImage/image/image.h"
#include "koImage/image/pixel_types.h"
#include "koImageIO/export.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace koImageIO {

enum class PictureFormat { Exr, Hdr, Png, Pfm, Pnm };

/// Values that a pixel type or a file could not hold, and what became of them. Half floats hold infinities
/// and NaN.
struct Misfits {
    std::int64_t overflow = 0;  ///< above the largest value, infinity included: became the largest
    std::int64_t negative = 0;  ///< below the smallest value, minus infinity included: became the smallest
    std::int64_t nan = 0;       ///< not a number: became 0

    bool any() const { return overflow + negative + nan > 0; }

    Misfits& operator+=(Misfits const& other)
    {
        overflow += other.overflow;
        negative += other.negative;
        nan += other.nan;
        return *this;
    }

    friend bool operator==(Misfits const&, Misfits const&) = default;
};

/// Name and text of each remark in a file: "shape", "orientation", "software", "exposure".
using Metadata = std::vector<std::pair<std::string, std::string>>;

/// How bytes and 16-bit integers stand for light.
enum class Transfer { Srgb, None };

struct ReadOptions {
    std::optional<koImage::PixelTypeId> pixelType = {};  ///< none: what the file holds
    std::string layer = {};                              ///< of an EXR file: "" is the one without a name
    Transfer transfer = Transfer::Srgb;
};

/// What was read.
struct Picture {
    ko::Reference<koImage::Image> image;
    PictureFormat format = PictureFormat::Exr;
    Transfer transfer = Transfer::Srgb;  ///< of the file's levels: None where a PNG file says so (gAMA 1)
    Misfits misfits;                     ///< clamped on the way to the pixel type
    Metadata metadata = {};
};

/// Reads a picture file; "-" is standard input.
///
///   pixels    by the file: EXR half colour Half4, other colour Float3, with alpha Float4, one channel Float;
///             HDR Float3; PFM Float3, grey Float; PNG, PPM and PGM of 8 bits Byte4, grey Byte;
///             of 16 bits Float4 with alpha, Float3 without, grey Float
///             by the caller: Byte, Byte4, Half4, Float, Float3, Float4; any other type is an error
///   failure   an error, and `picture` as it was
[[nodiscard]] KOIMAGEIO_EXPORT koUtil::Error readPicture(koOS::Filename const& name, Picture& picture,
                                                         ReadOptions const& options = {},
                                                         koUtil::Progress* progress = nullptr);

/// The same from the bytes of a file; `name` is what errors call it.
[[nodiscard]] KOIMAGEIO_EXPORT koUtil::Error readPicture(std::span<std::byte const> file,
                                                         std::string const& name, Picture& picture,
                                                         ReadOptions const& options = {},
                                                         koUtil::Progress* progress = nullptr);

struct WriteOptions {
    std::optional<PictureFormat> format = {};  ///< none: by the extension; standard output needs one
    /// Of a channel: 8 or 16 for PNG and PPM, 16 or 32 for EXR. 0: as the pixels, where PNG and PPM hold
    /// floats and halves in 16, EXR bytes in 16.
    int bits = 0;
    Transfer transfer = Transfer::Srgb;
    /// The values are a screen's levels already: they go without a curve, whatever `transfer` says, but PNG
    /// files do not call them linear.
    bool levels = false;
    std::string compression = {};  ///< of EXR: "none", "rle", "zips", "zip", "piz", "pxr24", "b44", "b44a",
                                   ///< "dwaa", "dwab"; "": zip
    Metadata metadata = {};        ///< written into EXR, PNG and HDR; beside the program and its version
};

/// Writes an image as a picture file; "-" is standard output.
///
///   pixels    Byte, Byte4, Half4, Float, Float3, Float4; any other type is an error
///   misfits   what was clamped to what the file holds
///   failure   an error, and no file: the one of that name stays as it was
[[nodiscard]] KOIMAGEIO_EXPORT koUtil::Error writePicture(koOS::Filename const& name,
                                                          koImage::Image const& image, Misfits& misfits,
                                                          WriteOptions const& options = {},
                                                          koUtil::Progress* progress = nullptr);

}  // namespace koImageIO
