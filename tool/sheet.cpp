#include "tool/sheet.h"

#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/sample_bilinear.h"
#include "tool/lettering.h"

#include <algorithm>
#include <cmath>

namespace koTool {

using namespace koImage;
using koLinear::VectorFlt;

namespace {

//  margin
//  +---------------------------+-------+     the panorama, and the notes beside it
//  |         panorama          | notes |
//  +--------+--------+--------+--------+
//  |  ball  |  ball  |  ball  |  ball  |     rows of cells, each with the lines of its label
//  | lines  | lines  | lines  | lines  |
//  +--------+--------+--------+--------+
constexpr int margin = 24;
constexpr int columns = 4;
constexpr int cellWidth = 284;
constexpr int cellHeight = 352;
constexpr int radius = 122;
constexpr int panoramaWidth = 752;
constexpr int panoramaHeight = panoramaWidth / 2;
constexpr int textScale = 2;
constexpr int lineHeight = 20;
constexpr std::size_t mostLines = 4;

constexpr Float3 background = {0.11f, 0.115f, 0.125f};
constexpr Float3 ink = {0.86f, 0.86f, 0.84f};
constexpr Float3 faintInk = {0.6f, 0.61f, 0.62f};

constexpr int sheetWidth = 2 * margin + columns * cellWidth;

/// Samples along each side of a pixel of the panorama: probes are some times larger than it.
constexpr int samples = 3;

/// A pixel counted from the upper left corner.
Float3& pixelAt(Colours& image, int x, int y)
{
    return image.pixels()[pixelOffset(x, image.height() - 1 - y, image.width())];
}

Float3 radianceOf(EnvironmentMap const& map, VectorFlt const& direction)
{
    float u = 0.0f;
    float v = 0.0f;
    map.dirToCoord(direction, u, v);
    Float3 radiance{};
    sampleBilinear(static_cast<Colours const&>(*map.image()), u, v, radiance);
    return radiance;
}

/// What the viewer sees of the whole probe, the direction of view in the middle.
void drawPanorama(Colours& sheet, EnvironmentMap const& probe, float view, Display const& display)
{
    auto const angle = [](int pixel, int sample, int pixels) {
        return (static_cast<float>(pixel) + (static_cast<float>(sample) + 0.5f) / samples) /
               static_cast<float>(pixels);
    };
    for (int y = 0; y < panoramaHeight; ++y)
        for (int x = 0; x < panoramaWidth; ++x) {
            Float3 sum{};
            for (int sy = 0; sy < samples; ++sy)
                for (int sx = 0; sx < samples; ++sx) {
                    float const a = LatLongMap::latitude(1.0f - angle(y, sy, panoramaHeight));
                    float const b = LatLongMap::longitude(angle(x, sx, panoramaWidth)) + view;
                    Float3 const light = display.clip(radianceOf(
                        probe, {-std::sin(b) * std::cos(a), -std::cos(b) * std::cos(a), std::sin(a)}));
                    sum = {sum.r + light.r, sum.g + light.g, sum.b + light.b};
                }
            constexpr float count = samples * samples;
            pixelAt(sheet, margin + x, margin + y) =
                display.levels({sum.r / count, sum.g / count, sum.b / count});
        }
}

/// The half of a ball that the viewer sees: its middle faces the viewer, so away from the direction of view.
void drawBall(Colours& sheet, int centreX, int centreY, EnvironmentMap const& map, float view,
              Display const& display)
{
    VectorFlt const forward = {-std::sin(view), -std::cos(view), 0.0f};
    VectorFlt const right = {-std::cos(view), std::sin(view), 0.0f};
    for (int y = -radius - 1; y <= radius; ++y)
        for (int x = -radius - 1; x <= radius; ++x) {
            float const sx = (static_cast<float>(x) + 0.5f) / radius;
            float const sy = -(static_cast<float>(y) + 0.5f) / radius;
            float const distance = std::sqrt(sx * sx + sy * sy);
            // The part of the pixel that the ball covers, for a smooth edge.
            float const covered = std::clamp((1.0f - distance) * radius + 0.5f, 0.0f, 1.0f);
            if (covered == 0.0f)
                continue;
            float const towards = std::sqrt(std::max(0.0f, 1.0f - distance * distance));
            VectorFlt normal = {sx * right.x - towards * forward.x, sx * right.y - towards * forward.y, sy};
            normal.normalize();
            Float3 const level = display.levels(radianceOf(map, normal));
            auto const blend = [covered](float over, float under) {
                return covered * over + (1.0f - covered) * under;
            };
            pixelAt(sheet, centreX + x, centreY + y) = {
                blend(level.r, background.r), blend(level.g, background.g), blend(level.b, background.b)};
        }
}

/// Lines of text, the first one bright; what is too long is cut.
void drawLines(Colours& sheet, int left, int top, int width, std::vector<std::string> const& lines)
{
    auto const room = static_cast<std::size_t>(width / textWidth(1, textScale));
    for (std::size_t i = 0; i < lines.size(); ++i)
        drawText(sheet, left, top + static_cast<int>(i) * lineHeight, textScale, lines[i].substr(0, room),
                 i == 0 ? ink : faintInk);
}

}  // namespace

float viewLongitude(IrradianceAlg const& sums)
{
    Float3 coefficients[9];
    sums.getCoefficients(coefficients);
    auto const brightness = [](Float3 const& c) { return c.r + c.g + c.b; };
    // Their basis functions are -y and -x, times a constant.
    float const towardsX = -brightness(coefficients[3]);
    float const towardsY = -brightness(coefficients[1]);
    if (std::hypot(towardsX, towardsY) < 1e-3f * brightness(coefficients[0]) ||
        (towardsX == 0.0f && towardsY == 0.0f))
        return 0.0f;
    return std::atan2(-towardsX, -towardsY) - 130.0f / 180.0f * EnvironmentMap::pi;
}

ColoursReference drawSheet(EnvironmentMap const& probe, float view, std::vector<Ball> const& balls,
                           std::vector<std::string> const& notes, Display const& display)
{
    int const rows = (static_cast<int>(balls.size()) + columns - 1) / columns;
    ColoursReference sheet = newColours(sheetWidth, 3 * margin + panoramaHeight + rows * cellHeight);
    std::fill_n(sheet->pixels(), sheet->pixelCount(), background);

    drawPanorama(*sheet, probe, view, display);
    int const beside = margin + panoramaWidth + margin;
    drawLines(*sheet, beside, margin, sheetWidth - margin - beside, notes);

    for (std::size_t i = 0; i < balls.size(); ++i) {
        int const left = margin + static_cast<int>(i) % columns * cellWidth;
        int const top = 2 * margin + panoramaHeight + static_cast<int>(i) / columns * cellHeight;
        int const middle = left + cellWidth / 2;
        drawBall(*sheet, middle, top + radius + 2, *balls[i].map, view, display);
        auto lines = balls[i].lines;
        lines.resize(std::min(lines.size(), mostLines));
        drawLines(*sheet, middle - radius, top + 2 * radius + 20, cellWidth - (cellWidth / 2 - radius),
                  lines);
    }
    return sheet;
}

}  // namespace koTool
