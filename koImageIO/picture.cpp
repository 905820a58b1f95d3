#include "koImageIO/picture.h"

#include "koBase/output_file.h"
#include "koImage/image/factory.h"
#include "koImageIO/codec.h"
#include "koImageIO/rows.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
#include <string_view>
#include <system_error>

namespace koImageIO {

namespace {

using BytePixels = koImage::PixelList<unsigned char, koImage::Byte4>;

// In the order in which files are tried.
constexpr Codec const* codecs[] = {&exrCodec, &pngCodec, &hdrCodec, &pfmCodec, &pnmCodec};

koUtil::Error failure(std::string const& name, std::string const& reason)
{
    return koUtil::Error(1, "%s: %s", name.c_str(), reason.c_str());
}

std::string systemReason()
{
    return std::generic_category().message(errno);
}

// A file descriptor that is closed unless it is a standard stream.
class Descriptor {
public:
    explicit Descriptor(int file) : file_(file) {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor()
    {
        if (file_ > STDERR_FILENO)
            close(file_);
    }
    int get() const { return file_; }

private:
    int file_;
};

// The whole file. The buffer of a regular file has its size; that of a pipe grows with what comes, at most
// doubling.
koUtil::Error readWhole(std::string const& name, std::vector<std::byte>& bytes)
{
    Descriptor const file(name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0)
        return failure(name, "cannot be read: " + systemReason());

    // One byte more than the file has, to see that it ends there.
    constexpr std::size_t firstOfPipe = 1 << 16;
    bool const regular = S_ISREG(status.st_mode);
    bytes.resize(regular ? static_cast<std::size_t>(status.st_size) + 1 : firstOfPipe);
    std::size_t filled = 0;
    for (;;) {
        if (filled == bytes.size())
            bytes.resize(2 * bytes.size());
        ssize_t const got = read(file.get(), bytes.data() + filled, bytes.size() - filled);
        if (got == 0)
            break;
        if (got > 0)
            filled += static_cast<std::size_t>(got);
        else if (errno != EINTR)
            return failure(name, "cannot be read: " + systemReason());
    }
    bytes.resize(filled);
    return {};
}

std::string_view extensionOf(std::string_view name)
{
    std::size_t const dot = name.rfind('.');
    std::size_t const slash = name.rfind('/');
    bool const has = dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash);
    return has ? name.substr(dot + 1) : std::string_view();
}

bool sameExtension(std::string_view a, std::string_view b)
{
    auto const lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](char x, char y) { return lower(x) == lower(y); });
}

Codec const* codecForWriting(std::string_view name, std::optional<PictureFormat> format)
{
    for (Codec const* codec : codecs) {
        if (format) {
            if (codec->format == *format)
                return codec;
            continue;
        }
        for (std::string_view const extension : codec->extensions) {
            if (sameExtension(extension, extensionOf(name)))
                return codec;
        }
    }
    return nullptr;
}

std::string knownExtensions()
{
    std::string known;
    for (Codec const* codec : codecs) {
        for (std::string_view const extension : codec->extensions)
            known.append(known.empty() ? "." : ", .").append(extension);
    }
    return known;
}

koUtil::Error readBytes(std::span<std::byte const> file, std::string const& name, Picture& picture,
                        ReadOptions const& options, koUtil::Progress* progress)
{
    if (options.pixelType && !PicturePixels::contains(*options.pixelType))
        return failure(name, "pictures are not read as this pixel type");
    auto const codec =
        std::find_if(std::begin(codecs), std::end(codecs), [&](Codec const* c) { return c->begins(file); });
    if (codec == std::end(codecs))
        return errorAt(name, 0, "not a picture of a known format");

    Picture read;
    read.format = (*codec)->format;
    if (koUtil::Error error = (*codec)->read(file, name, options, read, progress))
        return error;
    if (options.pixelType) {
        // What the file says of its levels holds for bytes that were not made light yet.
        bool const linear = read.transfer == Transfer::None && BytePixels::contains(read.image->pixelType());
        convertPicture(read.image, *options.pixelType, linear ? Transfer::None : options.transfer,
                       read.misfits);
    }
    picture = std::move(read);
    koUtil::setProgress(progress, 1.0);
    return {};
}

