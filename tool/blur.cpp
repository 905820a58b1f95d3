// koimage blur: a low-pass filter of a chosen diameter.

#include "tool/files.h"
#include "tool/filter.h"

#include <memory>

namespace koTool {

namespace {

struct Blur {
    Files files;
    std::string input;
    int diameter = 0;
    Wrap wrap;
};

void run(Blur& blur)
{
    auto const picture = blur.files.read(blur.input, blurTakes);
    blur.files.work("blurring");
    blur.files.write(*blurred(*picture.image, blur.diameter, blur.wrap), picture.metadata);
}

void add(CLI::App& command)
{
    auto const blur = std::make_shared<Blur>();
    command.add_option("IN", blur->input, "The picture to read, - for standard input")->required();
    blur->files.addInput(command);
    blur->files.addOutput(command);
    command.add_option("DIAMETER", blur->diameter, "Of the filter, in pixels; 0 is no blur")
        ->required()
        ->check(CLI::Range(0, 1 << 24));
    addWrap(command, blur->wrap);
    command.callback([blur] { run(*blur); });
}

}  // namespace

Verb const blurVerb = {"blur", "A blurred picture: bytes as they are stored, halves as floats",
                       "koimage blur sky.exr soft.exr 15\n"
                       "koimage blur panorama.exr soft.exr 31 --wrap x",
                       add};

}  // namespace koTool
