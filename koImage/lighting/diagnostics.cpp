#include "koImage/lighting/diagnostics.h"

#include "koBase/filename.h"
#include "koBase/output_file.h"
#include "koImage/image/fill.h"
#include "koImage/lighting/harmonics.h"
#include "koImage/lighting/specular_map.h"
#include "koImage/lighting/view_basis.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <numbers>
#include <span>
#include <string>
#include <vector>

namespace koImage {

using koUtil::Error;

namespace {

using Map = TypedImage<HarmonicsPixel>;
using Colours = TypedImage<Float3>;

constexpr double pi = std::numbers::pi;

constexpr int ballSize = 200;
constexpr int cellSize = 8;
constexpr int largestFace = 1024;
constexpr int rowStep = 10;

constexpr int allTerms = HarmonicsPixel::size();

struct Direction {
    double x, y, z;
};

Direction cross(Direction const& a, Direction const& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

Direction normalized(Direction const& d)
{
    double const length = std::hypot(d.x, d.y, d.z);
    return length > 0.0 && std::isfinite(length) ? Direction{d.x / length, d.y / length, d.z / length}
                                                 : Direction{0.0, 0.0, 1.0};
}

// Tilts and turns are about the axes of the lighting frame, (y, x, -z) of the world.

/// A direction in the world, in the frame of the surface of pixel (x, t).
Direction inFrame(Direction const& world, Map const& map, int x, int t)
{
    double const phi = 2 * pi * x / map.width();
    double const theta = pi * t / map.height();
    double const along = world.y * std::cos(phi) + world.x * std::sin(phi);
    return {along * std::cos(theta) + world.z * std::sin(theta),
            world.x * std::cos(phi) - world.y * std::sin(phi),
            along * std::sin(theta) - world.z * std::cos(theta)};
}

struct Place {
    int x, t;
};

/// The pixel whose surface faces that direction in the world most nearly, in both angles.
Place pixelFacing(Direction const& normal, Map const& map)
{
    double const theta = std::acos(std::clamp(-normal.z, -1.0, 1.0));
    double const phi = std::atan2(normal.x, normal.y);
    auto const nearest = [](double position) { return static_cast<int>(std::floor(position + 0.5)); };
    int const x = nearest(phi / (2 * pi) * map.width());  // from -width / 2
    return {x < 0 ? x + map.width() : x % map.width(),
            std::min(nearest(theta / pi * map.height()), map.height() - 1)};
}

HarmonicsPixel const& pixelAt(Map const& map, Place const& place)
{
    return map.pixels()[pixelOffset(place.x, place.t, map.width())];
}

ViewBasis basisAlong(Direction const& view, Map const& map)
{
    double const components[] = {view.x, view.y, view.z};
    return viewBasis(components, map.width(), map.height());
}

Error noPixels(std::string const& file)
{
    return {1, "%s: The reflection map has no pixels.", file.c_str()};
}

// --- Pictures ---

/// The level that shows a value.
std::byte levelOf(float value)
{
    // The comparison is false for NaN.
    return value > 0.0f ? static_cast<std::byte>(std::min(value, 1.0f) * 255.0f + 0.5f) : std::byte{0};
}

Error writePpm(std::string const& file, Colours const& image, bool upright)
{
    if (!image.holdsItsRows())
        return {1, "%s: The image has a size, %d x %d, but not its pixels.", file.c_str(), image.width(),
                image.height()};

    koOS::OutputFile output(file);
    std::string const header =
        "P6\n" + std::to_string(image.width()) + " " + std::to_string(image.height()) + "\n255\n";
    output.write(std::as_bytes(std::span(header)));

    auto const width = static_cast<std::size_t>(image.width());
    std::vector<std::byte> levels(3 * width);
    for (int i = 0; i < image.height(); ++i) {
        int const y = upright ? image.height() - 1 - i : i;
        Float3 const* const row = image.pixels() + pixelOffset(0, y, image.width());
        for (std::size_t x = 0; x < width; ++x) {
            levels[3 * x] = levelOf(row[x].r);
            levels[3 * x + 1] = levelOf(row[x].g);
            levels[3 * x + 2] = levelOf(row[x].b);
        }
        output.write(levels);
    }
    return output.commit();
}

/// For every pixel of the map, the basis at a direction in the world.
std::vector<ViewBasis> basesTowards(Map const& map, double const* view)
{
    Direction const world = normalized({view[0], view[1], view[2]});
    std::vector<ViewBasis> bases;
    bases.reserve(map.arrayLength());
    for (int t = 0; t < map.height(); ++t)
        for (int x = 0; x < map.width(); ++x)
            bases.push_back(basisAlong(inFrame(world, map, x, t), map));
    return bases;
}

Error writeSeenAlong(std::string const& file, Map const& map, std::vector<ViewBasis> const& bases, int order,
                     double scale)
{
    Colours picture;
    picture.resize(map.width(), map.height());
    std::transform(map.pixels(), map.pixels() + map.arrayLength(), bases.begin(), picture.pixels(),
                   [terms = termsTo(order), scale](HarmonicsPixel const& pixel, ViewBasis const& basis) {
                       return lightAlong(pixel, basis, terms, scale);
                   });
    return writePpm(file, picture, true);
}

/// A ball, black around: `light` of each of its normals, where x points to the right, y up and z to the
/// viewer.
template <class Light>
Error writeBall(std::string const& file, Light light)
{
    Colours picture;
    picture.resize(ballSize, ballSize);
    fillBlack(picture);
    for (int row = 0; row < ballSize; ++row)
        for (int column = 0; column < ballSize; ++column) {
            double const x = (2 * column + 1.0) / ballSize - 1;
            double const y = (2 * row + 1.0) / ballSize - 1;
            if (double const rest = 1 - x * x - y * y; rest >= 0.0)
                picture.pixels()[pixelOffset(column, row, ballSize)] = light({x, y, std::sqrt(rest)});
        }
    return writePpm(file, picture, true);
}

Error writeFrequencies(std::string const& file, HarmonicsPixel const& pixel, double scale)
{
    constexpr int degree = HarmonicsPixel::order();
    auto const level = [scale](double value) { return static_cast<float>(0.5 + 0.5 * (value * scale)); };

    Colours picture;
    picture.resize((2 * degree + 1) * cellSize, (degree + 1) * cellSize);
    fillBlack(picture);
    for (int row = 0; row < picture.height(); ++row)
        for (int column = 0; column < picture.width(); ++column) {
            int const l = degree - row / cellSize;
            int const m = column / cellSize - degree;
            if (m < -l || m > l)
                continue;
            Double3 const& value = pixel.at(l, m);
            picture.pixels()[pixelOffset(column, row, picture.width())] = {level(value.r), level(value.g),
                                                                           level(value.b)};
        }
    return writePpm(file, picture, true);
}

Error writeExpansion(std::string const& suffix, Map const& map, Place const& place, double scale)
{
    HarmonicsPixel const& pixel = pixelAt(map, place);
    if (Error error = writeFrequencies("tmpfreq" + suffix + ".ppm", pixel, scale))
        return error;
    return writeBall("tmp3D" + suffix + ".ppm", [&](Direction const& view) {
        return lightAlong(pixel, basisAlong(view, map), allTerms, scale);
    });
}

// --- Coefficients ---

/// A file of coefficients: the text of one pixel, then the samples of any number.
class CoefficientFile {
public:
    CoefficientFile(std::string const& file, double scale) : file_(file), scale_(scale) {}

    void writeText(HarmonicsPixel const& pixel)
    {
        std::string text;
        for (auto const channel : channels) {
            for (int k = 0; k < HarmonicsPixel::size(); ++k) {
                // The text of "%lf", which would depend on the locale; the largest double has 309 digits.
                std::array<char, 400> digits;
                auto const end = std::to_chars(digits.data(), digits.data() + digits.size(),
                                               pixel[k].*channel * scale_, std::chars_format::fixed, 6)
                                     .ptr;
                text.append(digits.data(), end);
                text += ' ';
            }
            text += '\n';
        }
        file_.write(std::as_bytes(std::span(text)));
    }

    void writeSamples(HarmonicsPixel const& pixel)
    {
        std::array<std::byte, std::size_t{2} * 3 * HarmonicsPixel::size()> bytes;
        std::size_t at = 0;
        for (auto const channel : channels)
            for (int k = 0; k < HarmonicsPixel::size(); ++k) {
                unsigned const sample = sampleOf(pixel[k].*channel * scale_);
                bytes[at++] = static_cast<std::byte>(sample >> 8);
                bytes[at++] = static_cast<std::byte>(sample & 0xFF);
            }
        file_.write(bytes);
    }

    [[nodiscard]] Error commit() { return file_.commit(); }

private:
    static constexpr double Double3::*channels[] = {&Double3::r, &Double3::g, &Double3::b};

    static unsigned sampleOf(double value)
    {
        double const inside = std::isnan(value) ? 0.0 : std::clamp(value, -1.0, 1.0);
        return static_cast<unsigned>(32768 + static_cast<int>(std::floor(inside * 32767 + 0.5)));
    }

    koOS::OutputFile file_;
    double scale_;
};

/// One side of the cube: what its pixel at (a, b), each from -1 to 1, looks along.
struct Face {
    char const* name;
    Direction (*direction)(double a, double b);
};

// As in cross_map.h.
constexpr Face faceList[] = {
    {"nx",
     [](double a, double b) {
         return Direction{-1, a, b};
     }},
    {"px",
     [](double a, double b) {
         return Direction{1, -a, b};
     }},
    {"ny",
     [](double a, double b) {
         return Direction{-a, -1, b};
     }},
    {"py",
     [](double a, double b) {
         return Direction{a, 1, b};
     }},
    {"nz",
     [](double a, double b) {
         return Direction{-a, -b, -1};
     }},
    {"pz",
     [](double a, double b) {
         return Direction{-a, b, 1};
     }},
};

Error writeFace(std::string const& file, Face const& face, int size, Map const& map, double scale)
{
    CoefficientFile output(file, scale);
    output.writeText(pixelAt(map, pixelFacing(face.direction(0, 0), map)));
    for (int row = 0; row < size; ++row)
        for (int column = 0; column < size; ++column) {
            double const a = (2 * column + 1.0) / size - 1;
            double const b = (2 * row + 1.0) / size - 1;
            output.writeSamples(pixelAt(map, pixelFacing(normalized(face.direction(a, b)), map)));
        }
    return output.commit();
}

}  // namespace

void printBrdfCoeffs(double const (&coeffs)[21][21][21])
{
    for (int l = 0; l <= harmonics::maxDegree; ++l)
        for (int p = 0; p <= harmonics::maxDegree; ++p)
            for (int q = 0; q <= std::min(l, p); ++q)
                std::printf("%4d %4d %4d %12.6lf\n", l, p, q, coeffs[l][p][q]);
}

Error printshrms(char const* name, char const* faces, int faceSize, TypedImage<HarmonicsPixel> const& map,
                 double scale)
{
    std::string const whole = koOS::Filename(name).multibyte() + ".shrm";
    std::string const cube = koOS::Filename(faces).multibyte();
    if (!map.holdsItsRows())
        return noPixels(whole);
    if (faceSize < 1 || faceSize > largestFace)
        return {1, "%s: Faces of %d pixels: it must be 1 to %d.", cube.c_str(), faceSize, largestFace};

    CoefficientFile output(whole, scale);
    output.writeText(map.pixels()[0]);
    for (HarmonicsPixel const& pixel : pixelsOf<HarmonicsPixel>(map))
        output.writeSamples(pixel);
    if (Error error = output.commit())
        return error;

    for (Face const& face : faceList)
        if (Error error = writeFace(cube + "_" + face.name + ".shrm", face, faceSize, map, scale))
            return error;
    return {};
}

Error dumpimage(TypedImage<HarmonicsPixel> const& map, double const* view, double scale)
{
    if (!map.holdsItsRows())
        return noPixels("tmp.ppm");
    Colours picture;
    computeSpecularMap(map, view, HarmonicsPixel::order(), scale, picture);
    return writePpm("tmp.ppm", picture, true);
}

Error dumpimageref(TypedImage<HarmonicsPixel> const& map, double const* view, double scale)
{
    if (!map.holdsItsRows())
        return noPixels("tmpref.ppm");
    return writeSeenAlong("tmpref.ppm", map, basesTowards(map, view), HarmonicsPixel::order(), scale);
}

Error dumpimagerefp(TypedImage<HarmonicsPixel> const& map, double const* view, double scale)
{
    if (!map.holdsItsRows())
        return noPixels("refp0.ppm");
    auto const bases = basesTowards(map, view);
    for (int p = 0; p <= HarmonicsPixel::order(); ++p)
        if (Error error = writeSeenAlong("refp" + std::to_string(p) + ".ppm", map, bases, p, scale))
            return error;
    return {};
}

Error dumpjbsphere(TypedImage<HarmonicsPixel> const& map, double const* view, int order, double scale)
{
    if (!map.holdsItsRows())
        return noPixels("tmpjbsphere.ppm");

    Direction const towards = normalized({view[0], view[1], view[2]});
    bool const fromAPole = std::hypot(towards.x, towards.y) < 1e-9;
    Direction const above = fromAPole ? Direction{0, 1, 0} : Direction{0, 0, 1};
    Direction const right = normalized(cross(above, towards));
    Direction const up = cross(towards, right);
    int const terms = termsTo(order);

    return writeBall("tmpjbsphere.ppm", [&](Direction const& n) {
        Place const place = pixelFacing({n.x * right.x + n.y * up.x + n.z * towards.x,
                                         n.x * right.y + n.y * up.y + n.z * towards.y,
                                         n.x * right.z + n.y * up.z + n.z * towards.z},
                                        map);
        Direction const local = inFrame(towards, map, place.x, place.t);
        return lightAlong(pixelAt(map, place), basisAlong(local, map), terms, scale);
    });
}

Error dumpImage(char const* name, TypedImage<Float3> const& image, bool upright)
{
    return writePpm(koOS::Filename(name).multibyte() + ".ppm", image, upright);
}

Error dumpimagesphere(TypedImage<HarmonicsPixel> const& map, int x, int t, double scale)
{
    if (!map.holdsItsRows())
        return noPixels("tmpfreq.ppm");
    if (x < 0 || x >= map.width() || t < 0 || t >= map.height())
        return {1,           "tmpfreq.ppm: Pixel (%d, %d) is not in the map of %d x %d.", x, t, map.width(),
                map.height()};
    return writeExpansion("", map, {x, t}, scale);
}

Error dumpimagesphereall(TypedImage<HarmonicsPixel> const& map, int x, double scale)
{
    if (!map.holdsItsRows())
        return noPixels("tmpfreq0.ppm");
    if (x < 0 || x >= map.width())
        return {1, "tmpfreq0.ppm: Column %d is not in the map of %d x %d.", x, map.width(), map.height()};
    for (int t = 0; t < map.height(); t += rowStep)
        if (Error error = writeExpansion(std::to_string(t), map, {x, t}, scale))
            return error;
    return {};
}

}  // namespace koImage
