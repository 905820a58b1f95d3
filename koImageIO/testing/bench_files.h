// What the benchmarks of plain formats share: files beside copies of their pixels, and beside files of the
// same bytes.
#pragma once

#include "koBase/output_file.h"
#include "koImage/testing/side_by_side.h"
#include "koImageIO/testing/files.h"

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace koImageIO::testing {

inline constexpr koImage::testing::Size benchSize = {2048, 1024};

/// Reads a file out of memory; the yardstick copies the image that it makes, into new memory as well.
template <class Pixel>
void benchReading(benchmark::State& state, std::string const& extension, WriteOptions const& options = {})
{
    using namespace koImage::testing;
    auto const image = randomImage<Pixel>(benchSize, 1);
    Folder const folder;
    std::string const name = folder / ("a" + extension);
    Misfits misfits;
    if (koUtil::Error const error = writePicture(koOS::Filename(name), *image, misfits, options))
        throw std::runtime_error(error.message());
    Bytes const file = bytesOfFile(name);

    Picture picture;
    if (koUtil::Error const error = readPicture(file, "memory", picture))
        throw std::runtime_error(error.message());
    auto const imageBytes = static_cast<std::size_t>(picture.image->memorySize());
    Work const work = {picture.image->pixelCount(), static_cast<std::int64_t>(file.size() + imageBytes)};
    sideBySide(
        state, work,
        [&] {
            Picture again;
            if (readPicture(file, "memory", again))
                std::abort();
        },
        [&] { ko::Reference<koImage::Image> const copy(picture.image->clone()); });
}

/// Writes a file; the yardstick writes one of the same bytes.
template <class Pixel>
void benchWriting(benchmark::State& state, std::string const& extension, WriteOptions const& options = {})
{
    using namespace koImage::testing;
    auto const image = randomImage<Pixel>(benchSize, 1);
    Folder const folder;
    koOS::Filename const name(folder / ("a" + extension));
    auto const write = [&] {
        Misfits misfits;
        if (writePicture(name, *image, misfits, options))
            std::abort();
    };
    write();
    Bytes const bytes = bytesOfFile(folder / ("a" + extension));
    Work const work = {
        image->pixelCount(),
        static_cast<std::int64_t>(bytes.size() + static_cast<std::size_t>(image->memorySize()))};
    sideBySide(state, work, write, [&] {
        koOS::OutputFile file(name);
        if (!file.write(bytes) || file.commit())
            std::abort();
    });
}

}  // namespace koImageIO::testing
