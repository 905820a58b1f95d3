// The folder that a verb fills with files.
#pragma once

#include "tool/files.h"

#include <string>
#include <vector>

namespace koTool {

class OutputFolder {
public:
    /// Makes the folder where it is missing.
    explicit OutputFolder(std::string folder);

    /// The path of a file in it, noted as written.
    std::string path(std::string const& name);

    /// Levels of the screen as PNG of 8 bits.
    void savePng(Files& files, std::string const& name, koImage::Image const& levels);

    void saveText(Files& files, std::string const& name, std::string const& text);

    /// The paths so far.
    std::vector<std::string> const& written() const { return written_; }

private:
    std::string folder_;
    std::vector<std::string> written_;
};

}  // namespace koTool
