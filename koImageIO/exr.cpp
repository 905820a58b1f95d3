// OpenEXR. The library's core checks a file: it knows how long the file is, takes an allocator, and tells
// where each chunk lies. Its C++ classes then read the pixels (the core of OpenEXR 3.1.5 reads B44 and DWA
// files wrongly), and write.

#include "koImageIO/codec.h"
#include "koImageIO/rows.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfInputFile.h>
#include <ImfOutputFile.h>
#include <ImfStringAttribute.h>
#include <openexr.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace koImageIO {

using koImage::Half4;
using koImage::Image;
using koImage::PixelTypeId;

namespace {

// What one byte of a file can become at most, by how its pixels are packed.
struct Compression {
    char const* name;
    Imf::Compression code;
    std::uint64_t largestExpansion;
};

constexpr std::uint64_t deflate = 1032;

constexpr Compression compressions[] = {
    {"none", Imf::NO_COMPRESSION, 1},
    {"rle", Imf::RLE_COMPRESSION, 64},  // two bytes for a run of 128
    {"zips", Imf::ZIPS_COMPRESSION, deflate},
    {"zip", Imf::ZIP_COMPRESSION, deflate},
    {"piz", Imf::PIZ_COMPRESSION, 512},              // nine bits for a run of 255 words
    {"pxr24", Imf::PXR24_COMPRESSION, 2 * deflate},  // three bytes for a float of four
    {"b44", Imf::B44_COMPRESSION, 3},                // 14 bytes for 32
    {"b44a", Imf::B44A_COMPRESSION, 11},             // 3 bytes for 32
    // A block of 64 floats is two deflated words.
    {"dwaa", Imf::DWAA_COMPRESSION, 64 * deflate},
    {"dwab", Imf::DWAB_COMPRESSION, 64 * deflate},
};
// What is outside the data window takes no bytes: it counts as the tightest packing.
constexpr std::uint64_t expansionOfNothing = 64 * deflate;
constexpr std::uint64_t bytesOfWidestPixel = sizeof(koImage::Float4);

// The allocator of the library's core, which gives it no place for anything of ours: the largest piece that
// may be asked for stands beside it.
thread_local std::size_t largestPiece = 0;

void* allocate(std::size_t bytes)
{
    return bytes <= largestPiece ? std::malloc(bytes) : nullptr;
}

// Where the zero stands that ends a text.
std::size_t endOfText(std::span<std::byte const> file, std::size_t at)
{
    auto const from = file.subspan(std::min(at, file.size()));
    return static_cast<std::size_t>(std::find(from.begin(), from.end(), std::byte{0}) - file.begin());
}

// Whether every attribute of every header ends within the file: the library allocates what one claims before
// it reads it.
koUtil::Error checkAttributes(std::span<std::byte const> file, std::string const& name)
{
    constexpr std::size_t versionAt = 4, firstAt = 8, lengthBytes = 4;
    if (file.size() < firstAt)
        return errorAt(name, file.size(), "the file ends within its header");
    bool const severalParts = (std::to_integer<unsigned>(file[versionAt + 1]) & 0x10U) != 0;

    std::size_t at = firstAt;
    for (bool inHeader = false;;) {
        std::size_t const nameEnd = endOfText(file, at);
        if (nameEnd == at) {
            // An empty name ends a header; an empty header ends those of several parts.
            if (!severalParts || !inHeader)
                return {};
            inHeader = false;
            ++at;
            continue;
        }
        std::size_t const typeEnd = endOfText(file, nameEnd + 1);
        std::size_t const valueAt = typeEnd + 1 + lengthBytes;
        if (valueAt > file.size())
            return errorAt(name, at, "the file ends within its header");
        std::uint32_t length = 0;
        for (std::size_t i = lengthBytes; i-- > 0;)
            length = length << 8 | std::to_integer<std::uint32_t>(file[typeEnd + 1 + i]);
        if (length > file.size() - valueAt)
            return errorAt(name, at, "an attribute does not end within the file");
        at = valueAt + length;
        inHeader = true;
    }
}

// A file in memory whose header and chunks are checked.
class Checked {
public:
    explicit Checked(std::span<std::byte const> file) : file_(file)
    {
        largestPiece = std::max<std::uint64_t>(1 << 20, expansionOfNothing * file.size());
    }
    Checked(Checked const&) = delete;
    Checked& operator=(Checked const&) = delete;
    ~Checked() { exr_finish(&context_); }

