#include "tool/files.h"

#include "koBase/output_file.h"
#include "koImage/image/typed_image.h"
#include "koImage/packet/image_packet.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <span>

#include <unistd.h>

namespace koTool {

using koImage::PixelTypeId;
using koImageIO::Misfits;
using koImageIO::Picture;
using koImageIO::PictureFormat;

namespace {

std::vector<std::pair<std::string, PixelTypeId>> const types = {
    {"Byte", PixelTypeId::Byte},   {"Byte4", PixelTypeId::Byte4},   {"Half4", PixelTypeId::Half4},
    {"Float", PixelTypeId::Float}, {"Float3", PixelTypeId::Float3}, {"Float4", PixelTypeId::Float4}};

std::vector<std::pair<std::string, PictureFormat>> const formats = {{"exr", PictureFormat::Exr},
                                                                    {"hdr", PictureFormat::Hdr},
                                                                    {"png", PictureFormat::Png},
                                                                    {"pfm", PictureFormat::Pfm},
                                                                    {"pnm", PictureFormat::Pnm}};

// Of images in packet files alone.
std::vector<std::pair<std::string, PixelTypeId>> const otherTypes = {{"UInt", PixelTypeId::UInt},
                                                                     {"Int4", PixelTypeId::Int4},
                                                                     {"Double3", PixelTypeId::Double3},
                                                                     {"Harmonics", PixelTypeId::Harmonics}};

// In options; none is a packet file.
std::vector<std::pair<std::string, std::optional<PictureFormat>>> formatChoices()
{
    std::vector<std::pair<std::string, std::optional<PictureFormat>>> choices(formats.begin(), formats.end());
    choices.emplace_back("packets", std::nullopt);
    return choices;
}

template <class Value>
char const* nameOf(std::vector<std::pair<std::string, Value>> const& choices, Value value)
{
    for (auto const& choice : choices)
        if (choice.second == value)
            return choice.first.c_str();
    return "unknown";
}

std::string outputName(std::string const& file)
{
    return file == "-" ? "standard output" : file;
}

/// Whether a file can be read but once, as a pipe. One that is not there is none of them.
bool isStreamed(std::string const& file)
{
    std::error_code unknown;
    auto const kind = std::filesystem::status(file, unknown).type();
    return file == "-" || kind == std::filesystem::file_type::fifo ||
           kind == std::filesystem::file_type::character;
}

template <class Pixel>
bool opaque(koImage::Image const& image, decltype(Pixel::a) full)
{
    auto const pixels = koImage::pixelsOf<Pixel>(image);
    return std::all_of(pixels.begin(), pixels.end(), [full](Pixel const& p) { return p.a == full; });
}

}  // namespace

void Files::addQuiet(CLI::App& command)
{
    command.add_flag("-q,--quiet", quiet_, "No remarks, no progress; errors are told all the same");
}

void Files::addRaw(CLI::App& command)
{
    if (command.get_option_no_throw("--raw") == nullptr)
        command.add_flag("--raw", raw_,
                         "PNG, PPM and PGM without their curve (sRGB) where bytes meet floats: n / 255");
}

void Files::addInput(CLI::App& command)
{
    addChoice(
        command, "--type", types, [this](PixelTypeId type) { type_ = type; },
        "Pixels to read the picture as; without it, what the file holds");
    addSource(command);
}

void Files::addSource(CLI::App& command)
{
    addLayer(command);
    addRaw(command);
}

void Files::addLayer(CLI::App& command)
{
    command.add_option("--layer", layer_, "Layer of an EXR file, or image of a packet file, to read");
}

void Files::addOutput(CLI::App& command, std::string const& names)
{
    addTarget(command, names);
    command.add_flag("--json", json_, "Tell on standard output what was written, as JSON");
}

void Files::addTarget(CLI::App& command, std::string const& names)
{
    command.add_option(names, output_, "The file to write, - for standard output")->required();
    addChoice(
        command, "--format", formatChoices(),
        [this](std::optional<PictureFormat> format) {
            format_ = format;
            packets_ = !format;
        },
        "Format to write; without it, by the extension of OUT");
    command.add_option("--bits", bits_, "Bits of a channel: 8 or 16 for PNG, PPM and PGM; 16 or 32 for EXR")
        ->check(CLI::IsMember({8, 16, 32}));
    command
        .add_option("--compression", compression_,
                    "Of EXR: none, rle, zips, zip, piz, pxr24, b44, b44a, dwaa, dwab")
        ->check(CLI::IsMember({"none", "rle", "zips", "zip", "piz", "pxr24", "b44", "b44a", "dwaa", "dwab"}));
    addRaw(command);
    addQuiet(command);

    // Before the work begins, not after it.
    command.parse_complete_callback([this] {
        if (output_ == "-" && !format_ && !packets_)
            throw CLI::ValidationError("OUT", "standard output needs --format");
        if (output_ == "-" && json_)
            throw CLI::ValidationError("--json", "standard output takes the picture already");
    });
}

std::vector<PacketImage> Files::chosen(PacketFile const& packets, std::string const& file) const
{
    return layer_.empty() ? packets.images : std::vector{imageCalled(packets, layer_, inputName(file))};
}

// Reads by readWith(options) what the work takes, once or twice.
template <class ReadWith>
Picture Files::readAccepted(std::string const& file, bool (*takes)(PixelTypeId), ReadWith const& readWith)
{
    koImageIO::ReadOptions options;
    options.pixelType = type_;
    options.layer = layer_;
    options.transfer = raw_ ? koImageIO::Transfer::None : koImageIO::Transfer::Srgb;
    Picture picture = readWith(options);

    if (!takes(picture.image->pixelType()) && !type_) {
        auto const floats = floatsFor(*picture.image);
        options.pixelType = takes(floats) ? floats : PixelTypeId::Float3;
        picture = readWith(options);
    }
    if (!takes(picture.image->pixelType()))
        throw Failure(inputName(file) + ": pixels of " + typeName(picture.image->pixelType()) +
                      " cannot be worked on so; --type chooses others");

    tellMisfits(inputName(file), picture.misfits);
    return picture;
}

Picture Files::read(std::string const& file, bool (*takes)(PixelTypeId))
{
    if (auto const packets = readPackets(file))
        return read(imageCalled(*packets, layer_, inputName(file)), file, takes);

    koUtil::Progress* const progress = work("reading " + inputName(file));
    return readAccepted(file, takes, [&](koImageIO::ReadOptions const& options) {
        Picture picture;
        koUtil::Error const error =
            isStreamed(file)
                ? koImageIO::readPicture(streamed(file), inputName(file), picture, options, progress)
                : koImageIO::readPicture(file, picture, options, progress);
        if (error)
            throw Failure(error.message());
        return picture;
    });
}

Picture Files::read(PacketImage const& stored, std::string const& file, bool (*takes)(PixelTypeId))
{
    return readAccepted(file, takes, [&](koImageIO::ReadOptions const& options) {
        return pictureOf(stored, options, inputName(file));
    });
}

std::unique_ptr<koPacketFile::ByteSource> Files::source(std::string const& file)
{
    if (isStreamed(file))
        return std::make_unique<koPacketFile::MemorySource>(streamed(file));
    auto opened = std::make_unique<koPacketFile::FileSource>(file);
    if (!opened->isOpen())
        throw Failure(file + ": cannot be read: " + std::strerror(errno));
    return opened;
}

std::optional<PacketFile> Files::readPackets(std::string const& file)
{
    work("reading " + inputName(file));
    if (isStreamed(file)) {
        if (!beginsAsPacketFile(streamed(file)))
            return {};
    } else {
        std::array<char, 8> beginning{};
        std::ifstream(file, std::ios::binary).read(beginning.data(), beginning.size());
        if (!beginsAsPacketFile(std::as_bytes(std::span(beginning))))
            return {};
    }
    auto packets = readPacketFile(*source(file));
    packets.demandWhole(inputName(file));
    return packets;
}

Picture Files::readAs(std::string const& file, PixelTypeId type)
{
    auto const asked = std::exchange(type_, type);
    Picture picture = read(file);
    type_ = asked;
    return picture;
}

Picture Files::readLevels(std::string const& file)
{
    auto const raw = std::exchange(raw_, true);
    auto const asked = std::exchange(type_, std::nullopt);
    Picture picture = read(file);
    raw_ = raw;
    type_ = asked;
    return picture;
}

void Files::write(koImage::Image const& image, koImageIO::Metadata const& metadata, bool levels)
{
    koImageIO::WriteOptions options;
    options.format = format_;
    options.bits = bits_;
    options.transfer = raw_ ? koImageIO::Transfer::None : koImageIO::Transfer::Srgb;
    options.levels = levels;
    options.compression = compression_;
    options.metadata = metadata;
    Misfits const misfits = writePicture(output_, image, std::move(options));

    if (json_) {
        nlohmann::ordered_json const report = {
            {"file", output_},
            {"width", image.width()},
            {"height", image.height()},
            {"type", typeName(image.pixelType())},
            {"clamped",
             {{"overflow", misfits.overflow}, {"negative", misfits.negative}, {"nan", misfits.nan}}}};
        std::cout << jsonText(report) << '\n';
    }
}

void Files::save(std::string const& file, koImage::Image const& image, koImageIO::WriteOptions options)
{
    writePicture(file, image, std::move(options));
}

void Files::saveText(std::string const& file, std::string const& text)
{
    if (file == "-") {
        endLine();
        std::cout << text;
        return;
    }
    work("writing " + file);
    koOS::OutputFile output(file);
    output.write(std::as_bytes(std::span(text)));
    koUtil::Error const error = output.commit();
    endLine();
    if (error)
        throw Failure(error.message());
}

Misfits Files::writePicture(std::string const& file, koImage::Image const& image,
                            koImageIO::WriteOptions options)
{
    koUtil::Progress* const progress = work("writing " + outputName(file));
    // What speaks of the file that was read is not true of the one that is written.
    for (char const* const name : {"software", "exposure", "colorcorr", "scale"})
        options.metadata = without(std::move(options.metadata), name);

    Misfits misfits;
    if (goesIntoPackets(file, options)) {
        if (options.bits != 0 || !options.compression.empty())
            throw Failure(outputName(file) +
                          ": packet files keep pixels as they are: --bits and --compression mean nothing");
        writePacketFile(file, [&](ioWriteContext& out) { koImage::packetFile::writeImage(out, &image); });
        endLine();
        return misfits;
    }
    koUtil::Error const error = koImageIO::writePicture(file, image, misfits, options, progress);
    endLine();
    if (error)
        throw Failure(error.message());
    tellMisfits(outputName(file), misfits);
    return misfits;
}

bool Files::goesIntoPackets(std::string const& file, koImageIO::WriteOptions const& options) const
{
    return packets_ || (!options.format && namedAsPacketFile(file));
}

koUtil::Progress* Files::work(std::string step)
{
    if (quiet_)
        return nullptr;
    if (!line_)
        line_ = std::make_unique<ProgressLine>();
    line_->begin(printable(std::move(step)));
    return line_.get();
}

void Files::remark(std::string const& text)
{
    if (quiet_)
        return;
    endLine();
    std::cerr << "koimage: " << text << '\n';
}

void Files::endLine()
{
    if (line_)
        line_->hide();
}

void Files::tellMisfits(std::string const& file, Misfits const& misfits)
{
    std::string text;
    for (auto const& [count, what] : {std::pair{misfits.overflow, " too large"},
                                      {misfits.negative, " too small"},
                                      {misfits.nan, " not a number"}})
        if (count > 0)
            text += (text.empty() ? "" : ", ") + std::to_string(count) + what;
    if (!text.empty())
        remark(file + ": values clamped: " + text);
}

// The bytes of a file that is streamed.
std::vector<std::byte> const& Files::streamed(std::string const& file)
{
    auto const known = streams_.find(file);
    if (known != streams_.end())
        return known->second;

    std::optional<koPacketFile::FileSource> named;
    if (file != "-")
        named.emplace(file);
    std::vector<std::byte> bytes;
    std::array<std::byte, 65536> block;
    for (;;) {
        auto const got = named ? named->read(block) : ::read(STDIN_FILENO, block.data(), block.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw Failure(inputName(file) + ": cannot be read: " + std::strerror(errno));
        if (got == 0)
            break;
        bytes.insert(bytes.end(), block.begin(), block.begin() + got);
    }
    return streams_[file] = std::move(bytes);
}

std::string inputName(std::string const& file)
{
    return file == "-" ? "standard input" : file;
}

char const* typeName(PixelTypeId type)
{
    bool const isOther = std::any_of(otherTypes.begin(), otherTypes.end(),
                                     [type](auto const& other) { return other.second == type; });
    return nameOf(isOther ? otherTypes : types, type);
}

char const* formatName(PictureFormat format)
{
    return nameOf(formats, format);
}

CLI::Validator numberBetween(double least, double most)
{
    auto const text = [](double number) {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%g", number);
        return std::string(digits);
    };
    std::string const range = "from " + text(least) + " to " + text(most);
    auto const check = [=](std::string const& given) {
        double number = 0.0;
        bool const fits = CLI::detail::lexical_cast(given, number) && number >= least && number <= most;
        return fits ? std::string() : "takes a number " + range + ", not " + given;
    };
    return {check, range};
}

PixelTypeId floatsFor(koImage::Image const& image)
{
    auto const colours = [](bool withoutAlpha) {
        return withoutAlpha ? PixelTypeId::Float3 : PixelTypeId::Float4;
    };
    switch (image.pixelType()) {
    case PixelTypeId::Byte:
        return PixelTypeId::Float;
    case PixelTypeId::Byte4:
        return colours(opaque<koImage::Byte4>(image, 255));
    case PixelTypeId::Half4:
        return colours(opaque<koImage::Half4>(image, 1.0f));
    default:
        return image.pixelType();
    }
}

std::string jsonText(nlohmann::ordered_json const& json, int indent)
{
    // File names and metadata may be anything, JSON is UTF-8.
    return json.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void requireSameSize(std::string const& file, koImage::Image const& image, std::string const& otherFile,
                     koImage::Image const& other)
{
    auto const size = [](koImage::Image const& of) {
        return std::to_string(of.width()) + " x " + std::to_string(of.height());
    };
    if (image.width() != other.width() || image.height() != other.height())
        throw Failure(file + ": is " + size(image) + ", but " + otherFile + " is " + size(other));
}

std::string printable(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 32 || c == 127; }, '?');
    return text;
}

koImageIO::Metadata without(koImageIO::Metadata metadata, std::string const& name)
{
    auto const lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    auto const same = [&](std::string const& other) {
        return std::equal(other.begin(), other.end(), name.begin(), name.end(),
                          [&](char a, char b) { return lower(a) == lower(b); });
    };
    std::erase_if(metadata, [&](auto const& entry) { return same(entry.first); });
    return metadata;
}

}  // namespace koTool
