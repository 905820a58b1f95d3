// koimage add, sub, mult, div: two pictures, pixel by pixel.

#include "koImage/ops/arithmetic.h"

#include "koImage/image/factory.h"
#include "tool/files.h"

#include <memory>

namespace koTool {

using namespace koImage;

namespace {

using Operation = void (*)(Image const& a, Image const& b, Image& result);

struct Arithmetic {
    Files files;
    std::string first;
    std::string second;
};

bool hasAlpha(PixelTypeId type)
{
    return channelCount(type) == 4;
}

void run(Arithmetic& arithmetic, Operation operate)
{
    auto a = arithmetic.files.read(arithmetic.first, AddPixels::contains);
    auto b = arithmetic.files.read(arithmetic.second, AddPixels::contains);
    requireSameSize(arithmetic.second, *b.image, arithmetic.first, *a.image);

    // Pictures of two types meet as colours of floats: the type that all of them have in common.
    auto const aType = a.image->pixelType();
    auto const bType = b.image->pixelType();
    if (aType != bType) {
        if (hasAlpha(aType) || hasAlpha(bType))
            arithmetic.files.remark("alpha is left out: " + arithmetic.first + " is " + typeName(aType) +
                                    ", " + arithmetic.second + " is " + typeName(bType));
        if (aType != PixelTypeId::Float3)
            a = arithmetic.files.readAs(arithmetic.first, PixelTypeId::Float3);
        if (bType != PixelTypeId::Float3)
            b = arithmetic.files.readAs(arithmetic.second, PixelTypeId::Float3);
    }

    arithmetic.files.work("calculating");
    operate(*a.image, *b.image, *a.image);
    arithmetic.files.write(*a.image, a.metadata);
}

template <Operation operate>
void add(CLI::App& command)
{
    auto const arithmetic = std::make_shared<Arithmetic>();
    command.add_option("A", arithmetic->first, "The first picture, - for standard input")->required();
    command
        .add_option("B", arithmetic->second,
                    "The second, of the same size. Two pictures of halves, of Float3 or of Float4 are "
                    "calculated as they are,\n"
                    "alpha like a colour; any others as Float3: linear light, without alpha")
        ->required();
    arithmetic->files.addInput(command);
    arithmetic->files.addOutput(command);
    command.callback([arithmetic] { run(*arithmetic, operate); });
}

}  // namespace

Verb const addVerb = {"add", "A + B", "koimage add room.exr lamp.exr lit.exr", add<imageAdd>};
Verb const subVerb = {"sub", "A - B", "koimage sub after.exr before.exr change.exr", add<imageSub>};
Verb const multVerb = {"mult", "A * B", "koimage mult sky.exr mask.png masked.exr", add<imageMult>};
Verb const divVerb = {"div", "A / B", "koimage div measured.exr expected.exr ratio.exr", add<imageDiv>};

}  // namespace koTool
