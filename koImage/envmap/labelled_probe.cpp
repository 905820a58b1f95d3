#include "koImage/envmap/labelled_probe.h"

#include "koImage/image/typed_image.h"

#include <cmath>
#include <cstddef>

namespace koImage {

namespace {

using koLinear::VectorFlt;

/// A face as its viewer sees it.
struct Face {
    VectorFlt forward;
    VectorFlt right;
    VectorFlt up;
    char const* const* sign;
    char const* const* letter;
};

// Letters of 5 x 7, upper row first.
constexpr char const* minusSign[] = {"     ", "     ", "     ", "#####", "     ", "     ", "     "};
constexpr char const* plusSign[] = {"     ", "  #  ", "  #  ", "#####", "  #  ", "  #  ", "     "};
constexpr char const* letterX[] = {"     ", "     ", "#   #", " # # ", "  #  ", " # # ", "#   #"};
constexpr char const* letterY[] = {"     ", "     ", "#   #", "#   #", " ####", "    #", " ### "};
constexpr char const* letterZ[] = {"     ", "     ", "#####", "   # ", "  #  ", " #   ", "#####"};

constexpr int letterWidth = 5;
constexpr int letterHeight = 7;

// A name is two letters a column apart, and a line below them, so that it cannot be read upside down. The
// column between the letters is the middle of the face: its own colour shows there.
constexpr int nameWidth = 2 * letterWidth + 1;
constexpr int nameHeight = letterHeight + 2;

constexpr Face faces[] = {
    {{-1, 0, 0}, {0, 1, 0}, {0, 0, 1}, minusSign, letterX},
    {{1, 0, 0}, {0, -1, 0}, {0, 0, 1}, plusSign, letterX},
    {{0, 0, -1}, {-1, 0, 0}, {0, -1, 0}, minusSign, letterZ},
    {{0, 0, 1}, {-1, 0, 0}, {0, 1, 0}, plusSign, letterZ},
    {{0, -1, 0}, {-1, 0, 0}, {0, 0, 1}, minusSign, letterY},
    {{0, 1, 0}, {1, 0, 0}, {0, 0, 1}, plusSign, letterY},
};

float dot(VectorFlt const& a, VectorFlt const& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

/// The number of the face that a direction meets.
std::size_t faceOf(VectorFlt const& direction)
{
    float const x = std::abs(direction.x);
    float const y = std::abs(direction.y);
    float const z = std::abs(direction.z);
    if (x >= y && x >= z)
        return direction.x < 0.0f ? 0 : 1;
    if (y >= z)
        return direction.y < 0.0f ? 4 : 5;
    return direction.z < 0.0f ? 2 : 3;
}

/// Whether the name covers a place on the face: `right` and `up` run from -1 to 1 across it.
bool inName(Face const& face, float right, float up)
{
    // The name takes half the width of the face, so a step of 1 is as long as the name.
    float const x = (right + 0.5f) * static_cast<float>(nameWidth);
    float const y = 0.5f * static_cast<float>(nameHeight) - up * static_cast<float>(nameWidth);
    if (!(x >= 0.0f && x < static_cast<float>(nameWidth) && y >= 0.0f && y < static_cast<float>(nameHeight)))
        return false;

    int const column = static_cast<int>(x);
    int const row = static_cast<int>(y);
    if (row >= letterHeight)
        return row == nameHeight - 1;
    if (column == letterWidth)
        return false;
    return column < letterWidth ? face.sign[row][column] == '#'
                                : face.letter[row][column - letterWidth - 1] == '#';
}

}  // namespace

Float3 labelledProbe(VectorFlt const& direction)
{
    if (dot(direction, labelledProbeSun) >= labelledProbeSunCosine)
        return labelledProbeSunlight;

    std::size_t const number = faceOf(direction);
    Face const& face = faces[number];
    float const distance = dot(direction, face.forward);
    if (!(distance > 0.0f))
        return {0.0f, 0.0f, 0.0f};
    if (inName(face, dot(direction, face.right) / distance, dot(direction, face.up) / distance))
        return {0.0f, 0.0f, 0.0f};
    return labelledProbeFaces[number];
}

void drawLabelledProbe(EnvironmentMap& map)
{
    Image* const image = map.image();
    if (image == nullptr || image->pixelType() != PixelTypeId::Float3)
        return;

    auto const pixels = pixelsOf<Float3>(*image);
    for (int y = 0; y < image->height(); ++y) {
        float const v = (static_cast<float>(y) + 0.5f) * image->invHeight();
        for (int x = 0; x < image->width(); ++x) {
            // The rows of sizes beyond 32 bits are not all there.
            auto const at = static_cast<std::size_t>(pixelOffset(x, y, image->width()));
            if (at >= pixels.size())
                return;

            float const u = (static_cast<float>(x) + 0.5f) * image->invWidth();
            VectorFlt direction;
            pixels[at] =
                map.coordToDir(u, v, direction) ? labelledProbe(direction) : Float3{0.0f, 0.0f, 0.0f};
        }
    }
}

}  // namespace koImage