    bool open(std::string const& name)
    {
        exr_context_initializer_t how = EXR_DEFAULT_CONTEXT_INITIALIZER;
        how.error_handler_fn = onError;
        how.alloc_fn = allocate;
        how.free_fn = std::free;
        how.user_data = this;
        how.read_fn = onRead;
        how.size_fn = [](exr_const_context_t, void* self) {
            return static_cast<std::int64_t>(static_cast<Checked*>(self)->file_.size());
        };
        how.max_image_width = how.max_image_height = std::numeric_limits<std::int32_t>::max() / 16;
        how.flags = EXR_CONTEXT_FLAG_DISABLE_CHUNK_RECONSTRUCTION;
        return exr_start_read(&context_, name.c_str(), &how) == EXR_ERR_SUCCESS;
    }

    /// Whether the chunk of scanlines that begins with this one is there.
    bool hasLines(std::int64_t y)
    {
        exr_chunk_info_t chunk = {};
        if (exr_read_scanline_chunk_info(context_, 0, static_cast<int>(y), &chunk) != EXR_ERR_SUCCESS)
            return false;
        position_ = chunk.data_offset;
        return true;
    }

    /// Whether the tiles of one row of them are there.
    bool hasTiles(std::int64_t row, std::int64_t count)
    {
        std::size_t first = 0;
        for (std::int64_t column = 0; column < count; ++column) {
            exr_chunk_info_t chunk = {};
            if (exr_read_tile_chunk_info(context_, 0, static_cast<int>(column), static_cast<int>(row), 0, 0,
                                         &chunk) != EXR_ERR_SUCCESS)
                return false;
            first = column == 0 ? chunk.data_offset : first;
        }
        position_ = first;
        return true;
    }

    exr_context_t context() const { return context_; }

    /// The last one reported, or this reason, at the place that was read last.
    koUtil::Error error(std::string const& name) const { return errorAt(name, position_, reason_); }
    koUtil::Error error(std::string const& name, std::string const& reason) const
    {
        return errorAt(name, position_, reason);
    }

private:
    static void onError(exr_const_context_t context, exr_result_t, char const* message)
    {
        void* self = nullptr;
        if (exr_get_user_data(context, &self) == EXR_ERR_SUCCESS && self != nullptr)
            static_cast<Checked*>(self)->reason_ = message;
    }

    static std::int64_t onRead(exr_const_context_t, void* caller, void* to, std::uint64_t count,
                               std::uint64_t offset, exr_stream_error_func_ptr_t)
    {
        auto& self = *static_cast<Checked*>(caller);
        self.position_ = std::min<std::uint64_t>(offset, self.file_.size());
        std::size_t const there = std::min<std::uint64_t>(count, self.file_.size() - self.position_);
        std::memcpy(to, self.file_.data() + self.position_, there);
        return static_cast<std::int64_t>(there);
    }

    std::span<std::byte const> file_;
    exr_context_t context_ = nullptr;
    std::size_t position_ = 0;
    std::string reason_ = "the file is damaged";
};

// The same file for the C++ classes.
class InputStream : public Imf::IStream {
public:
    explicit InputStream(std::span<std::byte const> file) : IStream(""), file_(file) {}

