// koimage rotations: the file of rotation matrices that lighting reads.

#include "koImage/lighting/rotation_matrices.h"
#include "tool/files.h"

#include <iostream>
#include <memory>

namespace koTool {

namespace {

struct Rotations {
    Files files;
    std::string output;
    std::string check;
};

void run(Rotations& rotations)
{
    koUtil::Error error;
    if (!rotations.output.empty()) {
        koUtil::Progress* const progress = rotations.files.work("computing rotation matrices");
        error = koImage::writeRotationMatrixFile(rotations.output.c_str(), progress);
    } else {
        rotations.files.work("checking " + rotations.check);
        error = koImage::verifyRotationMatrixFile(rotations.check.c_str());
    }
    rotations.files.endLine();
    if (error)
        throw Failure(error.message());
    if (!rotations.check.empty())
        std::cout << printable(rotations.check) << ": complete and right\n";
}

void add(CLI::App& command)
{
    auto const rotations = std::make_shared<Rotations>();
    CLI::Option* const output =
        command.add_option("-o,--output", rotations->output, "The file to write: about 13 MB of text");
    command
        .add_option("--check", rotations->check,
                    "The file to check: complete, well-formed, and every number right to six decimals")
        ->excludes(output);
    rotations->files.addQuiet(command);
    command.callback([rotations] {
        if (rotations->output.empty() && rotations->check.empty())
            throw CLI::RequiredError("-o or --check");
        run(*rotations);
    });
}

}  // namespace

Verb const rotationsVerb = {"rotations", "The file of rotation matrices that light is computed with",
                            "koimage rotations -o rotations.txt\n"
                            "koimage rotations --check rotations.txt",
                            add};

}  // namespace koTool
