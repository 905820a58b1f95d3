#include "tool/output_folder.h"

#include <filesystem>
#include <system_error>
#include <utility>

namespace koTool {

OutputFolder::OutputFolder(std::string folder) : folder_(std::move(folder))
{
    std::error_code problem;
    std::filesystem::create_directories(folder_, problem);
    if (problem)
        throw Failure(folder_ + ": " + problem.message());
}

std::string OutputFolder::path(std::string const& name)
{
    written_.push_back(std::filesystem::path(folder_) / name);
    return written_.back();
}

void OutputFolder::savePng(Files& files, std::string const& name, koImage::Image const& levels)
{
    koImageIO::WriteOptions options;
    options.bits = 8;
    options.levels = true;
    files.save(path(name), levels, options);
}

void OutputFolder::saveText(Files& files, std::string const& name, std::string const& text)
{
    files.saveText(path(name), text);
}

}  // namespace koTool