class FileSink : public ByteSink {
public:
    explicit FileSink(koOS::OutputFile& file) : file_(file) {}
    bool write(std::span<std::byte const> bytes) noexcept override { return file_.write(bytes); }

private:
    koOS::OutputFile& file_;
};

class StandardOutput : public ByteSink {
public:
    bool write(std::span<std::byte const> bytes) noexcept override
    {
        if (reason_ == 0)
            reason_ = koOS::writeAll(STDOUT_FILENO, bytes);
        return reason_ == 0;
    }

    koUtil::Error result() const
    {
        return reason_ == 0 ? koUtil::Error()
                            : failure("-", "cannot be written: " + std::generic_category().message(reason_));
    }

private:
    int reason_ = 0;
};

koUtil::Error writeTo(koOS::Filename const& name, Codec const& codec, koImage::Image const& image,
                      WriteOptions const& options, Misfits& misfits, koUtil::Progress* progress)
{
    if (name.multibyte() == "-") {
        StandardOutput out;
        if (koUtil::Error error = codec.write(image, options, out, misfits, progress))
            return failure("-", error.message());
        return out.result();
    }
    koOS::OutputFile file(name);
    FileSink sink(file);
    if (koUtil::Error error = codec.write(image, options, sink, misfits, progress))
        return failure(name.multibyte(), error.message());
    return file.commit();
}

}  // namespace

koUtil::Error errorAt(std::string const& name, std::size_t byte, std::string const& reason)
{
    return koUtil::Error(1, "%s: byte %zu: %s", name.c_str(), byte, reason.c_str());
}

std::string programName()
{
    return "koImage " KO_VERSION;
}

koUtil::Error makePicture(std::string const& name, std::size_t byte, koImage::PixelTypeId type,
                          std::int64_t width, std::int64_t height, ko::Reference<koImage::Image>& image)
{
    constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
    if (width < 1 || height < 1 || width > most || height > most / width)
        return errorAt(name, byte,
                       "a size of " + std::to_string(width) + " x " + std::to_string(height) +
                           " pixels is not supported");
    ko::Reference<koImage::Image> made(koImage::imageCreateByType(type));
    made->resize(static_cast<int>(width), static_cast<int>(height));
    image = std::move(made);
    return {};
}

koUtil::Error readPicture(std::span<std::byte const> file, std::string const& name, Picture& picture,
                          ReadOptions const& options, koUtil::Progress* progress)
{
    try {
        return readBytes(file, name, picture, options, progress);
    } catch (std::bad_alloc const&) {
        return failure(name, "there is not enough memory for its pixels");
    }
}

koUtil::Error readPicture(koOS::Filename const& name, Picture& picture, ReadOptions const& options,
                          koUtil::Progress* progress)
{
    try {
        std::vector<std::byte> bytes;
        if (koUtil::Error error = readWhole(name.multibyte(), bytes))
            return error;
        return readBytes(bytes, name.multibyte(), picture, options, progress);
    } catch (std::bad_alloc const&) {
        return failure(name.multibyte(), "there is not enough memory to read it");
    }
}

koUtil::Error writePicture(koOS::Filename const& name, koImage::Image const& image, Misfits& misfits,
                           WriteOptions const& options, koUtil::Progress* progress)
{
    std::string const& file = name.multibyte();
    Codec const* const codec = codecForWriting(file, options.format);
    if (codec == nullptr)
        return failure(file,
                       "the format to write cannot be told from the name; known are " + knownExtensions());
    if (!PicturePixels::contains(image.pixelType()))
        return failure(file, "images of this pixel type cannot be written as pictures");
    if (image.width() < 1 || image.height() < 1 || image.data() == nullptr ||
        std::int64_t{image.width()} * image.height() != image.pixelCount())
        return failure(file, "an image without pixels cannot be written");

    try {
        WriteOptions chosen = options;
        if (chosen.levels)
            chosen.transfer = Transfer::None;
        Misfits found;
        koUtil::Error error = writeTo(name, *codec, image, chosen, found, progress);
        if (!error) {
            misfits = found;
            koUtil::setProgress(progress, 1.0);
        }
        return error;
    } catch (std::bad_alloc const&) {
        return failure(file, "there is not enough memory to write it");
    }
}

}  // namespace koImageIO
