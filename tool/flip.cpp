// koimage flip: a mirrored picture.

#include "koImage/image/flip.h"

#include "tool/files.h"

#include <memory>

namespace koTool {

namespace {

struct Flip {
    Files files;
    std::string input;
    bool horizontal = false;
    bool vertical = false;
};

void run(Flip& flip)
{
    auto const picture = flip.files.read(flip.input, koImage::FlipHorizontalPixels::contains);
    if (flip.horizontal)
        koImage::imageFlipHorizontal(*picture.image);
    if (flip.vertical)
        koImage::imageFlipVertical(*picture.image);
    // What was said of the picture's orientation is no longer true.
    flip.files.write(*picture.image, without(picture.metadata, "orientation"));
}

void add(CLI::App& command)
{
    auto const flip = std::make_shared<Flip>();
    command.add_option("IN", flip->input, "The picture to read, - for standard input")->required();
    flip->files.addInput(command);
    flip->files.addOutput(command);
    command.add_flag("--horizontal", flip->horizontal, "Left becomes right");
    command.add_flag("--vertical", flip->vertical, "Top becomes bottom");
    command.callback([flip] {
        if (!flip->horizontal && !flip->vertical)
            throw CLI::ValidationError("flip", "needs --horizontal, --vertical or both");
        run(*flip);
    });
}

}  // namespace

Verb const flipVerb = {"flip", "A mirrored picture",
                       "koimage flip sky.exr mirrored.exr --horizontal\n"
                       "koimage flip sky.exr turned.exr --horizontal --vertical",
                       add};

}  // namespace koTool