    bool read(char to[], int count) override
    {
        auto const length = static_cast<std::size_t>(count);
        if (count < 0 || at_ > file_.size() || length > file_.size() - at_)
            throw std::runtime_error("the file ends too early");
        std::memcpy(to, file_.data() + at_, length);
        at_ += length;
        return at_ < file_.size();
    }
    std::uint64_t tellg() override { return at_; }
    void seekg(std::uint64_t position) override { at_ = position; }

private:
    std::span<std::byte const> file_;
    std::size_t at_ = 0;
};

bool begins(std::span<std::byte const> file)
{
    constexpr std::array magic = {std::byte{0x76}, std::byte{0x2F}, std::byte{0x31}, std::byte{0x01}};
    return file.size() >= magic.size() && std::equal(magic.begin(), magic.end(), file.begin());
}

// A channel "layer.inner.R" is R of the layer "layer.inner".
std::pair<std::string_view, std::string_view> layerAndChannel(std::string_view name)
{
    std::size_t const dot = name.rfind('.');
    if (dot == std::string_view::npos)
        return {"", name};
    return {name.substr(0, dot), name.substr(dot + 1)};
}

std::string quoted(std::string_view text)
{
    return std::string("\"").append(text).append("\"");
}

std::string layersOf(std::span<exr_attr_chlist_entry_t const> channels)
{
    std::vector<std::string> layers;
    for (auto const& channel : channels) {
        std::string_view const layer = layerAndChannel(channel.name.str).first;
        layers.push_back(layer.empty() ? "the unnamed one" : quoted(layer));
    }
    std::sort(layers.begin(), layers.end());
    layers.erase(std::unique(layers.begin(), layers.end()), layers.end());
    std::string list;
    for (auto const& layer : layers)
        list += (list.empty() ? "" : ", ") + layer;
    return list;
}

// Which channels of a file make a picture, and of what type.
struct Selection {
    PixelTypeId type = PixelTypeId::Float;
    std::vector<std::pair<char const*, int>> places;  // a channel of the file, a channel of the pixels
    bool complete = true;                             // each channel of the pixels comes from the file
};

// Chooses the channels of a layer. A reason why it cannot be read, or "".
std::string select(std::span<exr_attr_chlist_entry_t const> channels, std::string_view layer,
                   Selection& selection)
{
    std::vector<int> inLayer;
    for (int i = 0; i < static_cast<int>(channels.size()); ++i) {
        if (layerAndChannel(channels[static_cast<std::size_t>(i)].name.str).first == layer)
            inLayer.push_back(i);
    }
    auto const nameOf = [&](int i) {
        return layerAndChannel(channels[static_cast<std::size_t>(i)].name.str).second;
    };
    auto const find = [&](std::string_view name) {
        auto const it =
            std::find_if(inLayer.begin(), inLayer.end(), [&](int i) { return nameOf(i) == name; });
        return it == inLayer.end() ? -1 : *it;
    };
    if (inLayer.empty())
        return (layer.empty() ? std::string("there is no unnamed layer")
                              : "there is no layer " + quoted(layer)) +
               "; the file has " + layersOf(channels);
    if (find("RY") >= 0 || find("BY") >= 0)
        return "luminance with chroma channels (RY, BY) is not supported";

    // One channel of any name, colour, or grey with alpha spread over the colours.
    int const alpha = inLayer.size() > 1 ? find("A") : -1;
    int const red = find("R"), green = find("G"), blue = find("B"), grey = find("Y");
    bool const colour = inLayer.size() > 1 && (red >= 0 || green >= 0 || blue >= 0);
    std::vector<std::pair<int, int>> places;
    if (colour)
        places = {{red, 0}, {green, 1}, {blue, 2}, {alpha, 3}};
    else if (grey >= 0 && alpha >= 0)
        places = {{grey, 0}, {alpha, 3}};
    else if (grey >= 0)
        places = {{grey, 0}};
    else if (inLayer.size() == 1)
        places = {{inLayer[0], 0}};
    else
        return "none of the channels is R, G, B or Y, and there is more than one";

    bool halves = true;
    for (auto const& [from, to] : places) {
        if (from < 0) {
            selection.complete = false;
            continue;
        }
        auto const& channel = channels[static_cast<std::size_t>(from)];
        if (channel.x_sampling != 1 || channel.y_sampling != 1)
            return "the channel " + std::string(channel.name.str) + " is subsampled, which is not supported";
        halves = halves && channel.pixel_type == EXR_PIXEL_HALF;
        selection.places.emplace_back(channel.name.str, to);
    }
    bool const one = !colour && alpha < 0;
    bool const three = colour && alpha < 0;
    selection.type = one      ? PixelTypeId::Float
                     : halves ? PixelTypeId::Half4
                     : three  ? PixelTypeId::Float3
                              : PixelTypeId::Float4;
    return "";
}

struct Window {
    std::int64_t left, top, width, height;
};

Window windowOf(exr_attr_box2i_t const& box)
{
    return {box.min.x, box.min.y, std::int64_t{box.max.x} - box.min.x + 1,
            std::int64_t{box.max.y} - box.min.y + 1};
}

// Whether so many values of that size are at most `most` bytes.
bool fits(Window const& window, std::uint64_t pixelBytes, std::uint64_t most)
{
    auto const width = static_cast<std::uint64_t>(window.width);
    auto const height = static_cast<std::uint64_t>(window.height);
    return width <= most / height && width * height <= most / pixelBytes;
}

// Reads the pixels of a part in blocks of as many lines as its chunks have.
class PixelReader {
public:
    PixelReader(Imf::InputFile& file, Selection const& selection, Window const& data, Window const& display,
                std::int64_t blockLines, Image& image)
        : file_(file),
          selection_(selection),
          data_(data),
          display_(display),
          image_(image),
          pixelBytes_(static_cast<std::size_t>(image.bytesPerPixel())),
          lineBytes_(static_cast<std::size_t>(data.width) * pixelBytes_),
          block_(static_cast<std::size_t>(std::min(blockLines, data.height)) * lineBytes_)
    {
        if (!selection.complete)
            setMissing();
    }

