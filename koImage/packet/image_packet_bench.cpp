// Saving and loading images, against plain writes and reads of as many pixels.

#include "koImage/packet/image_packet.h"

#include "koImage/testing/memory_file.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace koImage::packetFile {
namespace {

using namespace koImage::testing;

// 4096 x 2048: 128 MiB of Float4.
constexpr Size size{4096, 2048};
constexpr std::int64_t pixels = std::int64_t{size.width} * size.height;
constexpr std::size_t pieceBytes = std::size_t{256} << 10;

std::size_t bytesOf(Image const& image)
{
    return static_cast<std::size_t>(image.pixelCount()) * static_cast<std::size_t>(image.bytesPerPixel());
}

void save(std::string const& name, Image const& image)
{
    koPacketFile::FileSink sink(name);
    ioWriteContext out(sink);
    writeImage(out, &image);
    if (!out.commit())
        std::abort();
}

/// The pixels alone, in pieces, synced.
void plainWrite(std::string const& name, Image const& image)
{
    int const file = open(name.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0666);
    auto const* const bytes = static_cast<char const*>(image.data());
    std::size_t const count = bytesOf(image);
    for (std::size_t at = 0; at < count; at += pieceBytes)
        if (write(file, bytes + at, std::min(pieceBytes, count - at)) <= 0)
            std::abort();
    fsync(file);
    close(file);
}

void plainRead(std::string const& name, Image& image)
{
    int const file = open(name.c_str(), O_RDONLY);
    auto* const bytes = static_cast<char*>(image.data());
    std::size_t const count = bytesOf(image);
    for (std::size_t at = 0; at < count; at += pieceBytes)
        if (read(file, bytes + at, std::min(pieceBytes, count - at)) <= 0)
            std::abort();
    close(file);
}

/// Gives the parcels an image that is there already.
class ExistingImage : public ioPacketType {
public:
    explicit ExistingImage(Image* image) : ioPacketType("ko.lb.image"), image_(image) {}
    void read(ioReadContext& context, ioClientReadContext*) override { context.setObject(image_); }

private:
    Image* image_;
};

/// Loads the file; into that image, unless it is null.
void load(std::string const& name, Image* image)
{
    koPacketFile::FileSource source(name);
    ioReadContext in(source);
    ReadInterface reader(in);
    ioPacketRegistry registry;
    if (image != nullptr)
        registry.supportedType(new ExistingImage(image));
    registerTypes(&registry, &reader);
    if (in.readAll(registry) != koPacketFile::ReadResult::Complete)
        std::abort();
}

template <class Pixel>
Work work()
{
    return {.pixels = pixels, .bytes = pixels * std::int64_t{sizeof(Pixel)}};
}

template <class Pixel>
void BM_save(benchmark::State& state)
{
    auto const image = randomImage<Pixel>(size, 1);
    MemoryFile const ours(".ours");
    MemoryFile const plain(".plain");
    sideBySide(
        state, work<Pixel>(), [&] { save(ours.name(), *image); }, [&] { plainWrite(plain.name(), *image); });
}

template <class Pixel>
void BM_loadIntoTouchedMemory(benchmark::State& state)
{
    auto const image = randomImage<Pixel>(size, 1);
    auto const target = imageOf<Pixel>(size);
    auto const plainTarget = imageOf<Pixel>(size);
    MemoryFile const ours(".ours");
    MemoryFile const plain(".plain");
    save(ours.name(), *image);
    plainWrite(plain.name(), *image);
    sideBySide(
        state, work<Pixel>(), [&] { load(ours.name(), target.get()); },
        [&] { plainRead(plain.name(), *plainTarget); });
}

// Page faults included, on both sides.
template <class Pixel>
void BM_loadIntoNewMemory(benchmark::State& state)
{
    auto const image = randomImage<Pixel>(size, 1);
    MemoryFile const ours(".ours");
    MemoryFile const plain(".plain");
    save(ours.name(), *image);
    plainWrite(plain.name(), *image);
    sideBySide(
        state, work<Pixel>(), [&] { load(ours.name(), nullptr); },
        [&] { plainRead(plain.name(), *imageOf<Pixel>(size)); });
}

}  // namespace

BENCHMARK_TEMPLATE(BM_save, Float4)->Iterations(15)->UseManualTime();
BENCHMARK_TEMPLATE(BM_loadIntoTouchedMemory, Float4)->Iterations(25)->UseManualTime();
BENCHMARK_TEMPLATE(BM_loadIntoNewMemory, Float4)->Iterations(15)->UseManualTime();
BENCHMARK_TEMPLATE(BM_save, Byte4)->Iterations(15)->UseManualTime();
BENCHMARK_TEMPLATE(BM_loadIntoTouchedMemory, Byte4)->Iterations(25)->UseManualTime();

}  // namespace koImage::packetFile
