// PNG, through libpng.
//
// Levels are taken as sRGB, whatever a file says of its colours, with one exception: a gAMA chunk of 1
// (within the 5 % that libpng too takes for no difference) without an sRGB chunk says that they are linear.
// Colour profiles are not applied.
//
// libpng reports errors by a jump. It leaves through attempt() only, and what lies between holds nothing that
// would need a destructor: objects that do stand outside.

#include "koImageIO/codec.h"
#include "koImageIO/rows.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <bit>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

namespace koImageIO {

using koImage::Image;
using koImage::PixelTypeId;

namespace {

constexpr std::size_t signatureBytes = 8;
constexpr bool littleEndian = std::endian::native == std::endian::little;

// Deflate makes of a byte at most this many.
constexpr std::uint64_t largestExpansion = 1032;

constexpr png_fixed_point gammaOne = PNG_FP_1;

using Reason = std::array<char, 160>;

[[noreturn]] void onError(png_structp png, png_const_charp message)
{
    auto& reason = *static_cast<Reason*>(png_get_error_ptr(png));
    std::snprintf(reason.data(), reason.size(), "%s", message);
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

// Whether the step came to its end.
template <class Step>
[[gnu::noinline]] bool attempt(png_structp png, Step const& step)
{
    if (setjmp(png_jmpbuf(png)) != 0)
        return false;
    step();
    return true;
}

class Reader {
public:
    explicit Reader(std::span<std::byte const> file) : file_(file)
    {
        png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &reason, onError, onWarning);
        info = png != nullptr ? png_create_info_struct(png) : nullptr;
        if (info == nullptr) {
            png_destroy_read_struct(&png, nullptr, nullptr);
            throw std::bad_alloc();
        }
    }
    Reader(Reader const&) = delete;
    Reader& operator=(Reader const&) = delete;
    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }

    std::size_t position() const { return at_; }

    void begin()
    {
        png_set_read_fn(png, this, [](png_structp caller, png_bytep to, std::size_t count) {
            static_cast<Reader*>(png_get_io_ptr(caller))->take(to, count);
        });
        // The size is held against the file instead.
        png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);

        // Chunks that are not needed are skipped, all that could expand among them.
        static constexpr png_byte skipped[] = "iCCP\0zTXt\0iTXt\0sPLT\0hIST\0pCAL\0sCAL\0eXIf\0";
        png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_NEVER, skipped, sizeof skipped / 5);
        png_read_info(png, info);
    }

    png_structp png = nullptr;
    png_infop info = nullptr;
    Reason reason = {};

private:
    void take(png_bytep to, std::size_t count)
    {
        if (count > file_.size() - at_) {
            at_ = file_.size();
            png_error(png, "the file ends too early");
        }
        std::memcpy(to, file_.data() + at_, count);
        at_ += count;
    }

    std::span<std::byte const> file_;
    std::size_t at_ = 0;
};

bool begins(std::span<std::byte const> file)
{
    return file.size() >= signatureBytes &&
           png_sig_cmp(reinterpret_cast<png_const_bytep>(file.data()), 0, signatureBytes) == 0;
}

// Whether every chunk ends within the file: libpng allocates what a chunk claims before it reads it.
koUtil::Error checkChunks(std::span<std::byte const> file, std::string const& name)
{
    constexpr std::size_t lengthBytes = 4, nameBytes = 4, checkBytes = 4;
    for (std::size_t at = signatureBytes; at < file.size();) {
        std::size_t const left = file.size() - at;
        std::size_t length = 0;
        for (std::size_t i = 0; i < std::min(lengthBytes, left); ++i)
            length = length << 8 | std::to_integer<std::size_t>(file[at + i]);
        std::size_t const whole = lengthBytes + nameBytes + length + checkBytes;
        if (left < whole)
            return errorAt(name, at, "a chunk does not end within the file");
        if (std::memcmp(file.data() + at + lengthBytes, "IEND", nameBytes) == 0)
            return {};
        at += whole;
    }
    return errorAt(name, file.size(), "the file ends too early");
}

bool saysLinear(Reader& reader)
{
    png_fixed_point gamma = 0;
    return png_get_valid(reader.png, reader.info, PNG_INFO_sRGB) == 0 &&
           png_get_gAMA_fixed(reader.png, reader.info, &gamma) != 0 && gamma > gammaOne - gammaOne / 20 &&
           gamma < gammaOne + gammaOne / 20;
}

