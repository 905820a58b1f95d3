#include "koImage/image/copy.h"

#include "koImage/image/numeric.h"
#include "koImage/image/streaming.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

namespace koImage {

namespace {

bool fits(Image const& block, Image const& frame, int x, int y)
{
    return x >= 0 && y >= 0 && block.width() > 0 && block.height() > 0 &&
           std::int64_t{block.width()} + x <= frame.width() &&
           std::int64_t{block.height()} + y <= frame.height();
}

// Where the rows of a block stand in an image [bytes].
struct Rows {
    std::int64_t first;
    std::int64_t step;
    std::int64_t length;

    std::int64_t span(int rows) const { return (rows - 1) * step + length; }
};

// The rows of a block that starts at pixel (x, y) of an image; nothing where they would leave its array.
std::optional<Rows> rowsIn(Image const& image, int x, int y, Image const& block)
{
    // The last row reaches furthest. Its start is first compared in pixels, of which an array holds less than
    // 2^31: no product below overflows.
    std::int64_t const lastRow = pixelOffset(x, y + block.height() - 1, image.width());
    if (image.data() == nullptr || lastRow >= image.pixelCount())
        return std::nullopt;

    std::int64_t const pixel = image.bytesPerPixel();
    std::int64_t const length = std::int64_t{block.bytesPerPixel()} * block.width();
    if (lastRow * pixel + length > image.pixelCount() * pixel)
        return std::nullopt;
    return Rows{pixelOffset(x, y, image.width()) * pixel, image.width() * pixel, length};
}

void copyRows(void const* source, Rows from, void* target, Rows to, int rows)
{
    auto const* read = static_cast<std::byte const*>(source) + from.first;
    auto* write = static_cast<std::byte*>(target) + to.first;
    auto length = static_cast<std::size_t>(to.length);

    // Memory that both images share is moved row after row.
    if (overlap(read, static_cast<std::size_t>(from.span(rows)), write,
                static_cast<std::size_t>(to.span(rows)))) {
        for (int y = 0; y < rows; ++y)
            std::memmove(write + y * to.step, read + y * from.step, length);
        return;
    }

    // Rows without a gap on either side are one.
    if (from.step == from.length && to.step == to.length) {
        length *= static_cast<std::size_t>(rows);
        rows = 1;
    }

    // Short rows gain nothing past the cache, however many there are.
    if (length >= 4096 && isStreamed(write, length * static_cast<std::size_t>(rows))) {
        for (int y = 0; y < rows; ++y)
            streamBytes(write + y * to.step, read + y * from.step, length);
        finishStreaming();
    } else {
        for (int y = 0; y < rows; ++y)
            std::memcpy(write + y * to.step, read + y * from.step, length);
    }
}

}  // namespace

void imageCopyIn(Image const& source, Image& target, int x, int y)
{
    if (!fits(source, target, x, y))
        return;
    auto const from = rowsIn(source, 0, 0, source);
    auto const to = rowsIn(target, x, y, source);
    if (from && to)
        copyRows(source.data(), *from, target.data(), *to, source.height());
}

void imageCopyOut(Image const& source, Image& target, int x, int y)
{
    if (!fits(target, source, x, y))
        return;
    auto const from = rowsIn(source, x, y, target);
    auto const to = rowsIn(target, 0, 0, target);
    if (from && to)
        copyRows(source.data(), *from, target.data(), *to, target.height());
}

}  // namespace koImage
