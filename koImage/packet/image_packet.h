// Images as packets.
//
// An image is one packet "ko.lb.image", tagged with the image's address, and behind it its elements, which
// are channel values in storage order, in packets "ko.lb.image.parcel" of at most 1024:
//
//   ko.lb.image           int pixel type, int width, int height, bool wrap horizontal, bool wrap vertical
//   ko.lb.image.parcel    reference to the image, int start, int count, array of count elements
//
//   pixel type            elements          array
//   Byte, Byte4           8-bit             bytes
//   UInt, Int4            32-bit integer    ints
//   Half4                 raw half words    shorts
//   Float, Float3, Float4 float             floats
//   Double3, Harmonics    none: such an image is saved as its header only, and reading creates nothing
//
// Older files hold images of bytes in another form, which is read and no longer written:
//
//   ko.lb.bitmap          int channels (1 or 4), int width, int height; in a second chunk, which may be empty
//                         or absent, bool wrap horizontal, bool wrap vertical
//   ko.lb.bitmap.parcel   as an image's parcel, of bytes
#pragma once

#include "koImage/export.h"
#include "koImage/image/image.h"
#include "koImage/image/pixel_dispatch.h"
#include "koPacketFile/read_context.h"
#include "koPacketFile/write_context.h"

namespace koImage::packetFile {

/// The pixel types whose elements are stored.
using ParcelPixels = PixelList<unsigned char, Byte4, unsigned int, Int4, Half4, float, Float3, Float4>;

/// Writes an image; null writes nothing.
///
///   failure   in the context: SizeLimit for sizes below 0, and for more elements than 2^31 - 1, which the
///             numbers in a parcel cannot count; InvalidValue for an image that has no pixels for its size
KOIMAGE_EXPORT void writeImage(ioWriteContext& context, Image const* image);

/// Reads the four kinds of packets. Made by the application for one read context; the packet types of
/// registerTypes call it as long as it lives.
///
/// An image that has been read belongs to the context: whoever wants it takes a reference, and has it then
/// with its last parcel read. Until then its pixels are 0, and they stay so where parcels are missing
/// (IncompleteObject).
///
///   failure   in the context: InvalidValue for sizes that an image cannot have, or a parcel that is not
///             inside its image; PromiseTooLarge for an image larger than the rest of the file, so also for
///             one that was cut off, unless ReadOptions::missingBytes makes room. Such packets change nothing
class KOIMAGE_EXPORT ReadInterface : public ioClientReadContext {
public:
    explicit ReadInterface(ioReadContext& context);
    ~ReadInterface() override;

    // Called with the context at the first value of a packet of their kind.

    void readImage();
    void readImageParcel();
    void readBitmap();
    void readBitmapParcel();
};

/// Registers the four packet types, which call that reader while it is enlisted with the context that reads;
/// else the packet fails with Misuse.
KOIMAGE_EXPORT void registerTypes(ioPacketRegistry* registry, ReadInterface* reader);

}  // namespace koImage::packetFile
