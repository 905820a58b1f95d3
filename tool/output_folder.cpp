#include "tool/output_folder.h"

#include "koBase/output_file.h"

#include <filesystem>
#include <span>
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
    options.transfer = koImageIO::Transfer::None;  // they are levels already
    files.save(path(name), levels, options);
}

void OutputFolder::saveText(std::string const& name, std::string const& text)
{
    koOS::OutputFile file(path(name));
    file.write(std::as_bytes(std::span(text)));
    if (koUtil::Error const error = file.commit())
        throw Failure(error.message());
}

}  // namespace koTool
