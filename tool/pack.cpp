// koimage pack: pictures side by side in one, an atlas.

#include "koBase/pack.h"
#include "koImage/layout/image_pack.h"
#include "tool/files.h"
#include "tool/filter.h"
#include "tool/layout_picture.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>

namespace koTool {

using namespace koImage;
using koUtil::IntRange2d;

namespace {

using Json = nlohmann::ordered_json;

struct Pack {
    Files files;
    std::vector<std::string> names;
    int border = 0;
    std::optional<int> filterDiameter;
    float inset = 0.5f;
    bool powersOfTwo = false;
    Wrap wrap;
    std::string json;
    std::string layout;
};

bool isOfBytes(PixelTypeId type)
{
    return type == PixelTypeId::Byte || type == PixelTypeId::Byte4;
}

/// The type that holds all pictures: their own, bytes of colour, or floats.
PixelTypeId commonType(std::vector<koImageIO::Picture> const& pictures)
{
    auto const all = [&pictures](auto const& holds) {
        return std::all_of(pictures.begin(), pictures.end(),
                           [&](auto const& picture) { return holds(picture.image->pixelType()); });
    };
    auto const first = pictures[0].image->pixelType();
    if (all([first](PixelTypeId type) { return type == first; }))
        return first;
    if (all(isOfBytes))
        return PixelTypeId::Byte4;
    return std::any_of(pictures.begin(), pictures.end(),
                       [](auto const& picture) { return floatsFor(*picture.image) == PixelTypeId::Float4; })
               ? PixelTypeId::Float4
               : PixelTypeId::Float3;
}

/// All pictures, in one pixel type.
std::vector<koImageIO::Picture> readPictures(Pack& pack)
{
    std::vector<koImageIO::Picture> pictures;
    pictures.reserve(pack.names.size());
    for (std::string const& name : pack.names)
        pictures.push_back(pack.files.read(name));

    auto const type = commonType(pictures);
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        auto const own = pictures[i].image->pixelType();
        if (own == type)
            continue;
        pictures[i] = pack.files.readAs(pack.names[i], type);
        // Where there was no alpha the picture is opaque, which the conversion of floats leaves to its
        // caller.
        if (type == PixelTypeId::Float4 && channelCount(own) != 4)
            for (Float4& pixel : pixelsOf<Float4>(*pictures[i].image))
                pixel.a = 1.0f;
    }
    return pictures;
}

/// Throws where the atlas would be too large: laying out costs little, its pixels may be more than there is
/// memory for.
void checkSize(Pack const& pack, Packing const& packing, std::vector<koImageIO::Picture> const& pictures)
{
    Packing trial(packing.tileCount(), packing.filterDiameter());
    for (std::size_t i = 0; i < pictures.size(); ++i)
        trial.setTileInterior(static_cast<int>(i),
                              {0, 0, pictures[i].image->width(), pictures[i].image->height()});
    IntRange2d const used = koUtil::pack(trial.getPaddedTiles(), pack.powersOfTwo);
    // The smallest atlas is 64 x 64.
    std::int64_t const width = std::max(used.width, 64);
    std::int64_t const height = std::max(used.height, 64);
    if (used.width == 0 || width * height > std::numeric_limits<int>::max())
        throw Failure(pack.files.output() + ": would have too many pixels: an image holds 2147483647");
}

/// The interior of a tile, its y counted from the upper edge of the atlas.
IntRange2d placeOf(IntRange2d const& tile, Packing const& packing)
{
    int const border = packing.border();
    return {tile.x + border, packing.atlas()->height() - tile.y - tile.height + border,
            tile.width - 2 * border, tile.height - 2 * border};
}

/// The part of the atlas that tiles cover, borders included.
double areaUsed(Packing& packing)
{
    double area = 0.0;
    for (IntRange2d const& tile : packing.getPaddedTiles())
        area += double{1} * tile.width * tile.height;
    return area / (double{1} * packing.atlas()->width() * packing.atlas()->height());
}

Json describe(Pack const& pack, Packing& packing)
{
    Json images = Json::array();
    for (std::size_t i = 0; i < pack.names.size(); ++i) {
        IntRange2d const place = placeOf(packing.getPaddedTiles()[i], packing);
        TileTransform const& transform = packing.transforms()[i];
        images.push_back({{"file", pack.names[i]},
                          {"x", place.x},
                          {"y", place.y},
                          {"width", place.width},
                          {"height", place.height},
                          {"transform",
                           {{"scaleX", transform.scaleX},
                            {"scaleY", transform.scaleY},
                            {"offsetX", transform.offsetX},
                            {"offsetY", transform.offsetY}}}});
    }
    return {{"file", pack.files.output()},
            {"width", packing.atlas()->width()},
            {"height", packing.atlas()->height()},
            {"type", typeName(packing.atlas()->pixelType())},
            {"border", packing.border()},
            {"areaUsed", areaUsed(packing)},
            {"images", images}};
}

void saveLayout(Pack& pack, Packing& packing)
{
    pack.files.work("drawing the layout");
    std::vector<LayoutTile> tiles;
    tiles.reserve(pack.names.size());
    for (std::size_t i = 0; i < pack.names.size(); ++i)
        tiles.push_back({placeOf(packing.getPaddedTiles()[i], packing),
                         std::filesystem::path(pack.names[i]).filename().string()});
    auto const picture =
        drawLayout(packing.atlas()->width(), packing.atlas()->height(), packing.border(), tiles);
    koImageIO::WriteOptions options;
    options.format = koImageIO::PictureFormat::Png;
    options.bits = 8;
    options.levels = true;
    pack.files.save(pack.layout, *picture, options);
}

void run(Pack& pack)
{
    auto const pictures = readPictures(pack);
    Packing packing(static_cast<int>(pictures.size()), pack.filterDiameter.value_or(2 * pack.border + 1));
    ko::vector<Image*> images;
    for (auto const& picture : pictures) {
        picture.image->setWrap(pack.wrap.horizontal, pack.wrap.vertical);
        images.push_back(picture.image.get());
    }

    pack.files.work("packing");
    checkSize(pack, packing, pictures);
    imagePack(packing, images, pack.inset, pack.powersOfTwo);

    pack.files.write(*packing.atlas(), {});
    if (!pack.layout.empty())
        saveLayout(pack, packing);
    if (!pack.json.empty())
        pack.files.saveText(pack.json, jsonText(describe(pack, packing), 2) + "\n");
}

void check(Pack const& pack)
{
    if (pack.json == "-" && pack.files.output() == "-")
        throw CLI::ValidationError("--json", "standard output takes the picture already");
    if (pack.layout == "-")
        throw CLI::ValidationError("--layout", "is written to a file only");
}

void add(CLI::App& command)
{
    auto const pack = std::make_shared<Pack>();
    command
        .add_option(
            "IMAGES", pack->names,
            "The pictures to read, - for standard input. Those of one pixel type keep it; others meet "
            "as bytes of colour, or as floats where one of them is of floats or halves")
        ->required();
    pack->files.addInput(command);
    pack->files.addTarget(command, "-o,--output");
    auto* const border =
        command
            .add_option("--border", pack->border,
                        "Pixels around each picture that repeat those of its edge; none without it")
            ->check(CLI::Range(0, 1 << 20));
    command
        .add_option("--filter", pack->filterDiameter,
                    "Diameter of the filter that will read the atlas; the border is (diameter - 1) / 2")
        ->check(CLI::Range(1, 1 << 21))
        ->excludes(border);
    addWrap(command, pack->wrap);
    command
        .add_option(
            "--inset", pack->inset,
            "What the transforms take the unit square of a picture to: 0.5 all of it, 0 the rectangle "
            "between the centres of its outermost pixels; 0.5 without it")
        ->check(numberBetween(0.0, 0.5));
    command.add_flag("--powers-of-two", pack->powersOfTwo, "Width and height of the atlas are powers of two");
    command.add_option("--json", pack->json,
                       "File to write, - for standard output: where each picture is. x and y run from the "
                       "upper left corner of the atlas, in pixels. A transform takes texture coordinates of "
                       "the picture to those of the atlas, offset + t * scale, both from the lower left "
                       "corner");
    command.add_option("--layout", pack->layout,
                       "PNG picture to write: where each one lies, in a colour of its own, with its name");
    command.callback([pack] {
        check(*pack);
        run(*pack);
    });
}

}  // namespace

Verb const packVerb = {"pack", "Pictures side by side in one: an atlas",
                       "koimage pack leaf.png bark.png moss.png -o atlas.png --border 2 --json atlas.json\n"
                       "koimage pack *.png -o atlas.png --border 1 --layout layout.png --json -\n"
                       "koimage pack tile.png brick.png -o atlas.exr --filter 9 --wrap xy --powers-of-two",
                       add};

}  // namespace koTool
