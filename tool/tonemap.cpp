// koimage tonemap: exposure, gamma and saturation of a picture.

#include "koImage/image/typed_image.h"
#include "koImage/tone/tone_map.h"
#include "tool/files.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <span>

namespace koTool {

using namespace koImage;

namespace {

struct ToneMapping {
    Files files;
    std::string input;
    ToneControls controls;
    std::optional<float> gamma;
    bool keepsAlpha = true;
};

bool takes(PixelTypeId type)
{
    return type == PixelTypeId::Float3 || type == PixelTypeId::Float4;
}

void mapRun(ToneMap const& map, std::span<Float3> pixels, bool)
{
    map.apply(pixels);
}

void mapRun(ToneMap const& map, std::span<Float4> pixels, bool keepsAlpha)
{
    std::vector<float> alphas;
    if (keepsAlpha) {
        alphas.reserve(pixels.size());
        for (Float4 const& pixel : pixels)
            alphas.push_back(pixel.a);
    }
    map.apply(pixels);
    for (std::size_t i = 0; i < alphas.size(); ++i)
        pixels[i].a = alphas[i];
}

/// Maps a whole image, a run of pixels at a time.
template <class Pixel>
void mapImage(ToneMap const& map, Image& image, bool keepsAlpha, koUtil::Progress* progress)
{
    constexpr std::size_t run = 65536;
    auto const pixels = pixelsOf<Pixel>(image);
    for (std::size_t begin = 0; begin < pixels.size(); begin += run) {
        koUtil::setProgress(progress, static_cast<double>(begin) / static_cast<double>(pixels.size()));
        mapRun(map, pixels.subspan(begin, std::min(run, pixels.size() - begin)), keepsAlpha);
    }
}

void run(ToneMapping& mapping)
{
    auto const picture = mapping.files.read(mapping.input, takes);
    mapping.controls.gamma = mapping.gamma.value_or(1.0f);
    ToneMap map;
    map.calculate(mapping.controls);

    koUtil::Progress* const progress = mapping.files.work("mapping tones");
    if (picture.image->pixelType() == PixelTypeId::Float3)
        mapImage<Float3>(map, *picture.image, mapping.keepsAlpha, progress);
    else
        mapImage<Float4>(map, *picture.image, mapping.keepsAlpha, progress);
    // With a gamma the levels are the display's, and the curve of sRGB on top would be a second one.
    mapping.files.write(*picture.image, picture.metadata, mapping.gamma.has_value());
}

void add(CLI::App& command)
{
    auto const mapping = std::make_shared<ToneMapping>();
    command.add_option("IN", mapping->input, "The picture to read, - for standard input")->required();
    mapping->files.addInput(command);
    mapping->files.addOutput(command, "OUT,-o,--output");
    command
        .add_option("--exposure", mapping->controls.exposure,
                    "Stops: light is multiplied by 2 to this power; 0 without it")
        ->check(numberBetween(-100.0, 100.0));
    command
        .add_option("--gamma", mapping->gamma,
                    "Of the display: light is raised to 1 / gamma, and PNG, PPM and PGM take the levels as "
                    "they are. Without it light stays linear, and those files get the sRGB curve, as of "
                    "every verb")
        ->check(numberBetween(0.01, 100.0));
    command
        .add_option("--saturation", mapping->controls.saturation,
                    "0 is grey, 1 leaves colours as they are, more makes them stronger; 1 without it")
        ->check(numberBetween(0.0, 100.0));
    addChoice(
        command, "--alpha", std::vector<std::pair<std::string, bool>>{{"keep", true}, {"map", false}},
        [&keeps = mapping->keepsAlpha](bool keep) { keeps = keep; },
        "keep leaves alpha as it is, map treats it like a colour; keep without it");
    command.callback([mapping] { run(*mapping); });
}

}  // namespace

Verb const tonemapVerb = {"tonemap", "A picture with another exposure, gamma or saturation",
                          "koimage tonemap sky.exr -o sky.png --exposure -1.5\n"
                          "koimage tonemap sky.exr -o vivid.png --gamma 2.2 --saturation 1.3\n"
                          "koimage tonemap sky.exr -o darker.exr --exposure -2",
                          add};

}  // namespace koTool
