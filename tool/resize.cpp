// koimage resize: a picture of another size.

#include "koImage/envmap/resize.h"

#include "koImage/envmap/sample_bilinear.h"
#include "koImage/ops/blur.h"
#include "tool/files.h"
#include "tool/filter.h"
#include "tool/shapes.h"

#include <charconv>
#include <cmath>
#include <memory>
#include <optional>

namespace koTool {

using namespace koImage;

namespace {

struct Resize {
    Files files;
    std::string input;
    std::vector<std::string> size;
    bool bilinear = true;
    std::string blur = "0";
    Wrap wrap;
};

struct Size {
    int width;
    int height;
};

/// A whole number, or nothing.
std::optional<int> wholeNumber(std::string const& text)
{
    int number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

/// A part of 1 written as percent, or nothing.
std::optional<double> percent(std::string const& text)
{
    double number = 0.0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || std::string(end) != "%" || !(number > 0.0) || !(number <= 1e6))
        return std::nullopt;
    return number / 100.0;
}

/// Throws where `size` is neither two numbers nor a percentage.
void checkSize(std::vector<std::string> const& size)
{
    if (size.size() == 1 && percent(size[0]))
        return;
    if (size.size() == 2 && wholeNumber(size[0]) && wholeNumber(size[1])) {
        checkPixelCount("SIZE", *wholeNumber(size[0]), *wholeNumber(size[1]));
        return;
    }
    throw CLI::ValidationError("SIZE",
                               "takes a width and a height, as in 512 256, or a percentage, as in 50%");
}

Size sizeFor(Image const& image, std::vector<std::string> const& size)
{
    if (size.size() == 2)
        return {*wholeNumber(size[0]), *wholeNumber(size[1])};

    double const part = *percent(size[0]);
    double const width = std::max(1.0, std::round(image.width() * part));
    double const height = std::max(1.0, std::round(image.height() * part));
    checkPixelCount("SIZE", width, height);
    return {static_cast<int>(width), static_cast<int>(height)};
}

bool takesBlurred(PixelTypeId type)
{
    return ResamplePixels::contains(type) && blurTakes(type);
}

void run(Resize& resize)
{
    auto const picture =
        resize.files.read(resize.input, resize.blur == "0" ? ResamplePixels::contains : takesBlurred);
    auto image = picture.image;
    auto const [width, height] = sizeFor(*image, resize.size);

    int const diameter =
        resize.blur == "auto" ? suggestFilterDiamater(*image, width, height) : *wholeNumber(resize.blur);
    if (diameter > 0) {
        resize.files.work("blurring");
        image = blurred(*image, diameter, resize.wrap);
    }

    resize.files.work("resizing");
    image->setWrap(resize.wrap.horizontal, resize.wrap.vertical);
    ko::Reference<Image> const result(koImage::resize(*image, width, height, resize.bilinear));
    resize.files.write(*result, picture.metadata);
}

void add(CLI::App& command)
{
    auto const resize = std::make_shared<Resize>();
    command.add_option("IN", resize->input, "The picture to read, - for standard input")->required();
    resize->files.addInput(command);
    resize->files.addOutput(command);
    command.add_option("SIZE", resize->size, "Width and height, or a percentage as in 50%")
        ->required()
        ->expected(1, 2);
    addChoice(
        command, "--filter", std::vector<std::pair<std::string, bool>>{{"bilinear", true}, {"point", false}},
        [&chosen = resize->bilinear](bool bilinear) { chosen = bilinear; },
        "How the new pixels are taken; bilinear without it");
    command
        .add_option("--blur", resize->blur,
                    "Diameter of a blur before the picture is reduced; auto takes the one that fits, "
                    "none when a side grows")
        ->check([](std::string const& text) {
            auto const diameter = wholeNumber(text);
            bool const fits = text == "auto" || (diameter && *diameter >= 0 && *diameter <= 1 << 24);
            return fits ? std::string() : "takes auto or a diameter in pixels, not " + text;
        });
    addWrap(command, resize->wrap);
    command.callback([resize] {
        checkSize(resize->size);
        run(*resize);
    });
}

}  // namespace

Verb const resizeVerb = {"resize", "A picture of another size; bytes are resized as they are stored",
                         "koimage resize sky.exr small.exr 512 256 --blur auto\n"
                         "koimage resize panorama.hdr half.hdr 50% --blur auto --wrap x\n"
                         "koimage resize icon.png large.png 400% --filter point",
                         add};

}  // namespace koTool
