// koimage outline: the outlines of a mask, as a drawing or as numbers.

#include "koImage/layout/mask_boundaries.h"
#include "tool/files.h"
#include "tool/mask.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <sstream>

namespace koTool {

using namespace koImage;

namespace {

enum class OutlineFormat { Svg, Json };

struct Outline {
    Files files;
    std::string mask;
    std::string output;
    std::optional<OutlineFormat> format;
    MaskChoice choice = {.threshold = 0.5f};
};

/// A corner of pixels as pictures are drawn: from the upper left corner to the right, and down.
struct Corner {
    std::int64_t x;
    std::int64_t y;
};

/// The corners of an outline of an image of that height, the first one once more at the end.
std::vector<Corner> cornersOf(Boundary3d const& boundary, int height)
{
    std::vector<Corner> corners;
    corners.reserve(boundary.points.size() / 3);
    for (std::size_t i = 0; i + 2 < boundary.points.size(); i += 3)
        corners.push_back({static_cast<std::int64_t>(boundary.points[i]),
                           height - static_cast<std::int64_t>(boundary.points[i + 1])});
    return corners;
}

/// Whether an outline runs around a hole: clockwise.
bool isHole(std::vector<Corner> const& corners)
{
    std::int64_t twiceArea = 0;
    for (std::size_t i = 1; i < corners.size(); ++i)
        twiceArea += corners[i - 1].x * corners[i].y - corners[i].x * corners[i - 1].y;
    return twiceArea > 0;
}

/// One path; holes in it stay open as it is filled by the even-odd rule.
std::string svgOf(Bytes const& mask, ko::list<Boundary3d> const& boundaries)
{
    int const width = mask.width();
    int const height = mask.height();
    std::ostringstream svg;
    svg << R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" << width << R"(" height=")" << height
        << R"(" viewBox="0 0 )" << width << ' ' << height << "\">\n"
        << R"(<path fill-rule="evenodd" d=")";
    for (Boundary3d const& boundary : boundaries) {
        auto const corners = cornersOf(boundary, height);
        svg << 'M' << corners[0].x << ' ' << corners[0].y;
        // Every step is level or upright, and the last one is drawn by closing the outline.
        for (std::size_t i = 1; i + 1 < corners.size(); ++i)
            if (corners[i].y == corners[i - 1].y)
                svg << 'H' << corners[i].x;
            else
                svg << 'V' << corners[i].y;
        svg << "Z\n";
    }
    svg << "\"/>\n</svg>\n";
    return std::move(svg).str();
}

/// Written by hand: outlines of noise have many millions of corners.
std::string jsonOf(Outline const& outline, Bytes const& mask, ko::list<Boundary3d> const& boundaries)
{
    std::ostringstream json;
    json << R"({"file":)" << jsonText(outline.mask) << R"(,"width":)" << mask.width() << R"(,"height":)"
         << mask.height() << R"(,"outlines":[)";
    char const* before = "\n";
    for (Boundary3d const& boundary : boundaries) {
        auto const corners = cornersOf(boundary, mask.height());
        auto const length = static_cast<std::int64_t>(boundary.parameters[boundary.parameters.size() - 2]);
        json << before << R"({"hole":)" << (isHole(corners) ? "true" : "false") << R"(,"length":)" << length
             << R"(,"points":)";
        for (std::size_t i = 0; i < corners.size(); ++i)
            json << (i == 0 ? "[[" : ",[") << corners[i].x << ',' << corners[i].y << ']';
        json << "]}";
        before = ",\n";
    }
    json << "]}\n";
    return std::move(json).str();
}

void run(Outline& outline)
{
    auto const mask = readMask(outline.files, outline.mask, outline.choice);
    outline.files.work("finding outlines");
    ko::list<Boundary3d> boundaries;
    computeMaskBoundaries(*mask, boundaries);
    if (boundaries.empty())
        outline.files.remark(outline.mask + ": no pixel belongs to the mask, so there are no outlines");
    outline.files.saveText(outline.output, outline.format == OutlineFormat::Svg
                                               ? svgOf(*mask, boundaries)
                                               : jsonOf(outline, *mask, boundaries));
}

/// The format that the name of the file asks for.
std::optional<OutlineFormat> formatOf(std::string const& file)
{
    if (file.ends_with(".svg"))
        return OutlineFormat::Svg;
    if (file.ends_with(".json"))
        return OutlineFormat::Json;
    return std::nullopt;
}

void add(CLI::App& command)
{
    auto const outline = std::make_shared<Outline>();
    command.add_option("MASK", outline->mask, "The picture to read, - for standard input")->required();
    command.add_option("OUT,-o,--output", outline->output, "The file to write, - for standard output")
        ->required();
    addChoice(
        command, "--format",
        std::vector<std::pair<std::string, OutlineFormat>>{{"svg", OutlineFormat::Svg},
                                                           {"json", OutlineFormat::Json}},
        [&format = outline->format](OutlineFormat chosen) { format = chosen; },
        "svg is a drawing, json the corners of each outline; without it, by the extension of OUT. In both x "
        "runs from the left edge of the picture and y from the upper one, in pixels; outlines run "
        "counter-clockwise as they are seen, those of holes clockwise");
    addMaskChoice(command, outline->choice);
    outline->files.addLayer(command);
    outline->files.addQuiet(command);
    command.callback([outline] {
        if (!outline->format)
            outline->format = formatOf(outline->output);
        if (!outline->format)
            throw CLI::ValidationError("OUT",
                                       outline->output + " needs --format, or .svg or .json at its end");
        run(*outline);
    });
}

}  // namespace

Verb const outlineVerb = {"outline", "The outlines of a mask and of its holes, as SVG or JSON",
                          "koimage outline mask.png -o mask.svg\n"
                          "koimage outline sprite.png -o sprite.json --channel alpha --threshold 0\n"
                          "koimage outline scan.png -o ink.svg --invert",
                          add};

}  // namespace koTool
