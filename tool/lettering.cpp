#include "tool/lettering.h"

#include <cstring>

namespace koTool {

namespace {

struct Strip {
    char const* characters;
    char const* rows[letterHeight];  // upper row first, a column between the letters
};

// clang-format off
constexpr Strip strips[] = {
    {"ABCDEFGHIJKLMNOP",
     {" ###  ####   #### ####  ##### #####  #### #   #  ###    ### #   # #     #   # #   #  ###  #### ",
      "#   # #   # #     #   # #     #     #     #   #   #      #  #  #  #     ## ## ##  # #   # #   #",
      "#   # #   # #     #   # #     #     #     #   #   #      #  # #   #     # # # ##  # #   # #   #",
      "##### ####  #     #   # ####  ####  #  ## #####   #      #  ##    #     # # # # # # #   # #### ",
      "#   # #   # #     #   # #     #     #   # #   #   #      #  # #   #     #   # #  ## #   # #    ",
      "#   # #   # #     #   # #     #     #   # #   #   #   #  #  #  #  #     #   # #  ## #   # #    ",
      "#   # ####   #### ####  ##### #      #### #   #  ###   ##   #   # ##### #   # #   #  ###  #    "}},
    {"QRSTUVWXYZ012345",
     {" ###  ####   #### ##### #   # #   # #   # #   # #   # #####  ###    #    ###  #####    #  #####",
      "#   # #   # #       #   #   # #   # #   # #   # #   #     # #   #  ##   #   #    #    ##  #    ",
      "#   # #   # #       #   #   # #   # #   #  # #   # #     #  #  ##   #       #   #    # #  #### ",
      "#   # ####   ###    #   #   # #   # # # #   #     #     #   # # #   #      #     #  #  #      #",
      "# # # # #       #   #   #   #  # #  # # #  # #    #    #    ##  #   #     #       # #####     #",
      "#  #  #  #      #   #   #   #  # #  ## ## #   #   #   #     #   #   #    #    #   #    #  #   #",
      " ## # #   # ####    #    ###    #   #   # #   #   #   #####  ###   ###  #####  ###     #   ### "}},
    {"6789.,:+-%/()_ ?",
     {"  ##  #####  ###   ###                                ##             #   #                 ### ",
      " #        # #   # #   #              ##     #         ##  #     #   #     #               #   #",
      "#        #  #   # #   #              ##     #            #     #   #       #                  #",
      "####    #    ###   ####                   ##### #####   #     #    #       #                 # ",
      "#   #   #   #   #     #        ##    ##     #          #     #     #       #                #  ",
      "#   #   #   #   #    #   ##    ##    ##     #         #  ## #       #     #                    ",
      " ###    #    ###   ##    ##    #                         ##          #   #    #####         #  "}},
};
// clang-format on

/// Whether the letter has ink at a place; capitals stand for small letters as well.
bool inked(char letter, int column, int row)
{
    char const capital = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    for (Strip const& strip : strips)
        if (char const* const found = std::strchr(strip.characters, capital); found != nullptr && *found != 0)
            return strip.rows[row][(found - strip.characters) * (letterWidth + 1) + column] == '#';
    return inked('?', column, row);
}

}  // namespace

void drawText(Colours& image, int left, int top, int scale, std::string const& text,
              koImage::Float3 const& colour)
{
    for (std::size_t i = 0; i < text.size(); ++i)
        for (int y = 0; y < letterHeight * scale; ++y)
            for (int x = 0; x < letterWidth * scale; ++x) {
                int const column = left + textWidth(i, scale) + x;
                int const row = image.height() - 1 - (top + y);  // row 0 is the bottom
                if (inked(text[i], x / scale, y / scale) && column >= 0 && column < image.width() &&
                    row >= 0 && row < image.height())
                    image.pixels()[koImage::pixelOffset(column, row, image.width())] = colour;
            }
}

}  // namespace koTool
