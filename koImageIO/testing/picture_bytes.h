// Picture files as bytes: what the tests of single formats share.
#pragma once

#include "koImage/testing/test_images.h"
#include "koImageIO/picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace koImageIO::testing {

inline std::span<std::byte const> bytesOf(std::string const& file)
{
    return std::as_bytes(std::span(file));
}

inline std::string textOf(std::initializer_list<int> bytes)
{
    std::string text;
    for (int const byte : bytes)
        text += static_cast<char>(byte);
    return text;
}

inline ReadOptions reading(Transfer transfer)
{
    ReadOptions options;
    options.transfer = transfer;
    return options;
}

inline WriteOptions writing(int bits, Transfer transfer = Transfer::Srgb)
{
    WriteOptions options;
    options.bits = bits;
    options.transfer = transfer;
    return options;
}

/// Reads a file that is whole.
inline Picture pictureOf(std::string const& file, ReadOptions const& options = {})
{
    Picture picture;
    koUtil::Error const error = readPicture(bytesOf(file), "memory", picture, options);
    EXPECT_FALSE(error) << error.message();
    if (error)
        throw std::runtime_error(error.message());
    return picture;
}

/// What is said about a file that is not.
inline std::string complaintAbout(std::string const& file)
{
    Picture picture;
    koUtil::Error const error = readPicture(bytesOf(file), "memory", picture);
    EXPECT_TRUE(error);
    EXPECT_EQ(picture.image.get(), nullptr) << "a failure leaves the picture as it was";
    return error.message();
}

/// A name that no other test process has, removed in the end.
class TemporaryFile {
public:
    explicit TemporaryFile(std::string const& extension)
        : name_(::testing::TempDir() + "koimageio-" + std::to_string(getpid()) + "-" +
                std::to_string(count_++) + extension)
    {
    }
    TemporaryFile(TemporaryFile const&) = delete;
    TemporaryFile& operator=(TemporaryFile const&) = delete;
    ~TemporaryFile() { std::remove(name_.c_str()); }

    std::string const& name() const { return name_; }

    std::string bytes() const
    {
        std::ifstream in(name_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    void write(std::string const& bytes) const
    {
        std::ofstream(name_, std::ios::binary)
            .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

private:
    static inline int count_ = 0;
    std::string name_;
};

/// The bytes of a file in the format of that extension.
inline std::string fileOf(koImage::Image const& image, std::string const& extension, Misfits& misfits,
                          WriteOptions const& options = {})
{
    TemporaryFile const file(extension);
    koUtil::Error const error = writePicture(koOS::Filename(file.name()), image, misfits, options);
    EXPECT_FALSE(error) << error.message();
    return file.bytes();
}

/// The same of an image that fits.
inline std::string fileOf(koImage::Image const& image, std::string const& extension,
                          WriteOptions const& options = {})
{
    Misfits misfits;
    std::string file = fileOf(image, extension, misfits, options);
    EXPECT_EQ(misfits, Misfits());
    return file;
}

/// Reads damaged bytes: there is a message that names the file and the byte, or a picture that such a file
/// may hold.
inline void expectSurvives(std::span<std::byte const> damaged, std::int64_t mostPixels)
{
    Picture picture;
    if (koUtil::Error const error = readPicture(damaged, "memory", picture)) {
        ASSERT_THAT(error.message(), ::testing::MatchesRegex("memory: byte [0-9]+: .+"));
        ASSERT_EQ(picture.image.get(), nullptr);
        return;
    }
    ASSERT_NE(picture.image.get(), nullptr);
    ASSERT_NE(picture.image->data(), nullptr);
    ASSERT_GT(picture.image->width(), 0);
    ASSERT_GT(picture.image->height(), 0);
    ASSERT_EQ(std::int64_t{picture.image->width()} * picture.image->height(), picture.image->pixelCount());
    ASSERT_LE(picture.image->pixelCount(), mostPixels);
}

/// Every truncation of a file and every other value of each of its bytes.
inline void expectSurvivesEveryDamage(std::string const& file, std::int64_t mostPixels)
{
    // Vectors of the exact size, so that the address sanitizer sees the first byte beyond.
    for (std::size_t size = 0; size < file.size(); ++size) {
        SCOPED_TRACE(::testing::Message() << "the first " << size << " bytes");
        std::vector<std::byte> const truncated(bytesOf(file).begin(),
                                               bytesOf(file).begin() + std::ptrdiff_t(size));
        ASSERT_NO_FATAL_FAILURE(expectSurvives(truncated, mostPixels));
    }
    std::vector<std::byte> changed(bytesOf(file).begin(), bytesOf(file).end());
    for (std::size_t at = 0; at < file.size(); ++at) {
        for (int difference = 1; difference < 256; ++difference) {
            SCOPED_TRACE(::testing::Message() << "byte " << at << " changed by " << difference);
            changed[at] = bytesOf(file)[at] ^ std::byte(difference);
            ASSERT_NO_FATAL_FAILURE(expectSurvives(changed, mostPixels));
        }
        changed[at] = bytesOf(file)[at];
    }
}

}  // namespace koImageIO::testing