    /// Lines from y on, counted from the top of the data window.
    void read(std::int64_t y, std::int64_t lines)
    {
        showBlock(y);
        file_.readPixels(static_cast<int>(data_.top + y), static_cast<int>(data_.top + y + lines - 1));
        for (std::int64_t line = 0; line < lines; ++line)
            place(y + line, block_.data() + static_cast<std::size_t>(line) * lineBytes_);
    }

private:
    // Channels that the file lacks keep what stands here: nothing else is written to them.
    void setMissing()
    {
        koImage::dispatchPixel(image_.pixelType(), PicturePixels{}, [&](auto tag) {
            using Pixel = typename decltype(tag)::type;
            Pixel missing = {};
            if constexpr (requires { missing.a; })
                missing.a = 1;
            for (std::size_t at = 0; at < block_.size(); at += sizeof(Pixel))
                std::memcpy(block_.data() + at, &missing, sizeof(Pixel));
        });
    }

    // Tells the library where the block is that begins with line y.
    void showBlock(std::int64_t y)
    {
        // It counts from the origin of the file's coordinates, which lies anywhere: an address without
        // memory, formed by integers that wrap around.
        auto const origin = reinterpret_cast<std::uintptr_t>(block_.data()) -
                            static_cast<std::uintptr_t>(data_.left) * pixelBytes_ -
                            static_cast<std::uintptr_t>(data_.top + y) * lineBytes_;
        bool const halves = image_.pixelType() == PixelTypeId::Half4;
        std::size_t const channelBytes = halves ? 2 : 4;
        Imf::FrameBuffer buffer;
        for (auto const& [channel, to] : selection_.places) {
            auto const address = origin + static_cast<std::size_t>(to) * channelBytes;
            auto* const base = reinterpret_cast<char*>(address);  // NOLINT(performance-no-int-to-ptr)
            buffer.insert(channel,
                          Imf::Slice(halves ? Imf::HALF : Imf::FLOAT, base, pixelBytes_, lineBytes_));
        }
        file_.setFrameBuffer(buffer);
    }

