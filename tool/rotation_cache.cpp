#include "tool/rotation_cache.h"

#include "koImage/lighting/rotation_matrices.h"

#include <cstdlib>
#include <filesystem>

namespace koTool {

namespace {

namespace fs = std::filesystem;

fs::path folderOf(char const* variable)
{
    char const* const text = std::getenv(variable);
    fs::path const folder = text != nullptr ? text : "";
    // A relative path would be another folder for each working directory.
    return folder.is_absolute() ? folder : fs::path();
}

fs::path cacheFolder()
{
    if (fs::path cache = folderOf("XDG_CACHE_HOME"); !cache.empty())
        return cache;
    if (fs::path const home = folderOf("HOME"); !home.empty())
        return home / ".cache";
    throw Failure("neither XDG_CACHE_HOME nor HOME names a folder to keep the rotation matrices in; "
                  "koimage rotations makes their file, --rotations names it");
}

std::string cachedRotationFile(Files& files)
{
    fs::path const folder = cacheFolder() / "koimage";
    std::string file = folder / "rotations.txt";
    if (fs::exists(fs::status(file))) {
        files.work("checking " + file);
        koUtil::Error const error = koImage::verifyRotationMatrixFile(file.c_str());
        if (!error)
            return file;
        files.remark(error.message() + "; it is made anew");
    }

    koUtil::Progress* const progress = files.work("computing rotation matrices, once for all");
    std::error_code problem;
    fs::create_directories(folder, problem);
    koUtil::Error const error = problem
                                    ? koUtil::Error(1, "%s: %s", folder.c_str(), problem.message().c_str())
                                    : koImage::writeRotationMatrixFile(file.c_str(), progress);
    if (error)
        throw Failure(error.message() + "; koimage rotations makes the file elsewhere, --rotations names it");
    return file;
}

std::string checkedRotationFile(Files& files, std::string const& file)
{
    files.work("checking " + file);
    if (koUtil::Error const error = koImage::verifyRotationMatrixFile(file.c_str()))
        throw Failure(error.message());
    return file;
}

}  // namespace

std::string loadRotations(Files& files, std::string const& choice)
{
    std::string file = choice.empty() ? cachedRotationFile(files) : checkedRotationFile(files, choice);
    if (!koImage::initializeReflectance(file.c_str(), files.work("reading rotation matrices")))
        throw Failure(file + ": cannot be read");
    return file;
}

}  // namespace koTool
