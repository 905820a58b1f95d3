// Radiance HDR: three mantissas of a byte each and one exponent for a pixel [1].
//
//   value        (mantissa + 0.5) 2^(exponent - 136), the middle of what rounding down left open when it was
//                written: so [1] and [2] define it. Readers that leave out the half see every picture a
//                little too dark (a quarter of a percent on average). An exponent of 0 is black. Every value
//                of the format is a float, and every pixel with a mantissa of 128 or more is written as it
//                was read.
//   exposure     EXPOSURE and COLORCORR lines, all of them together, tell what the pixels were multiplied by.
//                They are divided by it, in double precision and rounded once. Lines that begin with white
//                space belong to the pictures that this one was made from, and are passed over.
//   XYZE         becomes RGB of the format's own primaries and white [3], so that a picture is the same light
//                in both forms. Colours outside of RGB keep their negative channels.
//   PRIMARIES    is reported; nothing is converted by it.
//   orientation  all eight; the picture is turned upright.
//   scanlines    flat, with repeated pixels, or with runs of each channel: each tells for itself.
//   written      RGBE, the top row first, with runs where the format has them (8 to 32767 columns). Alpha is
//                left out. Metadata become variables, their names in capitals, letters and digits alone; but
//                never EXPOSURE, COLORCORR and FORMAT, on which the values rely.
//
// Sources
//   [1] G. Ward. Real Pixels. Graphics Gems II, 1991.
//   [2] G. Ward. High Dynamic Range Image Encodings.
//   [3] G. Ward Larson, R. Shakespeare. Rendering with Radiance, 1998.

#include "koImageIO/codec.h"
#include "koImageIO/file_cursor.h"
#include "koImageIO/rows.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace koImageIO {
namespace {

using koImage::Float3;
using koImage::Image;
using koImage::PixelTypeId;
using koUtil::Error;

constexpr std::array<std::string_view, 2> magicWords = {"#?RADIANCE", "#?RGBE"};

bool begins(std::span<std::byte const> file)
{
    std::string_view const text(reinterpret_cast<char const*>(file.data()), file.size());
    return std::ranges::any_of(magicWords, [&](std::string_view word) { return text.starts_with(word); });
}

// --- The header

/// The order in which scanlines, or the pixels of one, follow each other.
struct Axis {
    char name = 0;       ///< X or Y
    bool ahead = false;  ///< from the left to the right, or from the top down
    int size = 0;

    int at(int i) const { return ahead ? i : size - 1 - i; }
};

constexpr char const* blanks = " \t";

struct Header {
    Axis scanlines;
    Axis pixels;
    bool xyz = false;
    std::array<double, 3> multiplier = {1, 1, 1};  ///< what the channels of the file were multiplied by
    Metadata metadata;

