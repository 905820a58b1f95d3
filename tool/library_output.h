// What the library prints, kept out of the command's own output.
#pragma once

#include <cstdio>
#include <string>

namespace koTool {

/// While it lives, standard output goes to a file without a name.
///
///   threads   standard output is the process's: nothing else may print meanwhile
class LibraryOutput {
public:
    LibraryOutput();
    ~LibraryOutput();
    LibraryOutput(LibraryOutput const&) = delete;
    LibraryOutput& operator=(LibraryOutput const&) = delete;

    /// What has been printed so far.
    std::string text();

private:
    std::FILE* file_;
    int standardOutput_;
};

}  // namespace koTool
