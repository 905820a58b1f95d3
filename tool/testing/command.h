// Running the built command as a user does.
#pragma once

#include "koImage/image/typed_image.h"
#include "koImageIO/picture.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace koTool::testing {

struct Outcome {
    int exitCode;  ///< 128 + the signal where one ended the command
    std::string out;
    std::string err;
};

/// Runs koimage with these arguments and that standard input.
Outcome koimage(std::vector<std::string> const& arguments, std::string const& input = {});

/// The same by the shell, where `koimage` is the built command.
Outcome shell(std::string const& line);

/// A folder of its own for each test, gone when the test ends.
class Folder {
public:
    Folder();
    ~Folder();
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;

    /// The path of a file in it.
    std::string operator/(std::string const& name) const { return (path_ / name).string(); }

    /// The names of what is in it, sorted.
    std::vector<std::string> names() const;

private:
    std::filesystem::path path_;
};

std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string const& bytes);

/// Picture files made by hand: the first pixel is the upper left one.
std::string ppm(int width, int height, std::vector<int> const& channels);
std::string pgm(int width, int height, std::vector<int> const& values);

/// The channels of a binary PPM of 8 bits, the upper left pixel first.
std::vector<int> ppmChannels(std::string const& file);

/// PFM of three channels; the first pixel is the lower left one, as in those files.
std::string pfm(int width, int height, std::vector<float> const& channels);

/// A picture that must be readable, by the library.
koImageIO::Picture picture(std::string const& path);

/// The same as pixels of Float3.
ko::Reference<koImage::TypedImage<koImage::Float3>> colours(std::string const& path);

/// What `koimage info --json` says of it.
nlohmann::json info(std::string const& path);

}  // namespace koTool::testing
