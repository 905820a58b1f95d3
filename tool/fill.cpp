// koimage fill: holes of a picture filled from the pixels around them.

#include "koImage/image/typed_image.h"
#include "koImage/ops/interpolate.h"
#include "tool/files.h"
#include "tool/mask.h"

#include <algorithm>
#include <memory>

namespace koTool {

using namespace koImage;

namespace {

struct Fill {
    Files files;
    std::string values;
    std::string mask;
    MaskChoice choice = {.threshold = 0.0f};
};

/// Each channel by itself, as if it were a grey picture.
void fillChannels(Bytes const& mask, TypedImage<Byte4>& image, koUtil::Progress* progress)
{
    BytesReference const channel(new Bytes);
    channel->resize(image.width(), image.height());
    auto const pixels = pixelsOf<Byte4>(image);
    double done = 0.0;
    for (auto const member : {&Byte4::r, &Byte4::g, &Byte4::b, &Byte4::a}) {
        std::transform(pixels.begin(), pixels.end(), channel->pixels(),
                       [member](Byte4 const& pixel) { return pixel.*member; });
        imageInterpolate(mask, *channel);
        for (std::size_t i = 0; i < pixels.size(); ++i)
            pixels[i].*member = channel->pixels()[i];
        koUtil::setProgress(progress, done += 0.25);
    }
}

void run(Fill& fill)
{
    auto const picture = fill.files.read(fill.values);
    Image& image = *picture.image;
    auto const type = image.pixelType();
    if (type != PixelTypeId::Byte && type != PixelTypeId::Byte4)
        throw Failure(fill.values + ": pixels of " + typeName(type) +
                      " cannot be filled, only 8 bits a channel; --type Byte or Byte4 reads them as such");

    auto const mask = readMask(fill.files, fill.mask, fill.choice);
    requireSameSize(fill.mask, *mask, fill.values, image);
    auto const known = pixelsOf<unsigned char>(*mask);
    if (std::find(known.begin(), known.end(), 255) == known.end())
        throw Failure(fill.mask + ": knows no pixel that holes could be filled from");

    koUtil::Progress* const progress = fill.files.work("filling");
    if (type == PixelTypeId::Byte)
        imageInterpolate(*mask, static_cast<Bytes&>(image));
    else
        fillChannels(*mask, static_cast<TypedImage<Byte4>&>(image), progress);
    fill.files.write(image, picture.metadata);
}

void add(CLI::App& command)
{
    auto const fill = std::make_shared<Fill>();
    command
        .add_option("VALUES", fill->values,
                    "The picture to read, - for standard input; of 8 bits a channel, each filled by itself, "
                    "alpha too")
        ->required();
    fill->files.addInput(command);
    fill->files.addOutput(command, "OUT,-o,--output");
    command
        .add_option("--mask", fill->mask,
                    "A picture of the same size: its mask are the pixels that are known, all others are "
                    "holes")
        ->required();
    addMaskChoice(command, fill->choice);
    command.callback([fill] { run(*fill); });
}

}  // namespace

Verb const fillVerb = {"fill", "Holes filled from the known pixels of their rows and columns",
                       "koimage fill photo.png --mask known.png -o filled.png\n"
                       "koimage fill cut.png --mask cut.png --channel alpha -o filled.png\n"
                       "koimage fill photo.png --mask scratches.png --invert -o mended.png",
                       add};

}  // namespace koTool
