#include "tool/lettering.h"

#include <gmock/gmock.h>

#include <set>

namespace koTool::testing {
namespace {

using koImage::Float3;

ColoursReference drawn(std::string const& text, int left = 0, int top = 0, int scale = 1)
{
    ColoursReference image = newColours(40, 20);
    std::fill_n(image->pixels(), image->pixelCount(), Float3{});
    drawText(*image, left, top, scale, text, {1.0f, 0.5f, 0.25f});
    return image;
}

/// '#' for ink, the upper row first.
std::string asText(Colours const& image, int width, int height)
{
    std::string text;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            text += image.pixels()[koImage::pixelOffset(x, image.height() - 1 - y, image.width())].r > 0
                        ? '#'
                        : '.';
        text += '\n';
    }
    return text;
}

TEST(DrawText, DrawsLettersUpright)
{
    EXPECT_EQ("#.....#####\n"
              "#.....#....\n"
              "#.....#....\n"
              "#.....####.\n"
              "#.....#....\n"
              "#.....#....\n"
              "#####.#....\n",
              asText(*drawn("LF"), 11, 7));
}

TEST(DrawText, GivesEveryCharacterAFormOfItsOwn)
{
    std::string const known = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.,:+-%/()_ ?";
    std::set<std::string> forms;
    for (char const c : known)
        forms.insert(asText(*drawn(std::string(1, c)), 5, 7));
    EXPECT_EQ(known.size(), forms.size());
    EXPECT_EQ(asText(*drawn("A"), 5, 7), asText(*drawn("a"), 5, 7));
    EXPECT_EQ(asText(*drawn("?"), 5, 7), asText(*drawn("\xC3"), 5, 7));
}

TEST(DrawText, EnlargesLetters)
{
    auto const small = asText(*drawn("R"), 5, 7);
    auto const large = asText(*drawn("R", 0, 0, 2), 10, 14);
    for (std::size_t y = 0; y < 14; ++y)
        for (std::size_t x = 0; x < 10; ++x)
            EXPECT_EQ(small[y / 2 * 6 + x / 2], large[y * 11 + x]);
}

TEST(DrawText, LeavesOutWhatLiesOutsideThePicture)
{
    EXPECT_EQ(std::string::npos, asText(*drawn("M", -6, 0), 40, 20).find('#'));
    EXPECT_EQ(std::string::npos, asText(*drawn("M", 0, 20), 40, 20).find('#'));
    EXPECT_NE(std::string::npos, asText(*drawn("MMMMMMMMMMMM", -3, 15), 40, 20).find('#'));
}

}  // namespace
}  // namespace koTool::testing
