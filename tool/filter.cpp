#include "tool/filter.h"

#include "koImage/image/factory.h"
#include "koImage/image/typed_image.h"
#include "koImage/ops/blur.h"

#include <cstddef>

namespace koTool {

using namespace koImage;

namespace {

/// imageBlur leaves out Float4: its colours go through as Float3, its alpha as float, which is the same as
/// each channel is filtered by itself.
void blurColourAndAlpha(TypedImage<Float4> const& image, TypedImage<Float4>& result, int diameter, Wrap wrap)
{
    ko::Reference<TypedImage<Float3>> const colours(new TypedImage<Float3>);
    ko::Reference<TypedImage<float>> const alphas(new TypedImage<float>);
    colours->resize(image.width(), image.height());
    alphas->resize(image.width(), image.height());
    for (std::size_t i = 0; i < image.arrayLength(); ++i) {
        Float4 const& pixel = image.pixels()[i];
        colours->pixels()[i] = {pixel.r, pixel.g, pixel.b};
        alphas->pixels()[i] = pixel.a;
    }

    imageBlur(*colours, *colours, diameter, wrap.horizontal, wrap.vertical);
    imageBlur(*alphas, *alphas, diameter, wrap.horizontal, wrap.vertical);

    result.resize(image.width(), image.height());
    for (std::size_t i = 0; i < result.arrayLength(); ++i) {
        Float3 const& colour = colours->pixels()[i];
        result.pixels()[i] = {colour.r, colour.g, colour.b, alphas->pixels()[i]};
    }
}

}  // namespace

void addWrap(CLI::App& command, Wrap& wrap)
{
    auto const take = [&wrap](std::string const& axes) {
        wrap = {axes.find('x') != std::string::npos, axes.find('y') != std::string::npos};
    };
    command
        .add_option_function<std::string>(
            "--wrap", take,
            "Edges that meet: x for left and right, as in lat-long maps, y for bottom and top, or xy")
        ->check(CLI::IsMember({"x", "y", "xy"}));
}

bool blurTakes(PixelTypeId type)
{
    return (BlurPixels::contains(type) && type != PixelTypeId::Half4) || type == PixelTypeId::Float4;
}

ko::Reference<Image> blurred(Image const& image, int diameter, Wrap wrap)
{
    ko::Reference<Image> result(image.createEmpty());
    if (image.pixelType() == PixelTypeId::Float4)
        blurColourAndAlpha(static_cast<TypedImage<Float4> const&>(image),
                           static_cast<TypedImage<Float4>&>(*result), diameter, wrap);
    else
        imageBlur(image, *result, diameter, wrap.horizontal, wrap.vertical);
    return result;
}

}  // namespace koTool