    // Copies what of line y of the data window the display window shows.
    void place(std::int64_t y, std::byte const* line)
    {
        std::int64_t const row = data_.top + y - display_.top;
        if (row < 0 || row >= display_.height)
            return;
        std::int64_t const left = data_.left - display_.left;
        std::int64_t const first = std::max<std::int64_t>(left, 0);
        std::int64_t const end = std::min(left + data_.width, display_.width);
        if (first >= end)
            return;
        std::memcpy(pictureRowBytes(image_, static_cast<int>(row)).data() +
                        static_cast<std::size_t>(first) * pixelBytes_,
                    line + static_cast<std::size_t>(first - left) * pixelBytes_,
                    static_cast<std::size_t>(end - first) * pixelBytes_);
    }

    Imf::InputFile& file_;
    Selection const& selection_;
    Window data_;
    Window display_;
    Image& image_;
    std::size_t pixelBytes_;
    std::size_t lineBytes_;
    std::vector<std::byte> block_;
};

// Reads the pixels of a file into an image of the display window's size that is black.
koUtil::Error readPixels(Checked& checked, std::span<std::byte const> file, std::string const& name,
                         Selection const& selection, Window const& data, Window const& display,
                         std::uint64_t storedBytes, bool tiled, Image& image, koUtil::Progress* progress)
{
    std::uint32_t tileWidth = 0, tileHeight = 0;
    std::int32_t chunkLines = 0;
    if ((tiled ? exr_get_tile_descriptor(checked.context(), 0, &tileWidth, &tileHeight, nullptr, nullptr)
               : exr_get_scanlines_per_chunk(checked.context(), 0, &chunkLines)) != EXR_ERR_SUCCESS)
        return checked.error(name);
    std::int64_t const blockLines = tiled ? std::int64_t{tileHeight} : chunkLines;
    std::int64_t const blockWidth = std::max<std::int64_t>(data.width, tileWidth);
    if (blockLines < 1 || (tiled && tileWidth == 0))
        return checked.error(name, "the header is damaged");
    // The library has room for whole chunks and tiles, however small the picture.
    if (!fits({0, 0, blockWidth, blockLines}, std::max(storedBytes, bytesOfWidestPixel),
              expansionOfNothing * file.size()))
        return checked.error(name, "the file is too short for its chunks");

    try {
        InputStream stream(file);
        Imf::InputFile input(stream, 0);
        PixelReader pixels(input, selection, data, display, blockLines, image);
        for (std::int64_t y = 0; y < data.height; y += blockLines) {
            bool const there =
                tiled ? checked.hasTiles(y / blockLines, (data.width + tileWidth - 1) / tileWidth)
                      : checked.hasLines(data.top + y);
            if (!there)
                return checked.error(name);
            pixels.read(y, std::min<std::int64_t>(blockLines, data.height - y));
            koUtil::setProgress(progress, static_cast<double>(y) / static_cast<double>(data.height));
        }
        return {};
    } catch (std::bad_alloc const&) {
        throw;
    } catch (std::exception const& reason) {
        return checked.error(name, reason.what());
    }
}

// Grey with alpha was read into red.
void spreadGrey(Image& image)
{
    koImage::dispatchPixel(image.pixelType(), PicturePixels{}, [&](auto tag) {
        for (auto& pixel : koImage::pixelsOf<typename decltype(tag)::type>(image)) {
            if constexpr (requires { pixel.g; })
                pixel.g = pixel.b = pixel.r;
        }
    });
}

Metadata textOf(Checked const& checked)
{
    Metadata metadata;
    std::int32_t count = 0;
    exr_get_attribute_count(checked.context(), 0, &count);
    for (std::int32_t i = 0; i < count; ++i) {
        exr_attribute_t const* attribute = nullptr;
        if (exr_get_attribute_by_index(checked.context(), 0, EXR_ATTR_LIST_FILE_ORDER, i, &attribute) !=
                EXR_ERR_SUCCESS ||
            attribute->type != EXR_ATTR_STRING)
            continue;
        // How the file is built, not what the picture is.
        std::string_view const name = attribute->name;
        if (name != "name" && name != "type")
            metadata.emplace_back(name, std::string(attribute->string->str,
                                                    static_cast<std::size_t>(attribute->string->length)));
    }
    return metadata;
}

koUtil::Error readExr(std::span<std::byte const> file, std::string const& name, ReadOptions const& options,
                      Picture& picture, koUtil::Progress* progress)
{
    if (koUtil::Error error = checkAttributes(file, name))
        return error;
    Checked checked(file);
    if (!checked.open(name))
        return checked.error(name);

    exr_storage_t storage = {};
    exr_compression_t compression = {};
    exr_attr_box2i_t dataBox = {}, displayBox = {};
    exr_attr_chlist_t const* list = nullptr;
    if (exr_get_storage(checked.context(), 0, &storage) != EXR_ERR_SUCCESS ||
        exr_get_compression(checked.context(), 0, &compression) != EXR_ERR_SUCCESS ||
        exr_get_data_window(checked.context(), 0, &dataBox) != EXR_ERR_SUCCESS ||
        exr_get_display_window(checked.context(), 0, &displayBox) != EXR_ERR_SUCCESS ||
        exr_get_channels(checked.context(), 0, &list) != EXR_ERR_SUCCESS)
        return checked.error(name);
    if (storage != EXR_STORAGE_SCANLINE && storage != EXR_STORAGE_TILED)
        return errorAt(name, 0, "the first part holds deep pixels, which are not supported");

    std::span const channels(list->entries, static_cast<std::size_t>(list->num_channels));
    Selection selection;
    if (std::string const reason = select(channels, options.layer, selection); !reason.empty())
        return errorAt(name, 0, reason);

    // No more pixels than the file can hold.
    Window const data = windowOf(dataBox);
    Window const display = windowOf(displayBox);
    std::uint64_t storedBytes = 0;
    for (auto const& channel : channels)
        storedBytes += channel.pixel_type == EXR_PIXEL_HALF ? 2 : 4;
    auto const packing = static_cast<std::size_t>(compression);
    if (data.width < 1 || data.height < 1 || display.width < 1 || display.height < 1 ||
        packing >= std::size(compressions))
        return errorAt(name, 0, "the header is damaged");
    if (!fits(data, storedBytes, compressions[packing].largestExpansion * file.size()) ||
        !fits(display, bytesOfWidestPixel, expansionOfNothing * file.size()))
        return errorAt(name, 0,
                       "the file is too short for its windows of " + std::to_string(data.width) + " x " +
                           std::to_string(data.height) + " and " + std::to_string(display.width) + " x " +
                           std::to_string(display.height) + " pixels");

    if (koUtil::Error error =
            makePicture(name, 0, selection.type, display.width, display.height, picture.image))
        return error;
    Image& image = *picture.image;
    std::memset(image.data(), 0,
                static_cast<std::size_t>(image.pixelCount()) *
                    static_cast<std::size_t>(image.bytesPerPixel()));

    if (koUtil::Error error = readPixels(checked, file, name, selection, data, display, storedBytes,
                                         storage == EXR_STORAGE_TILED, image, progress))
        return error;
    if (selection.places.size() == 2 && selection.complete)
        spreadGrey(image);
    picture.metadata = textOf(checked);
    return {};
}

// The library goes back to the beginning of a file when the rest is written.
class MemoryStream : public Imf::OStream {
public:
    MemoryStream() : OStream("") {}

