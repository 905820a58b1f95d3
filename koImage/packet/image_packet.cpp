#include "koImage/packet/image_packet.h"

#include "koImage/image/factory.h"
#include "koImage/image/simd.h"
#include "koImage/image/typed_image.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

namespace koImage::packetFile {

namespace {

using koPacketFile::Problem;

constexpr char const* imageName = "ko.lb.image";
constexpr char const* imageParcelName = "ko.lb.image.parcel";
constexpr char const* bitmapName = "ko.lb.bitmap";
constexpr char const* bitmapParcelName = "ko.lb.bitmap.parcel";

constexpr std::int64_t parcelElements = 1024;

// Numbers of elements are stored in 32 bits.
constexpr std::int64_t mostElements = std::numeric_limits<std::int32_t>::max();

/// What the pixels of a type are stored as.
template <class Pixel>
struct ElementOf {
    using type = float;
};
template <>
struct ElementOf<unsigned char> {
    using type = std::uint8_t;
};
template <>
struct ElementOf<Byte4> {
    using type = std::uint8_t;
};
template <>
struct ElementOf<unsigned int> {
    using type = std::int32_t;
};
template <>
struct ElementOf<Int4> {
    using type = std::int32_t;
};
template <>
struct ElementOf<Half4> {
    using type = std::uint16_t;
};

void writeElements(ioWriteContext& out, std::uint8_t const* elements, std::size_t count)
{
    out.writeBytes(elements, count);
}

void writeElements(ioWriteContext& out, std::uint16_t const* elements, std::size_t count)
{
    out.writeShorts(elements, count);
}

void writeElements(ioWriteContext& out, std::int32_t const* elements, std::size_t count)
{
    out.writeInts(elements, count);
}

void writeElements(ioWriteContext& out, float const* elements, std::size_t count)
{
    out.writeFloats(elements, count);
}

bool readElements(ioReadContext& in, std::uint8_t* elements, std::size_t count)
{
    return in.readBytes(elements, count);
}

bool readElements(ioReadContext& in, std::uint16_t* elements, std::size_t count)
{
    return in.readShorts(elements, count);
}

bool readElements(ioReadContext& in, std::int32_t* elements, std::size_t count)
{
    return in.readInts(elements, count);
}

bool readElements(ioReadContext& in, float* elements, std::size_t count)
{
    return in.readFloats(elements, count);
}

/// How many elements an image of that size has, or -1 where no file can hold it.
template <class Pixel>
std::int64_t elementCount(std::int64_t width, std::int64_t height)
{
    constexpr std::int64_t perPixel = sizeof(Pixel) / sizeof(typename ElementOf<Pixel>::type);
    // The product of the sizes fits in 64 bits, with the elements of a pixel it might not.
    if (width < 0 || height < 0 || width * height > mostElements / perPixel)
        return -1;
    return width * height * perPixel;
}

template <class Pixel>
void writeParcels(ioWriteContext& out, Image const& image, std::int64_t count)
{
    auto const* const elements = static_cast<typename ElementOf<Pixel>::type const*>(image.data());
    for (std::int64_t start = 0; start < count; start += parcelElements) {
        std::int64_t const length = std::min(count - start, parcelElements);
        // The next parcel's elements are fetched while this one is copied and summed, half of them with each:
        // the processor by itself would begin anew with every parcel.
        constexpr std::ptrdiff_t parcelBytes = parcelElements * sizeof *elements;
        auto const fetch = [next = elements + start + length](std::ptrdiff_t from, std::ptrdiff_t end) {
            for (std::ptrdiff_t line = from; line < end; line += 64)
                prefetchAhead(next, line);
        };
        out.startPacket(imageParcelName, nullptr);
        out.writeReference(&image);
        out.writeInt(static_cast<std::int32_t>(start));
        out.writeInt(static_cast<std::int32_t>(length));
        fetch(0, parcelBytes / 2);
        writeElements(out, elements + start, static_cast<std::size_t>(length));
        fetch(parcelBytes / 2, parcelBytes);
        out.endPacket();
    }
}

/// Makes a new image of black pixels the object of the packet.
template <class Pixel>
void setNewImage(ioReadContext& in, int width, int height, bool wrapHorizontal, bool wrapVertical)
{
    std::int64_t const count = elementCount<Pixel>(width, height);
    if (in.packetFailed())
        return;
    if (count < 0) {
        in.fail(Problem::InvalidValue);
        return;
    }
    // Before any memory is taken: a few bytes can promise any size.
    if (!in.expectElements(static_cast<std::uint64_t>(count), sizeof(typename ElementOf<Pixel>::type)))
        return;

    ko::Reference<TypedImage<Pixel>> const image(new TypedImage<Pixel>);
    image->resize(width, height);
    auto const pixels = pixelsOf<Pixel>(*image);
    if (!pixels.empty())
        std::memset(static_cast<void*>(pixels.data()), 0, pixels.size_bytes());
    image->setWrap(wrapHorizontal, wrapVertical);
    in.setObject(image.get());
}

/// Reads what follows the reference in a parcel.
template <class Pixel>
void readParcel(ioReadContext& in, Image& image)
{
    std::int64_t const start = in.readInt();
    std::int64_t const count = in.readInt();
    if (in.packetFailed())
        return;
    std::int64_t const elements =
        image.data() != nullptr ? elementCount<Pixel>(image.width(), image.height()) : 0;
    if (start < 0 || count < 1 || start + count > elements) {
        in.fail(Problem::InvalidValue);
        return;
    }
    auto* const first = static_cast<typename ElementOf<Pixel>::type*>(image.data()) + start;
    if (readElements(in, first, static_cast<std::size_t>(count)))
        in.elementsArrived(static_cast<std::uint64_t>(start), static_cast<std::uint64_t>(count));
}

class imagePacket : public ioPacketType {
public:
    using Operation = void (ReadInterface::*)();

