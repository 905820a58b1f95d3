// koimage convert: the same picture as another type or in another format.

#include "tool/files.h"

#include <memory>

namespace koTool {

namespace {

struct Convert {
    Files files;
    std::string input;
};

void run(Convert& convert)
{
    auto const picture = convert.files.read(convert.input);
    convert.files.write(*picture.image, picture.metadata);
}

void add(CLI::App& command)
{
    auto const convert = std::make_shared<Convert>();
    command.add_option("IN", convert->input, "The picture to read, - for standard input")->required();
    convert->files.addInput(command);
    convert->files.addOutput(command);
    command.callback([convert] { run(*convert); });
}

}  // namespace

Verb const convertVerb = {"convert", "The same picture in another format or pixel type",
                          "koimage convert sky.hdr sky.exr\n"
                          "koimage convert sky.exr preview.png\n"
                          "koimage convert sky.exr small.exr --bits 16 --compression piz\n"
                          "koimage convert sky.exr --type Float3 --format pfm - > sky.pfm",
                          add};

}  // namespace koTool