    void write(char const bytes[], int count) override
    {
        auto const length = static_cast<std::size_t>(count);
        bytes_.resize(std::max(bytes_.size(), at_ + length));
        std::memcpy(bytes_.data() + at_, bytes, length);
        at_ += length;
    }
    std::uint64_t tellp() override { return at_; }
    void seekp(std::uint64_t position) override { at_ = position; }

    std::span<std::byte const> bytes() const { return std::as_bytes(std::span(bytes_)); }

private:
    std::vector<char> bytes_;
    std::size_t at_ = 0;
};

template <class Value, class FillRow>
void writeRows(Image const& image, Imf::Header header, Imf::PixelType type, Imf::OStream& stream,
               koUtil::Progress* progress, FillRow const& fillRow)
{
    int const channels = koImage::channelCount(image.pixelType());
    std::vector<Value> row(static_cast<std::size_t>(image.width()) * static_cast<std::size_t>(channels));

    // Every row is written out of this one: it is `yStride` 0 below the one before.
    Imf::FrameBuffer buffer;
    for (int c = 0; c < channels; ++c) {
        char const* const channel =
            channels == 1 ? "Y" : std::array{"R", "G", "B", "A"}[static_cast<std::size_t>(c)];
        header.channels().insert(channel, Imf::Channel(type));
        buffer.insert(channel, Imf::Slice(type, reinterpret_cast<char*>(row.data() + c),
                                          sizeof(Value) * static_cast<std::size_t>(channels), 0));
    }
    Imf::OutputFile file(stream, header, 0);
    file.setFrameBuffer(buffer);
    for (int y = 0; y < image.height(); ++y) {
        fillRow(y, channels, std::span(row));
        file.writePixels(1);
        if (y % 64 == 0)
            koUtil::setProgress(progress, double{1} * y / image.height());
    }
}

koUtil::Error writeExr(Image const& image, WriteOptions const& options, ByteSink& sink, Misfits& misfits,
                       koUtil::Progress* progress)
{
    bool const floats = image.pixelType() == PixelTypeId::Float || image.pixelType() == PixelTypeId::Float3 ||
                        image.pixelType() == PixelTypeId::Float4;
    int const bits = options.bits != 0 ? options.bits : floats ? 32 : 16;
    if (bits != 16 && bits != 32)
        return koUtil::Error(1, "OpenEXR has 16 or 32 bits in a channel, not %d", bits);
    std::string const packing = options.compression.empty() ? "zip" : options.compression;
    auto const compression = std::find_if(std::begin(compressions), std::end(compressions),
                                          [&](Compression const& c) { return c.name == packing; });
    if (compression == std::end(compressions))
        return koUtil::Error(1, "OpenEXR has no compression \"%s\"", packing.c_str());

    try {
        Imf::Header header(image.width(), image.height());
        header.compression() = compression->code;
        for (auto const& [name, text] : options.metadata)
            header.insert(name, Imf::StringAttribute(text));
        header.insert("software", Imf::StringAttribute(programName()));

        MemoryStream stream;
        if (bits == 16)
            writeRows<koImage::half>(image, header, Imf::HALF, stream, progress,
                                     [&](int row, int channels, std::span<koImage::half> values) {
                                         rowAsHalves(image, row, channels, options.transfer, values, misfits);
                                     });
        else
            writeRows<float>(image, header, Imf::FLOAT, stream, progress,
                             [&](int row, int channels, std::span<float> values) {
                                 rowAsFloats(image, row, channels, options.transfer, values);
                             });
        // A sink that fails is reported by its owner.
        static_cast<void>(sink.write(stream.bytes()));
        return {};
    } catch (std::bad_alloc const&) {
        throw;
    } catch (std::exception const& reason) {
        return koUtil::Error(1, "%s", reason.what());
    }
}

constexpr char const* extensions[] = {"exr"};

}  // namespace

Codec const exrCodec = {PictureFormat::Exr, extensions, begins, readExr, writeExr};

}  // namespace koImageIO
