#include "tool/panels.h"

#include "tool/lettering.h"

#include <algorithm>

namespace koTool {

using koImage::Float3;

namespace {

constexpr int margin = 16;
constexpr int gap = 4;  // between the letters and what is above or below, for each of their scale

constexpr Float3 background = {0.11f, 0.115f, 0.125f};
constexpr Float3 ink = {0.86f, 0.86f, 0.84f};

struct Size {
    int width = 0;
    int height = 0;
};

Size sizeOf(std::vector<Panel> const& row, int lineHeight, int space)
{
    Size size;
    for (Panel const& panel : row) {
        size.width += panel.levels->width() + (size.width > 0 ? space : 0);
        size.height = std::max(size.height, panel.levels->height() + lineHeight);
    }
    return size;
}

}  // namespace

ColoursReference drawPanels(std::vector<std::vector<Panel>> const& rows, int textScale)
{
    int const lineHeight = (letterHeight + 2 * gap) * textScale;
    int const space = gap * textScale;
    Size sheetSize;
    for (auto const& row : rows) {
        Size const size = sizeOf(row, lineHeight, space);
        sheetSize = {std::max(sheetSize.width, size.width), sheetSize.height + size.height};
    }
    ColoursReference sheet = newColours(sheetSize.width + 2 * margin, sheetSize.height + 2 * margin);
    std::fill_n(sheet->pixels(), sheet->pixelCount(), background);

    int top = margin;
    for (auto const& row : rows) {
        Size const size = sizeOf(row, lineHeight, space);
        int left = (sheet->width() - size.width) / 2;
        for (Panel const& panel : row) {
            Colours const& levels = *panel.levels;
            // Rows count from the bottom.
            for (int y = 0; y < levels.height(); ++y)
                std::copy_n(levels.pixels() + koImage::pixelOffset(0, y, levels.width()), levels.width(),
                            sheet->pixels() +
                                koImage::pixelOffset(left, sheet->height() - top - levels.height() + y,
                                                     sheet->width()));
            auto const room = static_cast<std::size_t>(levels.width() / textWidth(1, textScale));
            drawText(*sheet, left, top + levels.height() + gap * textScale, textScale,
                     panel.label.substr(0, room), ink);
            left += levels.width() + space;
        }
        top += size.height;
    }
    return sheet;
}

}  // namespace koTool
