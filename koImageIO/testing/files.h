// What the tests of formats share: files in memory, hostile variants of them, other programs.
#pragma once

#include "koImage/testing/test_images.h"
#include "koImageIO/picture.h"
#include "koImageIO/testing/largest_request.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace koImageIO::testing {

using Bytes = std::vector<std::byte>;

inline Bytes bytesOfFile(std::string const& name)
{
    std::ifstream file(name, std::ios::binary);
    std::string const text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    auto const bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

inline void writeFile(std::string const& name, std::span<std::byte const> bytes)
{
    std::ofstream file(name, std::ios::binary);
    file.write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

/// A folder of a test's own, gone with it.
class Folder {
public:
    Folder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "ko-XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;
    ~Folder() { std::filesystem::remove_all(path_); }

    std::string operator/(std::string const& name) const { return path_ + "/" + name; }

    /// The names in it, sorted.
    std::vector<std::string> names() const
    {
        std::vector<std::string> names;
        for (auto const& entry : std::filesystem::directory_iterator(path_))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::string path_;
};

/// Whether a program, found in the PATH, ran well. `./check` installs those that the tests use.
inline ::testing::AssertionResult runs(std::string const& command)
{
    if (std::system(command.c_str()) == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "failed: " << command;
}

/// What became of an image written to a file and read again.
struct RoundTrip {
    koUtil::Error error;
    Misfits written;
    Picture picture;
    Bytes file;
};

inline RoundTrip roundTrip(koImage::Image const& image, std::string const& extension,
                           WriteOptions const& write = {}, ReadOptions const& read = {})
{
    Folder const folder;
    RoundTrip trip;
    std::string const name = folder / ("picture." + extension);
    trip.error = writePicture(name, image, trip.written, write);
    if (!trip.error) {
        trip.file = bytesOfFile(name);
        trip.error = readPicture(name, trip.picture, read);
    }
    return trip;
}

/// Reads every truncation of a file, and the file with each byte changed in several ways. Whatever it is, it
/// gives an error that names the file or a picture, and asks for no more memory at once than `most`.
inline void expectNoHarmFrom(Bytes const& file, std::size_t most, ReadOptions const& options = {})
{
    int pictures = 0;
    auto const expectNoHarm = [&](std::span<std::byte const> bytes) {
        // Exactly as long as its memory: a read beyond it is seen by the address sanitizer.
        Bytes const exact(bytes.begin(), bytes.end());
        Picture picture;
        koUtil::Error error;
        std::size_t const largest =
            largestRequestOf([&] { error = readPicture(exact, "damaged", picture, options); });
        EXPECT_LE(largest, most);
        if (error) {
            EXPECT_TRUE(error.message().starts_with("damaged: byte ")) << error.message();
            EXPECT_FALSE(picture.image);
        } else {
            ASSERT_TRUE(picture.image);
            ++pictures;
        }
    };
    for (std::size_t length = 0; length < file.size(); ++length) {
        SCOPED_TRACE(::testing::Message() << "of " << file.size() << " bytes the first " << length);
        expectNoHarm(std::span(file).first(length));
    }
    Bytes damaged = file;
    for (std::size_t i = 0; i < file.size(); ++i) {
        SCOPED_TRACE(::testing::Message() << "byte " << i << " of " << file.size() << " changed");
        for (unsigned const change : {0x01u, 0x02u, 0x04u, 0x08u, 0x10u, 0x20u, 0x40u, 0x80u, 0xFFu}) {
            damaged[i] = file[i] ^ static_cast<std::byte>(change);
            expectNoHarm(damaged);
        }
        damaged[i] = file[i];
    }
    expectNoHarm(file);
    EXPECT_GE(pictures, 1) << "the undamaged file itself is a picture";
}

}  // namespace koImageIO::testing
