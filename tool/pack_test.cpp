#include "koBase/pack.h"

#include "koImage/image/typed_image.h"
#include "koImage/testing/test_images.h"
#include "tool/testing/command.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace koTool::testing {
namespace {

using koImage::Byte4;
using koImage::Float3;
using koImage::Float4;
using koImage::PixelTypeId;
using koImage::testing::imageOf;
using koImage::testing::randomImage;
using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

/// A pixel counted from the upper left corner of a picture.
template <class Pixel>
Pixel pixelAt(koImage::Image const& image, int x, int y)
{
    return koImage::pixelsOf<Pixel>(
        image)[static_cast<std::size_t>(koImage::pixelOffset(x, image.height() - 1 - y, image.width()))];
}

struct Pack : ::testing::Test {
    Folder folder;

    void save(std::string const& name, koImage::Image const& image)
    {
        koImageIO::Misfits misfits;
        ASSERT_FALSE(koImageIO::writePicture(folder / name, image, misfits));
    }

    /// Packs files of the folder into atlas.png, or another file of it; what --json tells.
    json packed(std::vector<std::string> const& names, std::vector<std::string> const& options = {},
                std::string const& atlas = "atlas.png")
    {
        std::vector<std::string> arguments = {"pack"};
        for (std::string const& name : names)
            arguments.push_back(folder / name);
        arguments.insert(arguments.end(), {"-o", folder / atlas, "--json", "-"});
        arguments.insert(arguments.end(), options.begin(), options.end());
        auto const outcome = koimage(arguments);
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        return outcome.exitCode == 0 ? json::parse(outcome.out) : json();
    }
};

// Sides of all sizes, among them pictures of one row and of one column.
TEST_F(Pack, PutsEveryPictureWhereItSaysWithItsEdgeRepeatedAround)
{
    std::vector<std::string> names;
    std::vector<ko::Reference<koImage::TypedImage<Byte4>>> images;
    for (auto const [width, height] : {std::array{17, 31}, {1, 9}, {33, 3}, {64, 1}, {16, 16}, {1, 1}}) {
        images.push_back(randomImage<Byte4>({width, height}, static_cast<unsigned>(width)));
        names.push_back(std::to_string(width) + "x" + std::to_string(height) + ".png");
        save(names.back(), *images.back());
    }
    struct Case {
        std::string wrap;
        bool x;
        bool y;
    };
    for (Case const& c :
         {Case{"", false, false}, {"x", true, false}, {"y", false, true}, {"xy", true, true}}) {
        auto const report =
            packed(names, c.wrap.empty() ? std::vector<std::string>{"--border", "3"}
                                         : std::vector<std::string>{"--filter", "8", "--wrap", c.wrap});
        auto const atlas = picture(folder / "atlas.png").image;
        ASSERT_EQ(PixelTypeId::Byte4, atlas->pixelType());
        EXPECT_EQ(atlas->width(), report["width"]);
        EXPECT_EQ(atlas->height(), report["height"]);
        EXPECT_EQ(3, report["border"]);

        std::vector<int> owners(static_cast<std::size_t>(atlas->pixelCount()), -1);
        ASSERT_EQ(images.size(), report["images"].size());
        for (std::size_t i = 0; i < images.size(); ++i) {
            auto const& entry = report["images"][i];
            EXPECT_EQ(folder / names[i], entry["file"]);
            int const width = images[i]->width();
            int const height = images[i]->height();
            ASSERT_EQ(width, entry["width"]);
            ASSERT_EQ(height, entry["height"]);
            for (int y = -3; y < height + 3; ++y)
                for (int x = -3; x < width + 3; ++x) {
                    int const atX = entry["x"].get<int>() + x;
                    int const atY = entry["y"].get<int>() + y;
                    ASSERT_TRUE(atX >= 0 && atX < atlas->width() && atY >= 0 && atY < atlas->height());
                    int& owner = owners[static_cast<std::size_t>(atY * atlas->width() + atX)];
                    EXPECT_EQ(-1, owner);
                    owner = static_cast<int>(i);
                    int const fromX = c.x ? (x % width + width) % width : std::clamp(x, 0, width - 1);
                    int const fromY = c.y ? (y % height + height) % height : std::clamp(y, 0, height - 1);
                    ASSERT_EQ(pixelAt<Byte4>(*images[i], fromX, fromY), pixelAt<Byte4>(*atlas, atX, atY))
                        << names[i] << " " << x << " " << y << " " << c.wrap;
                }
        }
        auto const covered =
            std::count_if(owners.begin(), owners.end(), [](int owner) { return owner >= 0; });
        EXPECT_DOUBLE_EQ(double(covered) / double(owners.size()), report["areaUsed"]);
        for (int y = 0; y < atlas->height(); ++y)
            for (int x = 0; x < atlas->width(); ++x)
                if (owners[static_cast<std::size_t>(y * atlas->width() + x)] < 0) {
                    ASSERT_EQ((Byte4{255, 255, 255, 255}), pixelAt<Byte4>(*atlas, x, y));
                }
    }
}

TEST_F(Pack, TellsTheTransformsOfTextureCoordinates)
{
    save("a.png", *randomImage<Byte4>({20, 10}, 1));
    save("b.png", *randomImage<Byte4>({10, 40}, 2));
    auto const report = packed({"a.png", "b.png"}, {"--border", "2"});
    float const width = report["width"];
    float const height = report["height"];
    auto const number = [](json const& entry, char const* name) { return entry[name].get<float>(); };
    for (auto const& entry : report["images"]) {
        auto const& transform = entry["transform"];
        EXPECT_FLOAT_EQ(number(entry, "x") / width, transform["offsetX"]);
        EXPECT_FLOAT_EQ(number(entry, "width") / width, transform["scaleX"]);
        // From the lower edge.
        EXPECT_FLOAT_EQ((height - number(entry, "y") - number(entry, "height")) / height,
                        transform["offsetY"]);
        EXPECT_FLOAT_EQ(number(entry, "height") / height, transform["scaleY"]);
    }

    // Half a pixel further in at each side.
    auto const inset = packed({"a.png", "b.png"}, {"--border", "2", "--inset", "0"});
    for (auto const& entry : inset["images"]) {
        auto const& transform = entry["transform"];
        EXPECT_FLOAT_EQ((number(entry, "x") + 0.5f) / width, transform["offsetX"]);
        EXPECT_FLOAT_EQ((number(entry, "height") - 1.0f) / height, transform["scaleY"]);
    }
}

TEST_F(Pack, RoundsTheAtlasUpToPowersOfTwoWhenAsked)
{
    save("a.png", *randomImage<Byte4>({90, 70}, 1));
    auto const tight = packed({"a.png"});
    EXPECT_EQ(90, tight["width"]);
    EXPECT_EQ(70, tight["height"]);
    auto const rounded = packed({"a.png"}, {"--powers-of-two"});
    EXPECT_EQ(128, rounded["width"]);
    EXPECT_EQ(128, rounded["height"]);
}

TEST_F(Pack, KeepsTheTypeOfPicturesOfOneType)
{
    save("a.pfm", *randomImage<Float3>({3, 5}, 1));
    save("b.pfm", *randomImage<Float3>({4, 4}, 2));
    EXPECT_EQ("Float3", packed({"a.pfm", "b.pfm"}, {}, "atlas.exr")["type"]);
    writeFile(folder / "a.pgm", pgm(1, 1, {7}));
    EXPECT_EQ("Byte", packed({"a.pgm"})["type"]);
    EXPECT_EQ("Float3", packed({"a.pgm"}, {"--type", "Float3"}, "atlas.exr")["type"]);
}

TEST_F(Pack, FindsATypeThatHoldsAllPictures)
{
    writeFile(folder / "grey.pgm", pgm(1, 1, {255}));
    auto const colours = imageOf<Byte4>({1, 1});
    colours->pixels()[0] = {255, 0, 0, 51};
    save("red.png", *colours);
    writeFile(folder / "light.pfm", pfm(1, 1, {2, 3, 4}));

    auto report = packed({"grey.pgm", "red.png"});
    EXPECT_EQ("Byte4", report["type"]);
    auto const at = [&](std::size_t i) {
        auto const& entry = report["images"][i];
        return std::pair{entry["x"].get<int>(), entry["y"].get<int>()};
    };
    auto atlas = picture(folder / "atlas.png").image;
    EXPECT_EQ((Byte4{255, 255, 255, 255}), pixelAt<Byte4>(*atlas, at(0).first, at(0).second));
    EXPECT_EQ((Byte4{255, 0, 0, 51}), pixelAt<Byte4>(*atlas, at(1).first, at(1).second));

    report = packed({"grey.pgm", "light.pfm"}, {}, "atlas.exr");
    EXPECT_EQ("Float3", report["type"]);

    // What had no alpha is opaque.
    report = packed({"grey.pgm", "red.png", "light.pfm"}, {}, "atlas.exr");
    EXPECT_EQ("Float4", report["type"]);
    atlas = picture(folder / "atlas.exr").image;
    EXPECT_EQ((Float4{1, 1, 1, 1}), pixelAt<Float4>(*atlas, at(0).first, at(0).second));
    EXPECT_EQ((Float4{1, 0, 0, 0.2f}), pixelAt<Float4>(*atlas, at(1).first, at(1).second));
    EXPECT_EQ((Float4{2, 3, 4, 1}), pixelAt<Float4>(*atlas, at(2).first, at(2).second));
}

TEST_F(Pack, DrawsItsLayoutInColoursOfTheTiles)
{
    save("a.png", *randomImage<Byte4>({40, 40}, 1));
    save("b.png", *randomImage<Byte4>({40, 40}, 2));
    auto const report = packed({"a.png", "b.png"}, {"--border", "4", "--layout", folder / "layout.png"});
    auto const layout = picture(folder / "layout.png").image;
    int const scale = 1024 / std::max(report["width"].get<int>(), report["height"].get<int>());
    ASSERT_EQ(scale * report["width"].get<int>(), layout->width());
    ASSERT_EQ(scale * report["height"].get<int>(), layout->height());

    // The lower right corner of each tile, where no name is, its border, and what is covered by none.
    auto const at = [&](json const& entry, int offset) {
        return pixelAt<Byte4>(*layout, scale * (entry["x"].get<int>() + entry["width"].get<int>()) + offset,
                              scale * (entry["y"].get<int>() + entry["height"].get<int>()) + offset);
    };
    auto const& images = report["images"];
    EXPECT_NE(at(images[0], -1), at(images[1], -1));
    for (auto const& entry : images) {
        Byte4 const inside = at(entry, -1);
        Byte4 const border = at(entry, 0);
        EXPECT_EQ(border, at(entry, 4 * scale - 1));
        EXPECT_LT(border.r, inside.r);
        EXPECT_LT(border.g, inside.g);
        EXPECT_LT(border.b, inside.b);
    }

    // The A of a.png: its bar is inked, what it encloses is not. Letters are drawn four times as large.
    auto const letter = [&](int column, int row) {
        return pixelAt<Byte4>(*layout, scale * images[0]["x"].get<int>() + 8 + 4 * column,
                              scale * images[0]["y"].get<int>() + 8 + 4 * row);
    };
    EXPECT_LT(letter(2, 3).r, 40);
    EXPECT_EQ(at(images[0], -1), letter(2, 2));
}

// Names that do not fit, and more tiles than there are letters' places.
TEST_F(Pack, DrawsLayoutsOfManyAndOfNarrowTiles)
{
    std::vector<std::string> names;
    for (int i = 0; i < 40; ++i) {
        names.push_back("a long name of a picture number " + std::to_string(i) + ".pgm");
        int const width = 1 + i % 7 * 300;
        writeFile(folder / names.back(), pgm(width, 1, std::vector<int>(static_cast<std::size_t>(width), i)));
    }
    packed(names, {"--layout", folder / "layout.png"});
    auto const layout = picture(folder / "layout.png").image;
    EXPECT_LE(std::max(layout->width(), layout->height()), 1024);
}

TEST_F(Pack, WritesItsReportIntoAFile)
{
    writeFile(folder / "a.pgm", pgm(1, 1, {7}));
    auto const outcome = koimage(
        {"pack", folder / "a.pgm", "-o", "-", "--format", "pnm", "--bits", "8", "--json", folder / "a.json"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_THAT(outcome.out, StartsWith("P5\n64 64\n255\n"));
    auto const report = json::parse(readFile(folder / "a.json"));
    EXPECT_EQ("-", report["file"]);
    EXPECT_EQ(1u, report["images"].size());
}

TEST_F(Pack, RefusesWhatMakesNoAtlas)
{
    writeFile(folder / "a.pgm", pgm(1, 1, {7}));
    std::string const a = folder / "a.pgm";
    std::string const atlas = folder / "atlas.png";
    for (std::vector<std::string> const& arguments :
         std::vector<std::vector<std::string>>{{"-o", atlas},
                                               {a},
                                               {a, "-o", atlas, "--border", "-1"},
                                               {a, "-o", atlas, "--border", "1.5"},
                                               {a, "-o", atlas, "--border", "1", "--filter", "3"},
                                               {a, "-o", atlas, "--filter", "0"},
                                               {a, "-o", atlas, "--inset", "0.6"},
                                               {a, "-o", atlas, "--inset", "nan"},
                                               {a, "-o", atlas, "--wrap", "z"},
                                               {a, "-o", "-", "--format", "png", "--json", "-"},
                                               {a, "-o", "-"},
                                               {a, "-o", atlas, "--layout", "-"}}) {
        std::vector<std::string> all = {"pack"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        auto const outcome = koimage(all);
        EXPECT_EQ(2, outcome.exitCode) << ::testing::PrintToString(arguments) << outcome.err;
    }

    auto outcome = koimage({"pack", a, folder / "none.pgm", "-o", atlas});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("none.pgm"));
    // Two tiles of two million pixels a side.
    outcome = koimage({"pack", a, a, "-o", atlas, "--border", "1048576"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + atlas + ": would have too many pixels: an image holds 2147483647\n", outcome.err);
    // One row that fits, in an atlas of 64.
    writeFile(folder / "long.pgm", "P5\n34000000 1\n255\n" + std::string(34000000, '\0'));
    EXPECT_EQ(1, koimage({"pack", folder / "long.pgm", "-o", atlas}).exitCode);
    EXPECT_THAT(folder.names(), ElementsAre("a.pgm", "long.pgm"));
}

}  // namespace
}  // namespace koTool::testing
