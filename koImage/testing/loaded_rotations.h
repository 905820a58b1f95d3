// The library's own rotation matrices, for tests and benchmarks of what needs them.
#pragma once

#include "koImage/lighting/rotation_matrices.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace koImage::testing {

/// A file of our matrices, loaded while the object lives.
class LoadedRotations {
public:
    LoadedRotations() : path_((std::filesystem::temp_directory_path() / "koImage.XXXXXX").string())
    {
        close(mkstemp(path_.data()));
        koUtil::Error const error = writeRotationMatrixFile(path_.c_str(), nullptr);
        finalizeReflectance();
        if (error || !initializeReflectance(path_.c_str(), nullptr))
            throw std::runtime_error(error.message());
    }
    ~LoadedRotations()
    {
        finalizeReflectance();
        std::remove(path_.c_str());
    }
    LoadedRotations(LoadedRotations const&) = delete;
    LoadedRotations& operator=(LoadedRotations const&) = delete;

    std::string const& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace koImage::testing
