#include "tool/layout_picture.h"

#include "tool/lettering.h"

#include <algorithm>
#include <cmath>

namespace koTool {

using koImage::Float3;
using koUtil::IntRange2d;

namespace {

constexpr int longerSide = 1024;
constexpr int largestLetters = 4;
constexpr Float3 background = {0.11f, 0.115f, 0.125f};
constexpr Float3 ink = {0.08f, 0.08f, 0.09f};

/// Fills a rectangle whose corner is counted from the upper left one; all of it lies in the picture.
void fillRectangle(Colours& picture, IntRange2d const& area, Float3 const& colour)
{
    for (int y = area.y; y < area.y + area.height; ++y)
        std::fill_n(picture.pixels() +
                        koImage::pixelOffset(area.x, picture.height() - 1 - y, picture.width()),
                    area.width, colour);
}

/// A light colour, the hues of successive tiles far apart: each is the golden section of the circle further.
Float3 colourOf(std::size_t tile)
{
    double const hue = std::fmod(0.08 + 0.6180339887 * static_cast<double>(tile), 1.0);
    double const lightness = 0.8 + 0.1 * static_cast<double>(tile % 3);
    auto const channel = [&](double shift) {
        double const wave = std::abs(std::fmod(hue + shift, 1.0) * 6.0 - 3.0) - 1.0;
        return static_cast<float>(lightness * (0.5 + 0.5 * std::clamp(wave, 0.0, 1.0)));
    };
    return {channel(0.0), channel(2.0 / 3.0), channel(1.0 / 3.0)};
}

Float3 darker(Float3 const& colour)
{
    return {0.55f * colour.r, 0.55f * colour.g, 0.55f * colour.b};
}

/// Letters of a size in an area: how many fit on a line, and how many lines.
struct Room {
    std::size_t letters;
    std::size_t lines;
};

constexpr int gapOf(int scale)
{
    return 2 * scale;
}

constexpr int lineHeight(int scale)
{
    return (letterHeight + 2) * scale;
}

Room roomFor(IntRange2d const& area, int scale)
{
    // The space after the last letter and below the last line may lie in the gap.
    int const width = area.width - 2 * gapOf(scale) + scale;
    int const height = area.height - 2 * gapOf(scale) + 2 * scale;
    return {static_cast<std::size_t>(std::max(0, width / textWidth(1, scale))),
            static_cast<std::size_t>(std::max(0, height / lineHeight(scale)))};
}

/// The largest letters in which a name fits, and rather smaller ones than a broken line.
int scaleFor(IntRange2d const& area, std::size_t letters)
{
    for (int scale = largestLetters; scale > 1; --scale)
        if (Room const room = roomFor(area, scale); room.letters >= letters && room.lines > 0)
            return scale;
    for (int scale = largestLetters; scale > 1; --scale)
        if (Room const room = roomFor(area, scale); room.letters * room.lines >= letters)
            return scale;
    return 1;
}

void drawName(Colours& picture, IntRange2d const& area, std::string const& name)
{
    int const scale = scaleFor(area, name.size());
    auto const [letters, lines] = roomFor(area, scale);
    if (letters == 0)
        return;
    int top = area.y + gapOf(scale);
    for (std::size_t line = 0; line < lines && line * letters < name.size(); ++line) {
        drawText(picture, area.x + gapOf(scale), top, scale, name.substr(line * letters, letters), ink);
        top += lineHeight(scale);
    }
}

}  // namespace

ColoursReference drawLayout(int width, int height, int border, std::vector<LayoutTile> const& tiles)
{
    // Whole pixels for small atlases, fractions for large ones.
    double const fitting = static_cast<double>(longerSide) / std::max(width, height);
    double const scale = fitting >= 1.0 ? std::floor(fitting) : fitting;
    auto const scaled = [scale](int position) { return static_cast<int>(std::lround(position * scale)); };
    auto const drawn = [&](IntRange2d const& place, int around) {
        int const left = scaled(place.x - around);
        int const top = scaled(place.y - around);
        return IntRange2d{left, top, scaled(place.x + place.width + around) - left,
                          scaled(place.y + place.height + around) - top};
    };

    auto picture = newColours(std::max(1, scaled(width)), std::max(1, scaled(height)));
    std::fill_n(picture->pixels(), picture->pixelCount(), background);
    for (std::size_t i = 0; i < tiles.size(); ++i) {
        Float3 const colour = colourOf(i);
        fillRectangle(*picture, drawn(tiles[i].place, border), darker(colour));
        fillRectangle(*picture, drawn(tiles[i].place, 0), colour);
        drawName(*picture, drawn(tiles[i].place, 0), tiles[i].name);
    }
    return picture;
}

}  // namespace koTool