// Asks for rows of the pixels of the image: Byte and Byte4, or words of one, three or four channels.
PixelTypeId chooseForm(Reader& reader)
{
    png_byte const colour = png_get_color_type(reader.png, reader.info);
    bool const keyed = png_get_valid(reader.png, reader.info, PNG_INFO_tRNS) != 0;
    bool const alpha = (colour & PNG_COLOR_MASK_ALPHA) != 0 || keyed;
    bool const grey = (colour & PNG_COLOR_MASK_COLOR) == 0;
    bool const words = png_get_bit_depth(reader.png, reader.info) == 16;

    png_set_expand(reader.png);  // palettes, less than 8 bits, keyed transparency
    if (grey && alpha)
        png_set_gray_to_rgb(reader.png);
    if (words) {
        if (littleEndian)
            png_set_swap(reader.png);
        return alpha ? PixelTypeId::Float4 : grey ? PixelTypeId::Float : PixelTypeId::Float3;
    }
    if (grey && !alpha)
        return PixelTypeId::Byte;
    if (!alpha)
        png_set_add_alpha(reader.png, 255, PNG_FILLER_AFTER);
    return PixelTypeId::Byte4;
}

// Replaces the words at the beginning of each row's memory, where libpng put them, by the light they stand
// for.
void expandWords(std::span<std::byte> row, int channels, Transfer transfer, std::vector<std::uint16_t>& words)
{
    std::memcpy(words.data(), row.data(), words.size() * sizeof(std::uint16_t));
    wordsAsFloats(words, channels, transfer, {reinterpret_cast<float*>(row.data()), words.size()});
}

Metadata textOf(Reader& reader)
{
    Metadata metadata;
    png_textp text = nullptr;
    int const count = png_get_text(reader.png, reader.info, &text, nullptr);
    for (int i = 0; i < count; ++i) {
        std::string const key = text[i].key;
        metadata.emplace_back(key == "Software" ? "software" : key,
                              std::string(text[i].text, text[i].text_length));
    }
    return metadata;
}

koUtil::Error readPng(std::span<std::byte const> file, std::string const& name, ReadOptions const& options,
                      Picture& picture, koUtil::Progress* progress)
{
    if (koUtil::Error error = checkChunks(file, name))
        return error;
    Reader reader(file);
    auto const failed = [&] { return errorAt(name, reader.position(), reader.reason.data()); };
    if (!attempt(reader.png, [&] { reader.begin(); }))
        return failed();

    // No more pixels than the file can hold: each row has a byte for its filter.
    std::uint64_t const width = png_get_image_width(reader.png, reader.info);
    std::uint64_t const height = png_get_image_height(reader.png, reader.info);
    std::uint64_t const rowBytes = png_get_rowbytes(reader.png, reader.info) + 1;
    if (rowBytes > largestExpansion * file.size() / height)
        return errorAt(name, signatureBytes + 8,
                       "the file is too short for " + std::to_string(width) + " x " + std::to_string(height) +
                           " pixels");

    bool const linear = saysLinear(reader);
    picture.transfer = linear ? Transfer::None : Transfer::Srgb;
    Transfer const transfer = linear ? Transfer::None : options.transfer;
    PixelTypeId type = {};
    int passes = 0;
    auto const prepare = [&] {
        type = chooseForm(reader);
        passes = png_set_interlace_handling(reader.png);
        png_read_update_info(reader.png, reader.info);
    };
    if (!attempt(reader.png, prepare))
        return failed();
    if (koUtil::Error error = makePicture(name, signatureBytes + 8, type, static_cast<std::int64_t>(width),
                                          static_cast<std::int64_t>(height), picture.image))
        return error;

    Image& image = *picture.image;
    int const channels = koImage::channelCount(type);
    bool const wide = type != PixelTypeId::Byte && type != PixelTypeId::Byte4;
    std::vector<std::uint16_t> words(wide ? width * static_cast<std::uint64_t>(channels) : 0);
    auto const readRows = [&] {
        for (int pass = 0; pass < passes; ++pass) {
            for (int row = 0; row < image.height(); ++row) {
                std::span<std::byte> const bytes = pictureRowBytes(image, row);
                png_read_row(reader.png, reinterpret_cast<png_bytep>(bytes.data()), nullptr);
                if (wide && pass == passes - 1)
                    expandWords(bytes, channels, transfer, words);
                if (row % 64 == 0)
                    koUtil::setProgress(progress, (pass + double{1} * row / image.height()) / passes);
            }
        }
        png_read_end(reader.png, reader.info);
    };
    if (!attempt(reader.png, readRows))
        return failed();
    picture.metadata = textOf(reader);
    return {};
}

