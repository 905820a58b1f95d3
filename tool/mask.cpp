#include "tool/mask.h"

#include "koImage/image/pixel_dispatch.h"

#include <algorithm>
#include <cstdio>

namespace koTool {

using namespace koImage;

namespace {

using MaskPixels = PixelList<unsigned char, Byte4, Half4, float, Float3, Float4>;

float levelOf(unsigned char channel)
{
    return static_cast<float>(channel) / 255.0f;
}

float levelOf(float channel)
{
    return channel;
}

template <class Pixel>
float levelOf(Pixel const& pixel, bool alpha)
{
    if constexpr (requires { pixel.a; })
        if (alpha)
            return levelOf(pixel.a);
    if constexpr (requires { pixel.r; })
        // NaN in any channel but the brightest is passed over.
        return std::max({0.0f, levelOf(pixel.r), levelOf(pixel.g), levelOf(pixel.b)});
    else
        return levelOf(pixel);
}

}  // namespace

void addMaskChoice(CLI::App& command, MaskChoice& choice)
{
    char level[16];
    std::snprintf(level, sizeof level, "%g", double{choice.threshold});
    command
        .add_option("--threshold", choice.threshold,
                    std::string("Pixels of a level above it belong to the mask; 1 is full, ") + level +
                        " without it")
        ->check(numberBetween(0.0, 1e30));
    addChoice(
        command, "--channel",
        std::vector<std::pair<std::string, bool>>{{"brightest", false}, {"alpha", true}},
        [&alpha = choice.alpha](bool chosen) { alpha = chosen; },
        "The channel that the level is taken of: the brightest one of each pixel, or alpha; brightest "
        "without it");
    command.add_flag("--invert", choice.inverted, "The other pixels belong to the mask");
}

BytesReference readMask(Files& files, std::string const& file, MaskChoice const& choice)
{
    auto const picture = files.readLevels(file);
    Image const& image = *picture.image;
    if (choice.alpha && channelCount(image.pixelType()) != 4)
        throw Failure(file + ": has no alpha to take a mask of");

    BytesReference mask(new Bytes);
    mask->resize(image.width(), image.height());
    dispatchPixel(image.pixelType(), MaskPixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        auto const pixels = pixelsOf<Pixel>(image);
        std::transform(pixels.begin(), pixels.end(), mask->pixels(), [&choice](Pixel const& pixel) {
            bool const above = levelOf(pixel, choice.alpha) > choice.threshold;
            return static_cast<unsigned char>(above != choice.inverted ? 255 : 0);
        });
    });
    return mask;
}

}  // namespace koTool
