// koimage face: one face of a cross, out of it or into it.

#include "koImage/envmap/cross_map.h"
#include "koImage/image/factory.h"
#include "tool/files.h"
#include "tool/shapes.h"

#include <memory>

namespace koTool {

using namespace koImage;

namespace {

struct Face {
    Files files;
    std::string input;
    int index = 0;
    std::string paste;
};

/// The picture's cross, which holds its image.
ko::Reference<CrossMap> crossOf(Image& image, std::string const& file)
{
    auto const map = requireMap(image, file);
    if (map->mapType() != EnvironmentMapType::Cross)
        throw Failure(file + ": is a " + shapeName(*map) +
                      " map; only crosses have faces (koimage remap --shape cross makes one)");
    return static_cast<CrossMap*>(map.get());
}

void run(Face& face)
{
    auto const picture = face.files.read(face.input);
    auto const cross = crossOf(*picture.image, face.input);
    ko::Reference<Image> const ofCross(imageCreateByType(picture.image->pixelType()));
    cross->copyFace(*picture.image, *ofCross, face.index);

    if (face.paste.empty()) {
        auto const metadata = without(without(picture.metadata, "shape"), "orientation");
        face.files.write(*ofCross, metadata);
        return;
    }

    auto const pasted = face.files.readAs(face.paste, picture.image->pixelType());
    if (pasted.image->width() != ofCross->width() || pasted.image->height() != ofCross->height())
        throw Failure(face.paste + ": is " + std::to_string(pasted.image->width()) + " x " +
                      std::to_string(pasted.image->height()) + "; faces of " + face.input + " are " +
                      std::to_string(ofCross->width()) + " x " + std::to_string(ofCross->height()));
    cross->pasteFace(*pasted.image, face.index);
    face.files.write(*picture.image, describeMap(*cross, picture.metadata));
}

void add(CLI::App& command)
{
    auto const face = std::make_shared<Face>();
    command.add_option("CROSS", face->input, "The cross to read, vertical or horizontal")->required();
    face->files.addInput(command);
    face->files.addOutput(command);
    addChoice(
        command, "--face",
        // The numbers of the faces, in their order.
        std::vector<std::pair<std::string, int>>{
            {"-x", 0}, {"+x", 1}, {"-z", 2}, {"+z", 3}, {"-y", 4}, {"+y", 5}},
        [&index = face->index](int number) { index = number; }, "The face, named by its axis")
        ->required();
    command.add_option("--paste", face->paste,
                       "A picture to put in place of the face; OUT is the whole cross then");
    command.callback([face] { run(*face); });
}

}  // namespace

Verb const faceVerb = {"face", "One face of a cross, copied out or pasted in",
                       "koimage face cross.exr up.exr --face +z\n"
                       "koimage face cross.exr painted.exr --face +z --paste up.exr",
                       add};

}  // namespace koTool
