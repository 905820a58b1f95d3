// Radiance HDR from memory beside a copy of its pixels, and to a file beside a file of the same bytes.
//
// The picture has what real ones have: mantissas that hardly repeat, exponents in long runs. A black one has
// runs alone.

#include "koBase/output_file.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"
#include "koImageIO/picture.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace koImageIO {
namespace {

using namespace koImage::testing;
using koImage::Float3;
using koImage::pixelsOf;

constexpr Size size = {2048, 1024};
constexpr std::int64_t pixelCount = std::int64_t{size.width} * size.height;

ImageRef<Float3> skyAndNoise()
{
    auto const image = imageOf<Float3>(size);
    Random random(1);
    auto pixel = pixelsOf<Float3>(*image).begin();
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x, ++pixel) {
            float const sky = std::exp(4 * std::sin(static_cast<float>(y) * 0.006f) +
                                       std::sin(static_cast<float>(x) * 0.003f));
            float const noise = 1 + 0.1f * randomChannel<float>(random);
            *pixel = {sky * noise, 0.8f * sky * noise, 0.5f * sky * randomChannel<float>(random)};
        }
    }
    return image;
}

ImageRef<Float3> black()
{
    auto image = imageOf<Float3>(size);
    std::ranges::fill(pixelsOf<Float3>(*image), Float3{0, 0, 0});
    return image;
}

std::string fileName()
{
    return (std::filesystem::temp_directory_path() / "koimageio-bench.hdr").string();
}

void write(koImage::Image const& image)
{
    Misfits misfits;
    if (koUtil::Error const error = writePicture(koOS::Filename(fileName()), image, misfits))
        throw std::runtime_error(error.message());
}

std::vector<char> fileOf(koImage::Image const& image)
{
    write(image);
    std::ifstream in(fileName(), std::ios::binary);
    std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    std::filesystem::remove(fileName());
    return bytes;
}

void BM_readHdr(benchmark::State& state, ImageRef<Float3> (*make)())
{
    auto const image = make();
    std::vector<char> const file = fileOf(*image);
    auto const copy = imageOf<Float3>(size);
    Work const work = {pixelCount, static_cast<std::int64_t>(file.size()) + pixelCount * 12};
    sideBySide(
        state, work,
        [&] {
            Picture picture;
            if (readPicture(std::as_bytes(std::span(file)), "memory", picture))
                std::abort();
        },
        [&] { std::memcpy(copy->pixels(), image->pixels(), pixelsOf<Float3>(*image).size_bytes()); });
}
BENCHMARK_CAPTURE(BM_readHdr, noise, skyAndNoise)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_readHdr, black, black)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_writeHdr(benchmark::State& state, ImageRef<Float3> (*make)())
{
    auto const image = make();
    std::vector<char> const bytes = fileOf(*image);
    Work const work = {pixelCount, static_cast<std::int64_t>(bytes.size()) + pixelCount * 12};
    sideBySide(
        state, work, [&] { write(*image); },
        [&] {
            koOS::OutputFile file{koOS::Filename(fileName())};
            if (!file.write(std::as_bytes(std::span(bytes))) || file.commit())
                std::abort();
        });
    std::filesystem::remove(fileName());
}
BENCHMARK_CAPTURE(BM_writeHdr, noise, skyAndNoise)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_writeHdr, black, black)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace koImageIO
