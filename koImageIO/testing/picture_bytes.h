// Picture files as text: what the tests of the formats share that begin with words.
#pragma once

#include "koImageIO/testing/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <stdexcept>
#include <string>

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

inline std::string textOfFile(std::string const& name)
{
    Bytes const bytes = bytesOfFile(name);
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
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

/// The bytes of an image in the format of that extension.
inline std::string fileOf(koImage::Image const& image, std::string const& extension, Misfits& misfits,
                          WriteOptions const& options = {})
{
    Folder const folder;
    std::string const name = folder / ("picture" + extension);
    koUtil::Error const error = writePicture(koOS::Filename(name), image, misfits, options);
    EXPECT_FALSE(error) << error.message();
    return textOfFile(name);
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

/// A file converted by ImageMagick, its options in front of the result: "-depth 8" "ppm".
inline std::string convertedByOthers(std::string const& file, std::string const& from,
                                     std::string const& options, std::string const& to)
{
    Folder const folder;
    writeFile(folder / "picture", bytesOf(file));
    EXPECT_TRUE(runs("convert-im6 " + from + ":" + folder / "picture" + " " + options + " " + to + ":" +
                     folder / "converted"));
    return textOfFile(folder / "converted");
}

/// Reads damaged bytes: there is a message that names the file and the byte, or a whole picture, and no piece
/// of memory larger than `most` was asked for.
inline void expectSurvives(std::span<std::byte const> damaged, std::size_t most)
{
    Picture picture;
    koUtil::Error error;
    ASSERT_LE(largestRequestOf([&] { error = readPicture(damaged, "memory", picture); }), most);
    if (error) {
        ASSERT_THAT(error.message(), ::testing::MatchesRegex("memory: byte [0-9]+: .+"));
        ASSERT_EQ(picture.image.get(), nullptr);
        return;
    }
    ASSERT_NE(picture.image.get(), nullptr);
    ASSERT_NE(picture.image->data(), nullptr);
    ASSERT_GT(picture.image->width(), 0);
    ASSERT_GT(picture.image->height(), 0);
    ASSERT_EQ(std::int64_t{picture.image->width()} * picture.image->height(), picture.image->pixelCount());
}

/// Every truncation of a file, and every other value of each of its bytes.
inline void expectSurvivesEveryDamage(std::string const& file, std::size_t most)
{
    // Vectors of the exact size, so that the address sanitizer sees the first byte beyond.
    Bytes const whole(bytesOf(file).begin(), bytesOf(file).end());
    for (std::size_t size = 0; size < whole.size(); ++size) {
        SCOPED_TRACE(::testing::Message() << "the first " << size << " bytes");
        Bytes const truncated(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        ASSERT_NO_FATAL_FAILURE(expectSurvives(truncated, most));
    }
    Bytes changed = whole;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (int difference = 1; difference < 256; ++difference) {
            SCOPED_TRACE(::testing::Message() << "byte " << at << " changed by " << difference);
            changed[at] = whole[at] ^ static_cast<std::byte>(difference);
            ASSERT_NO_FATAL_FAILURE(expectSurvives(changed, most));
        }
        changed[at] = whole[at];
    }
    pictureOf(file);  // which is one, undamaged
}

}  // namespace koImageIO::testing
