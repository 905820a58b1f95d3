// The labelled probe through every shape and every file format: colours, sun and names stand where they
// belong.
//
// What is expected is worked out here from the definition of the shapes, in double precision, and from where
// the world is: +z up, and to a viewer who looks along -y, -x on the right.

#include "tool/testing/command.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace koTool::testing {
namespace {

using koImage::Float3;
using std::numbers::pi;
using Colours = ko::Reference<koImage::TypedImage<Float3>>;
using Rows = std::vector<std::string>;

struct Vector {
    double x, y, z;
};

Vector operator+(Vector a, Vector b)
{
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}

Vector operator*(double s, Vector a)
{
    return {s * a.x, s * a.y, s * a.z};
}

double dot(Vector a, Vector b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

/// A face as its viewer sees it; `column` and `row` of its cells count from the lower left.
struct Face {
    std::string name;
    Vector forward;
    Vector right;
    Vector up;
    Float3 colour;
    int column, row;          ///< in a vertical cross
    int wideColumn, wideRow;  ///< in a horizontal one
};

std::vector<Face> const faces = {
    {"-x", {-1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0.1f, 0.65f, 0.7f}, 2, 2, 2, 2},
    {"+x", {1, 0, 0}, {0, -1, 0}, {0, 0, 1}, {0.8f, 0.1f, 0.05f}, 0, 2, 2, 0},
    {"-z", {0, 0, -1}, {-1, 0, 0}, {0, -1, 0}, {0.8f, 0.7f, 0.1f}, 1, 1, 1, 1},
    {"+z", {0, 0, 1}, {-1, 0, 0}, {0, 1, 0}, {0.2f, 0.3f, 0.95f}, 1, 3, 3, 1},
    {"-y", {0, -1, 0}, {-1, 0, 0}, {0, 0, 1}, {0.7f, 0.2f, 0.6f}, 1, 2, 2, 1},
    {"+y", {0, 1, 0}, {1, 0, 0}, {0, 0, 1}, {0.1f, 0.6f, 0.15f}, 1, 0, 0, 1},
};

constexpr Vector sun = {-8 / 17.0, -12 / 17.0, 9 / 17.0};

/// The name of a face as it is read, the upper row first, with the line below it.
Rows writtenName(std::string const& name)
{
    Rows const minus = {"     ", "     ", "     ", "#####", "     ", "     ", "     "};
    Rows const plus = {"     ", "  #  ", "  #  ", "#####", "  #  ", "  #  ", "     "};
    Rows const x = {"     ", "     ", "#   #", " # # ", "  #  ", " # # ", "#   #"};
    Rows const y = {"     ", "     ", "#   #", "#   #", " ####", "    #", " ### "};
    Rows const z = {"     ", "     ", "#####", "   # ", "  #  ", " #   ", "#####"};

    Rows const& sign = name[0] == '-' ? minus : plus;
    Rows const& letter = name[1] == 'x' ? x : name[1] == 'y' ? y : z;
    Rows rows;
    for (std::size_t row = 0; row < 7; ++row)
        rows.push_back(sign[row] + " " + letter[row]);
    rows.insert(rows.end(), {"           ", "###########"});
    return rows;
}

struct Place {
    double u, v;
};

struct Shape {
    std::string name;
    std::vector<std::string> options;
    Place (*place)(Vector direction);  ///< where the shape shows a direction of length 1
};

Place latLongPlace(Vector d)
{
    return {0.5 + std::atan2(-d.x, -d.y) / (2 * pi), 0.5 + std::asin(d.z) / pi};
}

Place spherePlace(Vector d)
{
    // The middle shows -y, and stands for +y as well, which is all around the rim.
    double const fromAxis = std::hypot(d.x, d.z);
    double const k = fromAxis == 0 ? 0 : std::acos(-d.y) / (2 * pi * fromAxis);
    return {0.5 + k * d.x, 0.5 + k * d.z};
}

Place crossPlace(Vector d, bool horizontal)
{
    auto const& face = *std::max_element(faces.begin(), faces.end(), [&](Face const& a, Face const& b) {
        return dot(d, a.forward) < dot(d, b.forward);
    });
    double const distance = dot(d, face.forward);
    double fu = (1 + dot(d, face.right) / distance) / 2;
    double fv = (1 + dot(d, face.up) / distance) / 2;
    if (face.name == "+y") {
        fu = 1 - fu;
        fv = 1 - fv;
    }
    return horizontal ? Place{(face.wideColumn + fu) / 4, (face.wideRow + fv) / 3}
                      : Place{(face.column + fu) / 3, (face.row + fv) / 4};
}

std::vector<Shape> const shapes = {
    {"latlong", {"--shape", "latlong", "--size", "512"}, latLongPlace},
    {"sphere", {"--shape", "sphere", "--size", "512"}, spherePlace},
    {"cross", {"--shape", "cross", "--size", "128"}, [](Vector d) { return crossPlace(d, false); }},
    {"horizontal cross",
     {"--shape", "cross", "--size", "128", "--horizontal"},
     [](Vector d) { return crossPlace(d, true); }},
};

/// The pixel that shows a direction of any length.
Float3 pixelAt(Colours const& image, Shape const& shape, Vector direction)
{
    Place const place = shape.place((1 / std::sqrt(dot(direction, direction))) * direction);
    int const x = std::min(static_cast<int>(place.u * image->width()), image->width() - 1);
    int const y = std::min(static_cast<int>(place.v * image->height()), image->height() - 1);
    return image->pixels()[koImage::pixelOffset(x, y, image->width())];
}

double sum(Float3 const& pixel)
{
    return double{pixel.r} + pixel.g + pixel.b;
}

/// The name on a face, read from the picture: a place is dark that has less than half of the face's light.
Rows readName(Colours const& image, Shape const& shape, Face const& face)
{
    Rows rows;
    for (int row = 0; row < 9; ++row) {
        std::string text;
        for (int column = 0; column < 11; ++column) {
            double const right = (column + 0.5) / 11 - 0.5;
            double const up = (4 - row) / 11.0;
            auto const pixel = pixelAt(image, shape, face.forward + right * face.right + up * face.up);
            text += sum(pixel) < 0.5 * sum(face.colour) ? '#' : ' ';
        }
        rows.push_back(text);
    }
    return rows;
}

/// The middle of all pixels as bright as only the sun is.
Place brightest(Colours const& image)
{
    Place middle = {0, 0};
    int count = 0;
    for (int y = 0; y < image->height(); ++y) {
        for (int x = 0; x < image->width(); ++x) {
            auto const [r, g, b] = image->pixels()[koImage::pixelOffset(x, y, image->width())];
            if (std::min({r, g, b}) < 0.98f)
                continue;
            middle.u += (x + 0.5) / image->width();
            middle.v += (y + 0.5) / image->height();
            ++count;
        }
    }
    EXPECT_GT(count, 0) << "there is no sun";
    return {middle.u / count, middle.v / count};
}

/// Checks that a picture shows the world of the labelled probe; `tolerance` is that of a colour, as a part
/// of 1.
void expectTheWorld(std::string const& file, Shape const& shape, double tolerance)
{
    auto const image = colours(file);
    for (Face const& face : faces) {
        SCOPED_TRACE(face.name);
        // Just above the middle, between the letters: a disc has no single place for +y itself.
        auto const pixel = pixelAt(image, shape, face.forward + 0.03 * face.up);
        EXPECT_NEAR(face.colour.r, pixel.r, tolerance);
        EXPECT_NEAR(face.colour.g, pixel.g, tolerance);
        EXPECT_NEAR(face.colour.b, pixel.b, tolerance);
        EXPECT_EQ(writtenName(face.name), readName(image, shape, face));
    }

    // A pixel and a half: half a pixel from counting whole pixels, and up to one from a remap before.
    auto const [u, v] = brightest(image);
    auto const [sunU, sunV] = shape.place(sun);
    EXPECT_NEAR(sunU * image->width(), u * image->width(), 1.5);
    EXPECT_NEAR(sunV * image->height(), v * image->height(), 1.5);
}

void make(std::vector<std::string> arguments, std::vector<std::string> const& more)
{
    arguments.insert(arguments.end(), more.begin(), more.end());
    arguments.emplace_back("--quiet");
    auto const outcome = koimage(arguments);
    ASSERT_EQ(0, outcome.exitCode) << outcome.err;
}

TEST(Orientation, StaysThroughEveryPairOfShapes)
{
    Folder const folder;
    for (Shape const& from : shapes) {
        make({"probe", folder / "from.exr"}, from.options);
        for (Shape const& to : shapes) {
            SCOPED_TRACE(from.name + " to " + to.name);
            make({"remap", folder / "from.exr", folder / "to.exr"}, to.options);
            expectTheWorld(folder / "to.exr", to, 1e-5);
        }
    }
}

TEST(Orientation, StaysThroughEveryFileFormat)
{
    Folder const folder;
    struct Format {
        std::string name;
        std::vector<std::string> options;
        double tolerance;  ///< of colours up to 1
    };
    // Half a step of 8 bits is up to 0.0045 of light after the curve, of 16 bits 2e-5; of an RGBE mantissa
    // 1 / 256 of the brightest channel, as its values stand for the middle of their step; of a half 2^-12.
    std::vector<Format> const formats = {
        {"float.exr", {"--bits", "32"}, 0}, {"half.exr", {"--bits", "16"}, 0.00025}, {"a.hdr", {}, 0.004},
        {"8.png", {"--bits", "8"}, 0.0046}, {"16.png", {"--bits", "16"}, 2e-5},      {"a.pfm", {}, 0},
        {"8.ppm", {"--bits", "8"}, 0.0046}, {"16.ppm", {"--bits", "16"}, 2e-5},
    };
    for (Shape const& shape : shapes) {
        for (Format const& format : formats) {
            SCOPED_TRACE(shape.name + " in " + format.name);
            auto options = shape.options;
            options.insert(options.end(), format.options.begin(), format.options.end());
            make({"probe", folder / format.name}, options);
            expectTheWorld(folder / format.name, shape, format.tolerance);
        }
    }
}

// By the bytes of the files, without the library's readers.
TEST(Orientation, PutsTheZenithFirstIntoPpmAndLastIntoPfm)
{
    Folder const folder;
    make({"probe", folder / "a.ppm"}, {"--shape", "latlong", "--size", "64", "--bits", "8"});
    auto const channels = ppmChannels(readFile(folder / "a.ppm"));
    EXPECT_GT(channels[2], channels[0]) << "blue is up";
    EXPECT_LT(channels[channels.size() - 1], channels[channels.size() - 3]) << "yellow is down";

    make({"probe", folder / "a.pfm"}, {"--shape", "latlong", "--size", "64"});
    EXPECT_EQ(pfm(1, 1, {0.8f, 0.7f, 0.1f}).substr(12), readFile(folder / "a.pfm").substr(14, 12));
}

}  // namespace
}  // namespace koTool::testing
