// koimage premultiply, unpremultiply: alpha multiplied into the colours, and out of them.

#include "koImage/image/alpha.h"
#include "koImage/image/typed_image.h"
#include "tool/files.h"

#include <memory>

namespace koTool {

using namespace koImage;

namespace {

using Operation = void (*)(unsigned char* pixels, int width, int height, int channels);

struct Alpha {
    Files files;
    std::string input;
};

void run(Alpha& alpha, Operation operate)
{
    auto const picture = alpha.files.read(alpha.input);
    auto const type = picture.image->pixelType();
    if (type != PixelTypeId::Byte4 && type != PixelTypeId::Byte)
        throw Failure(alpha.input + ": pixels of " + typeName(type) +
                      " cannot be worked on so, only 8 bits a channel; --type Byte4 reads them as such");

    if (type == PixelTypeId::Byte4)
        operate(&pixelsOf<Byte4>(*picture.image).data()->r, picture.image->width(), picture.image->height(),
                4);
    else
        alpha.files.remark(alpha.input + ": is grey without alpha, and stays as it is");
    alpha.files.write(*picture.image, picture.metadata);
}

template <Operation operate>
void add(CLI::App& command)
{
    auto const alpha = std::make_shared<Alpha>();
    command
        .add_option("IN", alpha->input,
                    "The picture to read, - for standard input; of 8 bits a channel, which are worked on as "
                    "they are stored")
        ->required();
    alpha->files.addInput(command);
    alpha->files.addOutput(command, "OUT,-o,--output");
    command.callback([alpha] { run(*alpha, operate); });
}

}  // namespace

Verb const premultiplyVerb = {"premultiply", "Colours times alpha; the bytes as they are stored",
                              "koimage premultiply leaf.png -o leaf-premultiplied.png",
                              add<convert2PreMultipliedAlpha>};
Verb const unpremultiplyVerb = {"unpremultiply", "Colours divided by alpha; where alpha is 0 they stay",
                                "koimage unpremultiply leaf-premultiplied.png -o leaf.png",
                                add<convert2NonPreMultipliedAlpha>};

}  // namespace koTool