class Writer {
public:
    explicit Writer(ByteSink& sink) : sink_(sink)
    {
        png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &reason, onError, onWarning);
        info = png != nullptr ? png_create_info_struct(png) : nullptr;
        if (info == nullptr) {
            png_destroy_write_struct(&png, nullptr);
            throw std::bad_alloc();
        }
    }
    Writer(Writer const&) = delete;
    Writer& operator=(Writer const&) = delete;
    ~Writer() { png_destroy_write_struct(&png, &info); }

    bool sinkFailed() const { return sinkFailed_; }

    void begin()
    {
        png_set_write_fn(
            png, this,
            [](png_structp caller, png_bytep bytes, std::size_t count) {
                static_cast<Writer*>(png_get_io_ptr(caller))->give(bytes, count);
            },
            [](png_structp) {});
        png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    }

    png_structp png = nullptr;
    png_infop info = nullptr;
    Reason reason = {};

private:
    void give(png_const_bytep bytes, std::size_t count)
    {
        if (sink_.write({reinterpret_cast<std::byte const*>(bytes), count}))
            return;
        sinkFailed_ = true;
        png_error(png, "the file cannot be written");
    }

    ByteSink& sink_;
    bool sinkFailed_ = false;
};

int colourTypeOf(int channels)
{
    return channels == 1   ? PNG_COLOR_TYPE_GRAY
           : channels == 3 ? PNG_COLOR_TYPE_RGB
                           : PNG_COLOR_TYPE_RGB_ALPHA;
}

// libpng reads the texts through pointers: the metadata must stay where it is.
std::vector<png_text> textsOf(Metadata& metadata)
{
    std::vector<png_text> texts;
    for (auto& [key, text] : metadata) {
        png_text entry = {};
        entry.compression = PNG_TEXT_COMPRESSION_NONE;
        entry.key = key.data();
        entry.text = text.data();
        entry.text_length = text.size();
        texts.push_back(entry);
    }
    return texts;
}

koUtil::Error writePng(Image const& image, WriteOptions const& options, ByteSink& sink, Misfits& misfits,
                       koUtil::Progress* progress)
{
    bool const bytes = image.pixelType() == PixelTypeId::Byte || image.pixelType() == PixelTypeId::Byte4;
    int const bits = options.bits != 0 ? options.bits : bytes ? 8 : 16;
    if (bits != 8 && bits != 16)
        return koUtil::Error(1, "PNG has 8 or 16 bits in a channel, not %d", bits);

    int const channels = koImage::channelCount(image.pixelType());
    auto const values = static_cast<std::size_t>(image.width()) * static_cast<std::size_t>(channels);
    std::vector<std::uint8_t> byteRow(bits == 8 ? values : 0);
    std::vector<std::uint16_t> wordRow(bits == 16 ? values : 0);

    Metadata metadata = options.metadata;
    std::erase_if(metadata, [](auto const& entry) { return entry.first == "software"; });
    metadata.emplace_back("Software", programName());
    std::vector<png_text> const texts = textsOf(metadata);

    Writer writer(sink);
    auto const writeAll = [&] {
        writer.begin();
        png_set_IHDR(writer.png, writer.info, static_cast<png_uint_32>(image.width()),
                     static_cast<png_uint_32>(image.height()), bits, colourTypeOf(channels),
                     PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        if (options.transfer == Transfer::Srgb || options.levels)
            png_set_sRGB(writer.png, writer.info, PNG_sRGB_INTENT_PERCEPTUAL);
        else
            png_set_gAMA_fixed(writer.png, writer.info, gammaOne);
        png_set_text(writer.png, writer.info, texts.data(), static_cast<int>(texts.size()));
        png_write_info(writer.png, writer.info);
        if (littleEndian)
            png_set_swap(writer.png);

        for (int row = 0; row < image.height(); ++row) {
            if (bits == 8) {
                rowAsBytes(image, row, channels, options.transfer, byteRow, misfits);
                png_write_row(writer.png, byteRow.data());
            } else {
                rowAsWords(image, row, channels, options.transfer, wordRow, misfits);
                png_write_row(writer.png, reinterpret_cast<png_const_bytep>(wordRow.data()));
            }
            if (row % 64 == 0)
                koUtil::setProgress(progress, double{1} * row / image.height());
        }
        png_write_end(writer.png, writer.info);
    };
    if (attempt(writer.png, writeAll) || writer.sinkFailed())
        return {};
    return koUtil::Error(1, "%s", writer.reason.data());
}

constexpr char const* extensions[] = {"png"};

}  // namespace

Codec const pngCodec = {PictureFormat::Png, extensions, begins, readPng, writePng};

}  // namespace koImageIO
