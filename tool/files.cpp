#include "tool/files.h"

#include "koBase/output_file.h"
#include "koImage/image/typed_image.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
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

template <class Value>
char const* nameOf(std::vector<std::pair<std::string, Value>> const& choices, Value value)
{
    for (auto const& choice : choices)
        if (choice.second == value)
            return choice.first.c_str();
    return "unknown";
}

/// What the messages call a file.
std::string shown(std::string const& file, char const* standardName)
{
    return file == "-" ? standardName : file;
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
    command.add_option("--layer", layer_, "Layer of an EXR file to read");
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
        command, "--format", formats, [this](PictureFormat format) { format_ = format; },
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
        if (output_ == "-" && !format_)
            throw CLI::ValidationError("OUT", "standard output needs --format");
        if (output_ == "-" && json_)
            throw CLI::ValidationError("--json", "standard output takes the picture already");
    });
}

Picture Files::read(std::string const& file, bool (*takes)(PixelTypeId))
{
    koUtil::Progress* const progress = work("reading " + shown(file, "standard input"));
    koImageIO::ReadOptions options;
    options.pixelType = type_;
    options.layer = layer_;
    options.transfer = raw_ ? koImageIO::Transfer::None : koImageIO::Transfer::Srgb;

    Picture picture;
    auto const readWith = [&](koImageIO::ReadOptions const& chosen) {
        koUtil::Error const error =
            file == "-" ? koImageIO::readPicture(standardInput(), "standard input", picture, chosen, progress)
                        : koImageIO::readPicture(file, picture, chosen, progress);
        if (error)
            throw Failure(error.message());
    };
    readWith(options);

    if (!takes(picture.image->pixelType()) && !type_) {
        auto const floats = floatsFor(*picture.image);
        options.pixelType = takes(floats) ? floats : PixelTypeId::Float3;
        readWith(options);
    }
    if (!takes(picture.image->pixelType()))
        throw Failure(shown(file, "standard input") + ": pixels of " + typeName(picture.image->pixelType()) +
                      " cannot be worked on so; --type chooses others");

    tellMisfits(shown(file, "standard input"), picture.misfits);
    return picture;
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
    koUtil::Progress* const progress = work("writing " + shown(file, "standard output"));
    // What speaks of the file that was read is not true of the one that is written.
    for (char const* const name : {"software", "exposure", "colorcorr", "scale"})
        options.metadata = without(std::move(options.metadata), name);

    Misfits misfits;
    koUtil::Error const error = koImageIO::writePicture(file, image, misfits, options, progress);
    endLine();
    if (error)
        throw Failure(error.message());
    tellMisfits(shown(file, "standard output"), misfits);
    return misfits;
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

std::vector<std::byte> const& Files::standardInput()
{
    if (standardInput_)
        return *standardInput_;

    std::vector<std::byte> bytes;
    std::array<std::byte, 65536> block;
    for (;;) {
        ssize_t const got = ::read(STDIN_FILENO, block.data(), block.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw Failure(std::string("standard input: ") + std::strerror(errno));
        if (got == 0)
            break;
        bytes.insert(bytes.end(), block.begin(), block.begin() + got);
    }
    return standardInput_.emplace(std::move(bytes));
}

char const* typeName(PixelTypeId type)
{
    return nameOf(types, type);
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