    imagePacket(char const* name, ReadInterface* reader, Operation operation)
        : ioPacketType(name),
          reader_(reader),
          operation_(operation)
    {
    }

    void read(ioReadContext& context, ioClientReadContext*) override
    {
        if (ReadInterface* const reader = context.enlisted(reader_))
            (reader->*operation_)();
    }

private:
    ReadInterface* reader_;
    Operation operation_;
};

}  // namespace

void writeImage(ioWriteContext& context, Image const* image)
{
    if (image == nullptr)
        return;

    std::int64_t count = 0;
    dispatchPixel(image->pixelType(), ParcelPixels{}, [&](auto tag) {
        count = elementCount<typename decltype(tag)::type>(image->width(), image->height());
    });
    if (count < 0)
        return context.fail(Problem::SizeLimit);
    if (count > 0 && image->data() == nullptr)
        return context.fail(Problem::InvalidValue);

    context.startPacket(imageName, image);
    context.writeInt(static_cast<std::int32_t>(image->pixelType()));
    context.writeInt(image->width());
    context.writeInt(image->height());
    context.writeBool(image->wrapHorizontal());
    context.writeBool(image->wrapVertical());
    context.endPacket();

    // Packets of their own behind the header, for their references resolve to it.
    dispatchPixel(image->pixelType(), ParcelPixels{},
                  [&](auto tag) { writeParcels<typename decltype(tag)::type>(context, *image, count); });
}

ReadInterface::ReadInterface(ioReadContext& context) : ioClientReadContext(context) {}

ReadInterface::~ReadInterface() = default;

void ReadInterface::readImage()
{
    if (readContext() == nullptr)
        return;
    ioReadContext& in = *readContext();
    auto const type = PixelTypeId{in.readInt()};
    int const width = in.readInt();
    int const height = in.readInt();
    bool const wrapHorizontal = in.readBool();
    bool const wrapVertical = in.readBool();
    dispatchPixel(type, ParcelPixels{}, [&](auto tag) {
        setNewImage<typename decltype(tag)::type>(in, width, height, wrapHorizontal, wrapVertical);
    });
}

void ReadInterface::readImageParcel()
{
    if (readContext() == nullptr)
        return;
    ioReadContext& in = *readContext();
    auto* const image = in.readOwner<Image>();
    if (image == nullptr)
        return;
    dispatchPixel(image->pixelType(), ParcelPixels{},
                  [&](auto tag) { readParcel<typename decltype(tag)::type>(in, *image); });
}

void ReadInterface::readBitmap()
{
    if (readContext() == nullptr)
        return;
    ioReadContext& in = *readContext();
    int const channels = in.readInt();
    int const width = in.readInt();
    int const height = in.readInt();

    // Files from before bitmaps could wrap lack the chunk.
    in.nextChunk();
    bool const hasFlags = in.hasValues();
    bool const wrapHorizontal = hasFlags && in.readBool();
    bool const wrapVertical = hasFlags && in.readBool();

    if (channels == 4)
        setNewImage<Byte4>(in, width, height, wrapHorizontal, wrapVertical);
    else if (channels == 1)
        setNewImage<unsigned char>(in, width, height, wrapHorizontal, wrapVertical);
    else
        in.setObject(nullptr);
}

void ReadInterface::readBitmapParcel()
{
    if (readContext() == nullptr)
        return;
    ioReadContext& in = *readContext();
    auto* const image = in.readOwner<Image>();
    if (image == nullptr)
        return;
    dispatchPixel(image->pixelType(), PixelList<unsigned char, Byte4>{},
                  [&](auto tag) { readParcel<typename decltype(tag)::type>(in, *image); });
}

void registerTypes(ioPacketRegistry* registry, ReadInterface* reader)
{
    if (registry == nullptr)
        return;
    registry->supportedType(new imagePacket(imageName, reader, &ReadInterface::readImage));
    registry->supportedType(new imagePacket(imageParcelName, reader, &ReadInterface::readImageParcel));
    registry->supportedType(new imagePacket(bitmapName, reader, &ReadInterface::readBitmap));
    registry->supportedType(new imagePacket(bitmapParcelName, reader, &ReadInterface::readBitmapParcel));
}

}  // namespace koImage::packetFile
