#include "tool/display.h"

#include <algorithm>
#include <cmath>

namespace koTool {

using koImage::Float3;

Display::Display(float white) : white_(white), exposure_(-std::log2(white))
{
    koImage::ToneControls controls;
    controls.gamma = 2.2f;
    controls.exposure = exposure_;
    tone_.calculate(controls);
}

Display Display::forSurfaces(Colours const& diffuse)
{
    float most = 0.0f;
    for (Float3 const& pixel : koImage::pixelsOf<Float3>(diffuse))
        most = std::max({most, pixel.r, pixel.g, pixel.b});
    return Display(most > 0.0f ? 1.25f * most : 1.0f);
}

Float3 Display::clip(Float3 const& radiance) const
{
    return {std::clamp(radiance.r, 0.0f, white_), std::clamp(radiance.g, 0.0f, white_),
            std::clamp(radiance.b, 0.0f, white_)};
}

Float3 Display::levels(Float3 const& radiance) const
{
    Float3 pixel = clip(radiance);
    tone_.apply(pixel);
    // White times the exposure may be a little beyond 1.
    return {std::min(pixel.r, 1.0f), std::min(pixel.g, 1.0f), std::min(pixel.b, 1.0f)};
}

ColoursReference Display::levels(Colours const& image) const
{
    ColoursReference shown = newColours(image.width(), image.height());
    auto const pixels = koImage::pixelsOf<Float3>(image);
    std::transform(pixels.begin(), pixels.end(), shown->pixels(),
                   [this](Float3 const& pixel) { return levels(pixel); });
    return shown;
}

ColoursReference newColours(int width, int height)
{
    ColoursReference image(new Colours);
    image->resize(width, height);
    return image;
}

}  // namespace koTool
