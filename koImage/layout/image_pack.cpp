#include "koImage/layout/image_pack.h"

#include "koBase/linear.h"
#include "koBase/pack.h"
#include "koImage/image/copy.h"
#include "koImage/image/fill.h"
#include "koImage/image/numeric.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace koImage {

namespace {

using koUtil::IntRange2d;

/// A range with as many pixels more on every side, in the low 32 bits of each number.
IntRange2d grown(IntRange2d const& range, std::int64_t border)
{
    return {static_cast<std::int32_t>(range.x - border), static_cast<std::int32_t>(range.y - border),
            static_cast<std::int32_t>(range.width + 2 * border),
            static_cast<std::int32_t>(range.height + 2 * border)};
}

bool liesIn(IntRange2d const& range, Image const& image)
{
    return range.x >= 0 && range.y >= 0 && std::int64_t{range.x} + range.width <= image.width() &&
           std::int64_t{range.y} + range.height <= image.height();
}

TileTransform transformOf(IntRange2d const& interior, Image const& atlas, float inset)
{
    float const a = 1.0f / static_cast<float>(atlas.width());
    float const b = 1.0f / static_cast<float>(atlas.height());
    auto const w = static_cast<float>(interior.width);
    auto const h = static_cast<float>(interior.height);
    TileTransform transform = {a * w, b * h, static_cast<float>(interior.x) * a,
                               static_cast<float>(interior.y) * b, 0};

    // Pulled in by d pixels on every side.
    float const d = 0.5f - inset;
    if (std::abs(d) >= koLinear::epsilonTolFlt) {
        transform.offsetX += 1.0f / w * d * transform.scaleX;
        transform.offsetY += 1.0f / h * d * transform.scaleY;
        transform.scaleX = transform.scaleX * (w - 2.0f * d) * (1.0f / w);
        transform.scaleY = transform.scaleY * (h - 2.0f * d) * (1.0f / h);
    }
    return transform;
}

/// Repeats the pixels of an interior around it, as the image that it holds continues.
void fillBorder(Image& atlas, IntRange2d const& tile, IntRange2d const& interior, Image const& image)
{
    auto const bytes = static_cast<std::size_t>(atlas.bytesPerPixel());
    auto* const pixels = static_cast<unsigned char*>(atlas.data());
    auto const pixelAt = [&](int x, int y) {
        return pixels + static_cast<std::size_t>(pixelOffset(x, y, atlas.width())) * bytes;
    };
    auto const source = [&interior](int axis, int position, bool wraps) {
        return wraps ? interior.wrap(axis, position) : interior.clamp(axis, position);
    };

    for (int y = tile.y; y < tile.y + tile.height; ++y) {
        int const sourceRow = source(1, y, image.wrapVertical());
        bool const insideRow = interior.contains(1, y);
        for (int x = tile.x; x < tile.x + tile.width; ++x) {
            if (insideRow && x == interior.x)
                x += interior.width;
            if (x < tile.x + tile.width)
                std::memcpy(pixelAt(x, y), pixelAt(source(0, x, image.wrapHorizontal()), sourceRow), bytes);
        }
    }
}

}  // namespace

Packing::Packing(int tileCount, int filterDiameter)
    : paddedTiles_(static_cast<std::size_t>(std::max(tileCount, 0))),
      transforms_(paddedTiles_.size()),
      tileCount_(tileCount),
      filterDiameter_(filterDiameter),
      border_(static_cast<std::int32_t>((std::int64_t{filterDiameter} - 1) / 2))
{
}

void Packing::setTileInterior(int tile, IntRange2d const& interior)
{
    if (tile < 0 || tile >= tileCount_)
        return;
    IntRange2d& padded = paddedTiles_[static_cast<std::size_t>(tile)];
    IntRange2d const sized = grown(interior, border_);
    padded.width = sized.width;
    padded.height = sized.height;
}

void imagePack(Packing& packing, ko::vector<Image*> images, float inset, bool powersOfTwo)
{
    auto const first =
        std::find_if(images.begin(), images.end(), [](Image const* image) { return image != nullptr; });
    if (first == images.end())
        return;

    // The atlas of before lives on while it may be among the images.
    ko::Reference<Image> const before = packing.atlas_;
    packing.atlas_ = (*first)->createEmpty();
    Image& atlas = *packing.atlas_;
    bool const oneType = std::all_of(images.begin(), images.end(), [&atlas](Image const* image) {
        return image == nullptr || image->pixelType() == atlas.pixelType();
    });
    if (!oneType)
        return;

    images.resize(std::min(images.size(), packing.paddedTiles_.size()));
    for (std::size_t i = 0; i < images.size(); ++i) {
        if (images[i] != nullptr)
            packing.setTileInterior(static_cast<int>(i), {0, 0, images[i]->width(), images[i]->height()});
    }
    IntRange2d const used = koUtil::pack(packing.paddedTiles_, powersOfTwo);
    atlas.resize(std::max(used.width, 64), std::max(used.height, 64));
    fillWhite(atlas);

    for (std::size_t i = 0; i < packing.paddedTiles_.size(); ++i)
        packing.transforms_[i] =
            transformOf(grown(packing.paddedTiles_[i], -std::int64_t{packing.border_}), atlas, inset);

    // Tiles that were not packed, for they are empty or too large together, hold no pixels.
    for (std::size_t i = 0; i < images.size(); ++i) {
        IntRange2d const& tile = packing.paddedTiles_[i];
        IntRange2d const interior = grown(tile, -std::int64_t{packing.border_});
        bool const holdsPixels = packing.border_ >= 0 && interior.width > 0 && interior.height > 0;
        if (images[i] == nullptr || !holdsPixels || !liesIn(tile, atlas))
            continue;
        imageCopyIn(*images[i], atlas, interior.x, interior.y);
        fillBorder(atlas, tile, interior, *images[i]);
    }
}

}  // namespace koImage