    bool byColumns() const { return scanlines.name == 'X'; }
    int width() const { return byColumns() ? scanlines.size : pixels.size; }
    int height() const { return byColumns() ? pixels.size : scanlines.size; }
};

// Of ASCII alone, whatever the locale.
char lowerCase(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

char upperCase(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

std::string_view trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

/// Takes a word off the front; empty where there is none.
std::string_view takeWord(std::string_view& text)
{
    text = trimmed(text);
    std::string_view const word = text.substr(0, text.find_first_of(blanks));
    text.remove_prefix(word.size());
    return word;
}

/// Multiplies each factor by one number of the text. All are positive, the products as well.
bool multiply(std::span<double> factors, std::string_view text)
{
    for (double& factor : factors) {
        factor *= numberOf<double>(takeWord(text)).value_or(0);
        // Within the floats, so that no quotient leaves the doubles.
        if (!(factor >= double{FLT_MIN} && factor <= double{FLT_MAX}))
            return false;
    }
    return trimmed(text).empty();
}

std::string textOf(std::span<double const> numbers)
{
    std::string text;
    for (double const number : numbers) {
        std::array<char, 32> digits;
        auto const [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
        text += text.empty() ? "" : " ";
        text.append(digits.data(), end);
    }
    return text;
}

std::optional<Axis> takeAxis(std::string_view& text)
{
    std::string_view const name = takeWord(text);
    if (name != "+X" && name != "-X" && name != "+Y" && name != "-Y")
        return std::nullopt;
    int const size = numberOf<int>(takeWord(text)).value_or(0);
    if (size < 1)
        return std::nullopt;
    return Axis{name[1], name == "+X" || name == "-Y", size};
}

Error readHeader(FileCursor& file, Header& header)
{
    double exposure = 1;
    std::array<double, 3> correction = {1, 1, 1};

    // The first line is the magic word: it passes as a comment.
    for (;;) {
        if (file.left() == 0)
            return file.error("the header has no end");
        std::string_view const line = file.takeLine();
        if (line.empty())
            break;

        std::size_t const equals = line.find('=');
        if (line[0] == '#' || line[0] == ' ' || line[0] == '\t' || equals == std::string_view::npos)
            continue;
        std::string_view const name = line.substr(0, equals);
        std::string_view const value = trimmed(line.substr(equals + 1));
        if (name == "FORMAT") {
            header.xyz = value == "32-bit_rle_xyze";
            if (!header.xyz && value != "32-bit_rle_rgbe")
                return file.errorOfText("the format is neither 32-bit_rle_rgbe nor 32-bit_rle_xyze");
        } else if (name == "EXPOSURE") {
            if (!multiply({&exposure, 1}, value))
                return file.errorOfText("the exposure is not a positive number");
        } else if (name == "COLORCORR") {
            if (!multiply(correction, value))
                return file.errorOfText("the colour correction is not three positive numbers");
        } else {
            std::string lower(name);
            std::ranges::transform(lower, lower.begin(), lowerCase);
            header.metadata.emplace_back(std::move(lower), value);
        }
    }

    std::string_view line = file.takeLine();
    auto const scanlines = takeAxis(line);
    auto const pixels = takeAxis(line);
    if (!scanlines || !pixels || scanlines->name == pixels->name || !trimmed(line).empty())
        return file.errorOfText("the size is not of the form -Y <height> +X <width>");
    header.scanlines = *scanlines;
    header.pixels = *pixels;

    if (exposure != 1)
        header.metadata.emplace_back("exposure", textOf({&exposure, 1}));
    if (correction != std::array<double, 3>{1, 1, 1})
        header.metadata.emplace_back("colorcorr", textOf(correction));
    for (std::size_t channel = 0; channel < 3; ++channel)
        header.multiplier[channel] = exposure * correction[channel];
    return {};
}

/// Why a picture of that size cannot stand in so many bytes, or null.
///
/// Repetitions of one pixel may follow each other, each worth 256 times the one before: a scanline of any
/// length fits into 20 bytes. What such a file asks for is bounded twice. A scanline takes at least its
/// first pixel, and as many repetitions as its length needs. And where the picture has more than 32 pixels
/// for each byte, which is more than runs and single repetitions can give, it ends at 2^22 pixels: room for
/// plain pictures from the time of that form.
char const* tooLarge(Header const& header, std::size_t bytes)
{
    std::uint64_t fewest = 4;
    for (std::uint64_t reach = 1; reach < static_cast<std::uint64_t>(header.pixels.size); reach *= 256)
        fewest += 4;
    if (static_cast<std::uint64_t>(header.scanlines.size) > bytes / fewest)
        return "the file is too short for a picture of this size";

    std::uint64_t const pixels =
        static_cast<std::uint64_t>(header.width()) * static_cast<std::uint64_t>(header.height());
    constexpr std::uint64_t alwaysAllowed = 1 << 22;
    if (pixels > std::numeric_limits<int>::max() ||
        pixels > std::max(alwaysAllowed, std::uint64_t{bytes} * 32))
        return "the picture is too large for its file";
    return nullptr;
}

// --- Scanlines

/// One scanline, a plane of bytes for each mantissa and one for the exponents.
class Planes {
public:
    explicit Planes(int length) : length_(static_cast<std::size_t>(length)), bytes_(length_ * 4) {}

    std::size_t length() const { return length_; }
    std::span<unsigned char> operator[](std::size_t plane)
    {
        return std::span(bytes_).subspan(plane * length_, length_);
    }
    std::span<unsigned char const> operator[](std::size_t plane) const
    {
        return std::span(bytes_).subspan(plane * length_, length_);
    }

private:
    std::size_t length_;
    std::vector<unsigned char> bytes_;
};

constexpr char const* tooShort = "the file ends within a scanline";
constexpr char const* tooLong = "a run is longer than its scanline";

/// Four planes, each as runs of at most 127 equal bytes and stretches of at most 128 others.
char const* readRuns(FileCursor& file, Planes& planes)
{
    for (std::size_t plane = 0; plane < 4; ++plane) {
        std::span<unsigned char> left = planes[plane];
        while (!left.empty()) {
            if (file.left() < 2)
                return tooShort;
            std::size_t const code = *file.take(1);
            bool const run = code > 128;
            std::size_t const count = run ? code - 128 : code;
            if (count == 0)
                return "a stretch has no pixels";
            if (count > left.size())
                return tooLong;
            if (run) {
                std::memset(left.data(), *file.take(1), count);
            } else {
                if (count > file.left())
                    return tooShort;
                std::memcpy(left.data(), file.take(count), count);
            }
            left = left.subspan(count);
        }
    }
    return nullptr;
}

/// Pixel after pixel. Mantissas of 1, 1, 1 repeat the pixel before as often as the exponent says; a second
/// such repetition counts 256 times as much, and so on.
char const* readPixels(FileCursor& file, Planes& planes)
{
    int shift = 0;
    for (std::size_t x = 0; x < planes.length();) {
        if (file.left() < 4)
            return tooShort;
        unsigned char const* const pixel = file.take(4);
        if (pixel[0] != 1 || pixel[1] != 1 || pixel[2] != 1) {
            for (std::size_t plane = 0; plane < 4; ++plane)
                planes[plane][x] = pixel[plane];
            ++x;
            shift = 0;
            continue;
        }

        if (x == 0)
            return "a scanline begins with a repetition";
        std::uint64_t const count = std::uint64_t{pixel[3]} << shift;
        if (count > planes.length() - x)
            return tooLong;
        for (std::size_t plane = 0; plane < 4; ++plane)
            std::memset(planes[plane].data() + x, planes[plane][x - 1], count);
        x += count;
        shift = std::min(shift + 8, 32);  // beyond any scanline already
    }
    return nullptr;
}

constexpr bool mayHaveRuns(std::size_t length)
{
    return length >= 8 && length < 32768;
}

/// Reads a scanline. Returns what is wrong with it, or null.
char const* readScanline(FileCursor& file, Planes& planes)
{
    std::string_view const next = file.rest().substr(0, 4);
    bool const runs = mayHaveRuns(planes.length()) && next.size() == 4 && next[0] == 2 && next[1] == 2 &&
                      static_cast<unsigned char>(next[2]) < 128;
    if (!runs)
        return readPixels(file, planes);

    unsigned char const* const start = file.take(4);
    if (std::size_t{start[2]} * 256 + start[3] != planes.length())
        return "a scanline has another length than the picture";
    return readRuns(file, planes);
}

// --- Pixels

/// 2^(e - 136) for each exponent, and 0 for black.
constexpr std::array<float, 256> steps = [] {
    std::array<float, 256> table{};
    float step = 0x1p-135f;
    for (std::size_t e = 1; e < table.size(); ++e, step *= 2)
        table[e] = step;
    return table;
}();

/// The light of a scanline whose channels are red, green and blue, multiplied by nothing. Exact.
void toLight(Planes const& planes, std::span<Float3> light)
{
    auto const [r, g, b, e] =
        std::array{planes[0].data(), planes[1].data(), planes[2].data(), planes[3].data()};
    for (std::size_t x = 0; x < light.size(); ++x) {
        float const step = steps[e[x]];
        light[x] = {(static_cast<float>(r[x]) + 0.5f) * step, (static_cast<float>(g[x]) + 0.5f) * step,
                    (static_cast<float>(b[x]) + 0.5f) * step};
    }
}

float narrowed(double value, Misfits& misfits)
{
    if (value > double{FLT_MAX}) {
        ++misfits.overflow;
        return FLT_MAX;
    }
    if (value < -double{FLT_MAX}) {
        ++misfits.negative;
        return -FLT_MAX;
    }
    return static_cast<float>(value);
}

/// X, Y and Z of equal energy to red, green and blue with the primaries (0.64 0.33), (0.29 0.6), (0.15 0.06):
/// each row sums to 1.
constexpr double rgbOfXyz[3][3] = {{2337.0 / 911, -1063.0 / 911, -363.0 / 911},
                                   {-2589.0 / 2533, 5011.0 / 2533, 111.0 / 2533},
                                   {183.0 / 2449, -617.0 / 2449, 93.0 / 79}};

/// The light of any scanline: the channels of the file are divided, then turned into red, green and blue.
void toLight(Planes const& planes, Header const& header, std::span<Float3> light, Misfits& misfits)
{
    for (std::size_t x = 0; x < light.size(); ++x) {
        double const step = steps[planes[3][x]];
        std::array<double, 3> c;
        for (std::size_t i = 0; i < 3; ++i)
            c[i] = (planes[i][x] + 0.5) * step / header.multiplier[i];
        if (header.xyz) {
            auto const [X, Y, Z] = c;
            for (std::size_t i = 0; i < 3; ++i)
                c[i] = rgbOfXyz[i][0] * X + rgbOfXyz[i][1] * Y + rgbOfXyz[i][2] * Z;
        }
        light[x] = {narrowed(c[0], misfits), narrowed(c[1], misfits), narrowed(c[2], misfits)};
    }
}

/// The largest float below 2^127, where the format ends.
constexpr float largest = 0x1.FFFFFEp+126f;

/// What the format can hold of a channel.
float fitted(float value, Misfits& misfits)
{
    if (value >= 0 && value <= largest)
        return value;
    if (value > largest) {
        ++misfits.overflow;
        return largest;
    }
    ++(value < 0 ? misfits.negative : misfits.nan);
    return 0;
}

void fromLight(std::span<Float3 const> light, Planes& planes, Misfits& misfits)
{
    auto const [r, g, b, e] =
        std::array{planes[0].data(), planes[1].data(), planes[2].data(), planes[3].data()};
    for (std::size_t x = 0; x < light.size(); ++x) {
        float const red = fitted(light[x].r, misfits);
        float const green = fitted(light[x].g, misfits);
        float const blue = fitted(light[x].b, misfits);

        // The exponent of the largest channel brings it to 128 .. 255. As doubles, even the smallest floats
        // have their exponent in these bits, below a sign that -0 may have.
        double const most = std::abs(std::max(std::max(red, green), blue));
        int const exponent = static_cast<int>(std::bit_cast<std::uint64_t>(most) >> 52) - 1023 + 129;
        if (exponent < 1) {
            r[x] = g[x] = b[x] = e[x] = 0;
            continue;
        }
        double const scale = std::bit_cast<double>(static_cast<std::uint64_t>(1023 + 136 - exponent) << 52);
        r[x] = static_cast<unsigned char>(red * scale);
        g[x] = static_cast<unsigned char>(green * scale);
        b[x] = static_cast<unsigned char>(blue * scale);
        e[x] = static_cast<unsigned char>(exponent);
    }
}

Error read(std::span<std::byte const> bytes, std::string const& name, ReadOptions const&, Picture& picture,
           koUtil::Progress* progress)
{
    FileCursor file(bytes, name);
    Header header;
    if (Error error = readHeader(file, header))
        return error;
    if (char const* const reason = tooLarge(header, file.left()))
        return file.error(reason);
    if (Error error = makePicture(name, file.position(), PixelTypeId::Float3, header.width(), header.height(),
                                  picture.image))
        return error;
    Image& image = *picture.image;

    bool const exact = !header.xyz && header.multiplier == std::array<double, 3>{1, 1, 1};
    Planes planes(header.pixels.size);
    std::vector<Float3> column(header.byColumns() ? planes.length() : 0);
    for (int i = 0; i < header.scanlines.size; ++i) {
        koUtil::setProgress(progress, static_cast<double>(i) / header.scanlines.size);
        if (char const* const reason = readScanline(file, planes))
            return file.error(reason);

        std::span<Float3> const light =
            column.empty() ? pictureRow<Float3>(image, header.scanlines.at(i)) : std::span(column);
        if (exact)
            toLight(planes, light);
        else
            toLight(planes, header, light, picture.misfits);
        if (!header.pixels.ahead)
            std::ranges::reverse(light);

        auto const x = static_cast<std::size_t>(header.scanlines.at(i));
        for (std::size_t row = 0; row < column.size(); ++row)
            pictureRow<Float3>(image, static_cast<int>(row))[x] = column[row];
    }
    picture.metadata = std::move(header.metadata);
    return {};
}

// --- Writing

/// A line of the header; empty where the name is one that the values rely on.
std::string headerLine(std::string_view name, std::string_view value)
{
    std::string variable(name);
    for (char& c : variable) {
        c = upperCase(c);
        if (!(c >= 'A' && c <= 'Z') && !(c >= '0' && c <= '9'))
            c = '_';
    }
    if (variable == "EXPOSURE" || variable == "COLORCORR" || variable == "FORMAT")
        return "";

    std::string text(value);
    std::ranges::replace(text, '\n', ' ');
    return variable + '=' + text + '\n';
}

std::string headerText(Image const& image, Metadata const& metadata)
{
    std::string text = "#?RADIANCE\n" + headerLine("software", programName());
    for (auto const& [name, value] : metadata)
        text += headerLine(name, value);
    return text + "FORMAT=32-bit_rle_rgbe\n\n-Y " + std::to_string(image.height()) + " +X " +
           std::to_string(image.width()) + '\n';
}

/// Where the next run worth its two bytes begins, or the end. Four equal bytes are: three would gain nothing
/// where others surround them.
std::size_t nextRun(std::span<unsigned char const> values, std::size_t at)
{
    // Two neighbours that differ rule out all runs that would hold both: three places at once from behind.
    while (at + 3 < values.size()) {
        if (values[at + 2] != values[at + 3])
            at += 3;
        else if (values[at + 1] != values[at + 2])
            at += 2;
        else if (values[at] != values[at + 1])
            at += 1;
        else
            return at;
    }
    return values.size();
}

void appendRuns(std::span<unsigned char const> values, std::vector<unsigned char>& line)
{
    for (std::size_t at = 0; at < values.size();) {
        // What stands before the next run goes out as it is.
        std::size_t const run = nextRun(values, at);
        while (at < run) {
            std::size_t const count = std::min<std::size_t>(run - at, 128);
            line.push_back(static_cast<unsigned char>(count));
            line.insert(line.end(), values.data() + at, values.data() + at + count);
            at += count;
        }
        std::size_t const most = std::min(values.size(), run + 127);
        while (at < most && values[at] == values[run])
            ++at;
        if (at > run) {
            line.push_back(static_cast<unsigned char>(128 + (at - run)));
            line.push_back(values[run]);
        }
    }
}

/// A scanline as it stands in the file. One without runs cannot be taken for another form: its pixels are
/// black or have a mantissa of 128 or more.
void encode(Planes const& planes, std::vector<unsigned char>& line)
{
    std::size_t const length = planes.length();
    line.clear();
    if (!mayHaveRuns(length)) {
        for (std::size_t x = 0; x < length; ++x)
            line.insert(line.end(), {planes[0][x], planes[1][x], planes[2][x], planes[3][x]});
        return;
    }
    line = {2, 2, static_cast<unsigned char>(length >> 8), static_cast<unsigned char>(length & 255)};
    for (std::size_t plane = 0; plane < 4; ++plane)
        appendRuns(planes[plane], line);
}

Error write(Image const& image, WriteOptions const& options, ByteSink& sink, Misfits& misfits,
            koUtil::Progress* progress)
{
    std::string const header = headerText(image, options.metadata);
    bool taken = sink.write(std::as_bytes(std::span(header)));

    Planes planes(image.width());
    bool const direct = image.pixelType() == PixelTypeId::Float3;
    std::vector<Float3> converted(direct ? 0 : planes.length());
    std::vector<unsigned char> line;
    for (int row = 0; taken && row < image.height(); ++row) {
        koUtil::setProgress(progress, static_cast<double>(row) / image.height());
        if (!direct)
            rowAsFloats(image, row, 3, options.transfer, {&converted[0].r, 3 * converted.size()});
        fromLight(direct ? pictureRow<Float3>(image, row) : converted, planes, misfits);
        encode(planes, line);
        taken = sink.write(std::as_bytes(std::span(line)));
    }
    return {};
}

constexpr char const* extensions[] = {"hdr", "pic"};

}  // namespace

Codec const hdrCodec = {PictureFormat::Hdr, extensions, begins, read, write};

}  // namespace koImageIO
