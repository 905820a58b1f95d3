#include "tool/library_output.h"

#include "tool/verb.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace koTool {

LibraryOutput::LibraryOutput() : file_(std::tmpfile()), standardOutput_(::dup(STDOUT_FILENO))
{
    if (file_ == nullptr || standardOutput_ < 0) {
        std::string const reason = std::strerror(errno);
        if (file_ != nullptr)
            std::fclose(file_);
        if (standardOutput_ >= 0)
            ::close(standardOutput_);
        throw Failure("standard output cannot be set aside: " + reason);
    }
    std::fflush(stdout);
    ::dup2(::fileno(file_), STDOUT_FILENO);
}

LibraryOutput::~LibraryOutput()
{
    std::fflush(stdout);
    ::dup2(standardOutput_, STDOUT_FILENO);
    ::close(standardOutput_);
    std::fclose(file_);
}

std::string LibraryOutput::text()
{
    std::fflush(stdout);
    std::string text;
    char block[1024];
    ssize_t got = 0;
    // By position: both descriptors share theirs, and printing goes on where it was.
    while ((got = ::pread(::fileno(file_), block, sizeof block, static_cast<off_t>(text.size()))) > 0)
        text.append(block, static_cast<std::size_t>(got));
    return text;
}

}  // namespace koTool
