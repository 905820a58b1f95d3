#include "koImageIO/picture.h"
#include "koImageIO/rows.h"
#include "koImageIO/testing/exr_by_library.h"
#include "koImageIO/testing/files.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace koImageIO {

namespace {

using namespace koImage;
using namespace koImageIO::testing;
using koImage::testing::hostileImage;
using koImage::testing::imageOf;
using koImage::testing::randomImage;
using koImage::testing::samePixels;
using koImage::testing::Size;

struct Packing {
    char const* name;
    Imf::Compression code;
};

constexpr Packing lossless[] = {{"none", Imf::NO_COMPRESSION},
                                {"rle", Imf::RLE_COMPRESSION},
                                {"zips", Imf::ZIPS_COMPRESSION},
                                {"zip", Imf::ZIP_COMPRESSION},
                                {"piz", Imf::PIZ_COMPRESSION}};
constexpr Packing lossy[] = {{"pxr24", Imf::PXR24_COMPRESSION},
                             {"b44", Imf::B44_COMPRESSION},
                             {"b44a", Imf::B44A_COMPRESSION},
                             {"dwaa", Imf::DWAA_COMPRESSION},
                             {"dwab", Imf::DWAB_COMPRESSION}};

std::vector<Packing> allPackings()
{
    std::vector<Packing> all(std::begin(lossless), std::end(lossless));
    all.insert(all.end(), std::begin(lossy), std::end(lossy));
    return all;
}

std::vector<std::string> const halfColour = {"R:half", "G:half", "B:half"};
std::vector<std::string> const halfRgba = {"R:half", "G:half", "B:half", "A:half"};
std::vector<std::string> const floatColour = {"R:float", "G:float", "B:float"};
std::vector<std::string> const floatRgba = {"R:float", "G:float", "B:float", "A:float"};

Picture readWell(Bytes const& file, ReadOptions const& options = {})
{
    Picture picture;
    koUtil::Error const error = readPicture(file, "exr", picture, options);
    EXPECT_FALSE(error) << error.message();
    EXPECT_EQ(picture.format, PictureFormat::Exr);
    return picture;
}

std::string errorOf(Bytes const& file, ReadOptions const& options = {})
{
    Picture picture;
    koUtil::Error const error = readPicture(file, "exr", picture, options);
    EXPECT_FALSE(picture.image);
    return error.message();
}

// Compares every pixel of a picture with `expected(x, y)`, counted from its top left corner.
template <class Pixel, class Expected>
void expectPixels(Picture const& picture, Size size, Expected const& expected)
{
    ASSERT_TRUE(picture.image);
    ASSERT_EQ(picture.image->pixelType(), pixelTypeIdOf<Pixel>);
    ASSERT_EQ(picture.image->width(), size.width);
    ASSERT_EQ(picture.image->height(), size.height);
    for (int y = 0; y < size.height; ++y) {
        auto const row = pictureRow<Pixel>(std::as_const(*picture.image), y);
        for (int x = 0; x < size.width; ++x) {
            Pixel const pixel = expected(x, y);
            ASSERT_EQ(std::memcmp(&row[static_cast<std::size_t>(x)], &pixel, sizeof(Pixel)), 0)
                << x << ", " << y;
        }
    }
}

Half4 halfPixel(int x, int y)
{
    return {exrValue("R", x, y), exrValue("G", x, y), exrValue("B", x, y), exrValue("A", x, y)};
}

Float3 colourPixel(int x, int y)
{
    return {exrValue("R", x, y), exrValue("G", x, y), exrValue("B", x, y)};
}

// The rows of a picture, top first, as channels.
template <class Value>
std::vector<Value> channelsOf(Image const& image)
{
    std::vector<Value> values;
    for (int y = 0; y < image.height(); ++y) {
        auto const bytes = pictureRowBytes(const_cast<Image&>(image), y);
        auto const* const row = reinterpret_cast<Value const*>(bytes.data());
        values.insert(values.end(), row, row + bytes.size() / sizeof(Value));
    }
    return values;
}

template <class Value>
bool sameBits(std::vector<Value> const& a, std::vector<Value> const& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(Value)) == 0;
}

// Widths and heights around the blocks of 1, 16, 32 and 256 lines, and of 4 and 8 columns.
constexpr Size sizes[] = {{1, 1}, {3, 17}, {37, 33}, {64, 16}, {9, 300}};

}  // namespace

TEST(Exr, OfEveryCompressionIsReadAsTheClassesOfTheLibraryReadIt)
{
    for (Packing const packing : allPackings()) {
        for (Size const size : sizes) {
            SCOPED_TRACE(::testing::Message() << packing.name << ", " << size);
            Bytes const halves = scanlineExr(exrHeader(size.width, size.height, halfRgba, packing.code));
            Picture const half4 = readWell(halves);
            ASSERT_TRUE(half4.image);
            ASSERT_EQ(half4.image->pixelType(), PixelTypeId::Half4);
            EXPECT_TRUE(sameBits(readByLibrary<std::uint16_t>(halves, {"R", "G", "B", "A"}),
                                 channelsOf<std::uint16_t>(*half4.image)));

            Bytes const floats = scanlineExr(exrHeader(size.width, size.height, floatColour, packing.code));
            Picture const float3 = readWell(floats);
            ASSERT_TRUE(float3.image);
            ASSERT_EQ(float3.image->pixelType(), PixelTypeId::Float3);
            EXPECT_TRUE(sameBits(readByLibrary<std::uint32_t>(floats, {"R", "G", "B"}),
                                 channelsOf<std::uint32_t>(*float3.image)));
        }
    }
}

TEST(Exr, WithoutLossHoldsTheValuesThatWereWritten)
{
    for (Packing const packing : lossless) {
        for (Size const size : sizes) {
            SCOPED_TRACE(::testing::Message() << packing.name << ", " << size);
            expectPixels<Half4>(
                readWell(scanlineExr(exrHeader(size.width, size.height, halfRgba, packing.code))), size,
                halfPixel);
            expectPixels<Float3>(
                readWell(scanlineExr(exrHeader(size.width, size.height, floatColour, packing.code))), size,
                colourPixel);
        }
    }
}

TEST(Exr, MayStoreItsRowsInAnyOrder)
{
    Imf::Header header = exrHeader(9, 40, halfRgba);
    header.lineOrder() = Imf::DECREASING_Y;
    expectPixels<Half4>(readWell(scanlineExr(header)), {9, 40}, halfPixel);
}

TEST(Exr, IsNotTakenForTooShortWhereItIsBlack)
{
    // The same everywhere packs tightest of all.
    ko::Reference<TypedImage<Half4>> halves(new TypedImage<Half4>);
    ko::Reference<TypedImage<Float3>> floats(new TypedImage<Float3>);
    halves->resize(1000, 700);
    floats->resize(1000, 700);
    std::memset(halves->data(), 0, std::size_t{1000} * 700 * sizeof(Half4));
    std::memset(floats->data(), 0, std::size_t{1000} * 700 * sizeof(Float3));
    for (Packing const packing : allPackings()) {
        SCOPED_TRACE(packing.name);
        RoundTrip const half4 = roundTrip(*halves, "exr", {.compression = packing.name});
        ASSERT_FALSE(half4.error) << half4.error.message();
        EXPECT_TRUE(samePixels(*halves, *half4.picture.image));
        RoundTrip const float3 = roundTrip(*floats, "exr", {.compression = packing.name});
        ASSERT_FALSE(float3.error) << float3.error.message();
        EXPECT_TRUE(samePixels(*floats, *float3.picture.image));
    }

    // A frame with next to nothing in it, as compositors write them.
    Imf::Header header = exrHeader({5, 5, 5, 5}, {0, 0, 2047, 1555}, halfRgba, Imf::ZIPS_COMPRESSION);
    header.insert("comments", Imf::StringAttribute("an empty frame"));
    EXPECT_EQ(readWell(scanlineExr(header)).image->width(), 2048);
}

TEST(Exr, OfTilesIsReadAtItsFirstLevel)
{
    for (Packing const packing : lossless) {
        for (Imf::LevelMode const mode : {Imf::ONE_LEVEL, Imf::MIPMAP_LEVELS, Imf::RIPMAP_LEVELS}) {
            for (Imf::LineOrder const order : {Imf::INCREASING_Y, Imf::DECREASING_Y, Imf::RANDOM_Y}) {
                for (Size const tile : {Size{16, 8}, Size{5, 7}, Size{64, 64}}) {
                    SCOPED_TRACE(::testing::Message() << packing.name << " levels " << mode << " order "
                                                      << order << " tiles " << tile);
                    Imf::Header header = exrHeader(37, 29, halfRgba, packing.code);
                    header.lineOrder() = order;
                    expectPixels<Half4>(readWell(tiledExr(header, tile.width, tile.height, mode)), {37, 29},
                                        halfPixel);
                }
            }
        }
    }
    expectPixels<Float3>(readWell(tiledExr(exrHeader(37, 29, floatColour), 16, 16, Imf::ONE_LEVEL)), {37, 29},
                         colourPixel);
}

TEST(Exr, OfSeveralPartsIsReadAtItsFirst)
{
    ExrWindow const display = {0, 0, 10, 39};
    Bytes const file =
        multiPartExr({exrHeader(11, 40, floatColour), exrHeader({1, 2, 5, 9}, display, halfRgba)});
    expectPixels<Float3>(readWell(file), {11, 40}, colourPixel);
}

TEST(Exr, ShowsItsDisplayWindow)
{
    // Transparent black where there is no data; data beyond the display is left out.
    struct Case {
        ExrWindow data, display;
    };
    constexpr Case cases[] = {
        {{2, 3, 9, 30}, {0, 0, 12, 40}},     // data within
        {{-5, -7, 20, 40}, {0, 0, 12, 20}},  // data around
        {{-5, 4, 6, 40}, {-2, 1, 12, 20}},   // across a corner
        {{100, 200, 130, 240}, {100, 200, 110, 230}},
        {{20, 0, 30, 10}, {0, 0, 12, 10}},   // beside
        {{0, -40, 10, -20}, {0, 0, 10, 5}},  // above
        {{-30, -20, -10, -1}, {-35, -25, -5, 3}},
    };
    for (Case const& c : cases) {
        Size const size = {c.display.right - c.display.left + 1, c.display.bottom - c.display.top + 1};
        auto const inData = [&](int x, int y) {
            return x >= c.data.left && x <= c.data.right && y >= c.data.top && y <= c.data.bottom;
        };
        auto const half4 = [&](int column, int line) {
            int const x = c.display.left + column, y = c.display.top + line;
            return inData(x, y) ? halfPixel(x, y) : Half4{0.0f, 0.0f, 0.0f, 0.0f};
        };
        auto const opaque = [&](int column, int line) {
            Half4 pixel = half4(column, line);
            pixel.a = inData(c.display.left + column, c.display.top + line) ? 1.0f : 0.0f;
            return pixel;
        };
        SCOPED_TRACE(::testing::Message() << c.data.left << ", " << c.data.top);
        expectPixels<Half4>(readWell(scanlineExr(exrHeader(c.data, c.display, halfRgba))), size, half4);
        expectPixels<Half4>(readWell(scanlineExr(exrHeader(c.data, c.display, halfColour))), size, opaque);
        expectPixels<Half4>(readWell(tiledExr(exrHeader(c.data, c.display, halfRgba), 8, 4, Imf::ONE_LEVEL)),
                            size, half4);
    }
}

TEST(Exr, HasTheTypeOfItsChannels)
{
    Size const size = {7, 5};
    auto const file = [&](std::vector<std::string> const& channels) {
        return readWell(scanlineExr(exrHeader(size.width, size.height, channels)));
    };
    auto const at = [](char const* name) { return [name](int x, int y) { return exrValue(name, x, y); }; };
    expectPixels<Half4>(file(halfRgba), size, halfPixel);
    expectPixels<Half4>(file(halfColour), size, [](int x, int y) {
        Half4 pixel = halfPixel(x, y);
        pixel.a = 1.0f;
        return pixel;
    });
    expectPixels<Float3>(file(floatColour), size, colourPixel);
    expectPixels<Float4>(file(floatRgba), size, [](int x, int y) {
        return Float4{exrValue("R", x, y), exrValue("G", x, y), exrValue("B", x, y), exrValue("A", x, y)};
    });
    // Half and float mixed become float.
    expectPixels<Float4>(file({"R:half", "G:float", "B:half", "A:half"}), size, [](int x, int y) {
        return Float4{exrValue("R", x, y), exrValue("G", x, y), exrValue("B", x, y), exrValue("A", x, y)};
    });
    expectPixels<Float3>(file({"R:uint", "G:uint", "B:uint"}), size, [](int x, int y) {
        return Float3{static_cast<float>(exrInteger("R", x, y)), static_cast<float>(exrInteger("G", x, y)),
                      static_cast<float>(exrInteger("B", x, y))};
    });
    // One channel of any name, and grey beside other channels.
    expectPixels<float>(file({"Y:half"}), size, at("Y"));
    expectPixels<float>(file({"Y:float"}), size, at("Y"));
    expectPixels<float>(file({"depth:float"}), size, at("depth"));
    expectPixels<float>(file({"A:half"}), size, at("A"));
    expectPixels<float>(file({"R:uint"}), size,
                        [](int x, int y) { return static_cast<float>(exrInteger("R", x, y)); });
    expectPixels<float>(file({"Y:float", "Z:float"}), size, at("Y"));
    // Grey with alpha.
    expectPixels<Half4>(file({"Y:half", "A:half"}), size, [](int x, int y) {
        float const v = exrValue("Y", x, y);
        return Half4{v, v, v, exrValue("A", x, y)};
    });
    expectPixels<Float4>(file({"Y:float", "A:half"}), size, [](int x, int y) {
        float const v = exrValue("Y", x, y);
        return Float4{v, v, v, exrValue("A", x, y)};
    });
    // Missing colours are 0, other channels are left out.
    expectPixels<Float3>(file({"G:float", "Z:float"}), size, [](int x, int y) {
        return Float3{0, exrValue("G", x, y), 0};
    });
    expectPixels<Float4>(file({"R:float", "A:float", "N.X:half"}), size, [](int x, int y) {
        return Float4{exrValue("R", x, y), 0, 0, exrValue("A", x, y)};
    });
    expectPixels<Half4>(file({"B:half", "Z:float"}), size, [](int x, int y) {
        return Half4{0.0f, 0.0f, exrValue("B", x, y), 1.0f};
    });
}

TEST(Exr, IsReadAsTheTypeAsked)
{
    Bytes const file = scanlineExr(exrHeader(7, 5, floatColour));
    for (PixelTypeId const type : {PixelTypeId::Byte, PixelTypeId::Byte4, PixelTypeId::Half4,
                                   PixelTypeId::Float, PixelTypeId::Float3, PixelTypeId::Float4}) {
        ko::Reference<Image> expected(readWell(file).image->clone());
        Misfits misfits;
        convertPicture(expected, type, Transfer::Srgb, misfits);
        Picture const picture = readWell(file, {.pixelType = type});
        EXPECT_TRUE(samePixels(*expected, *picture.image));
        EXPECT_EQ(picture.misfits, misfits);
        EXPECT_EQ(misfits.any(), type == PixelTypeId::Byte || type == PixelTypeId::Byte4);
    }
}

TEST(Exr, GivesTheLayerAskedFor)
{
    Bytes const file = scanlineExr(exrHeader(7, 5,
                                             {"R:half", "G:half", "B:half", "light.key.R:float",
                                              "light.key.G:float", "light.key.B:float", "depth.Z:float"}));
    expectPixels<Float3>(readWell(file, {.layer = "light.key"}), {7, 5}, [](int x, int y) {
        return Float3{exrValue("light.key.R", x, y), exrValue("light.key.G", x, y),
                      exrValue("light.key.B", x, y)};
    });
    expectPixels<float>(readWell(file, {.layer = "depth"}), {7, 5},
                        [](int x, int y) { return exrValue("depth.Z", x, y); });
    EXPECT_EQ(readWell(file).image->pixelType(), PixelTypeId::Half4);
    EXPECT_EQ(
        errorOf(file, {.layer = "light"}),
        "exr: byte 0: there is no layer \"light\"; the file has \"depth\", \"light.key\", the unnamed one");
    EXPECT_EQ(errorOf(scanlineExr(exrHeader(2, 2, {"a.R:half", "a.G:half"}))),
              "exr: byte 0: there is no unnamed layer; the file has \"a\"");
}

TEST(Exr, ThatIsNotSupportedTellsWhy)
{
    EXPECT_EQ(errorOf(deepExr(4, 3)),
              "exr: byte 0: the first part holds deep pixels, which are not supported");
    EXPECT_EQ(errorOf(chromaExr(8, 8)),
              "exr: byte 0: luminance with chroma channels (RY, BY) is not supported");
    EXPECT_EQ(errorOf(scanlineExr(exrHeader(4, 4, {"U:half", "V:half"}))),
              "exr: byte 0: none of the channels is R, G, B or Y, and there is more than one");
    Imf::Header header = exrHeader(4, 4, {"R:half", "B:half"});
    header.channels().insert("G", Imf::Channel(Imf::HALF, 2, 2));
    EXPECT_EQ(errorOf(scanlineExr(header)),
              "exr: byte 0: the channel G is subsampled, which is not supported");
}

TEST(Exr, ComesBackToTheBitWithoutLoss)
{
    for (Packing const packing : lossless) {
        for (Size const size : sizes) {
            SCOPED_TRACE(::testing::Message() << packing.name << ", " << size);
            auto const halves = hostileImage<Half4>(size, 1);
            auto const grey = hostileImage<float>(size, 2);
            auto const colour = hostileImage<Float3>(size, 3);
            auto const alpha = hostileImage<Float4>(size, 4);
            for (Image const* image :
                 {static_cast<Image const*>(halves.get()), static_cast<Image const*>(grey.get()),
                  static_cast<Image const*>(colour.get()), static_cast<Image const*>(alpha.get())}) {
                RoundTrip const trip = roundTrip(*image, "exr", {.compression = packing.name});
                ASSERT_FALSE(trip.error) << trip.error.message();
                EXPECT_TRUE(samePixels(*image, *trip.picture.image));
                EXPECT_FALSE(trip.written.any());
            }
        }
    }
}

TEST(Exr, WithLossIsWrittenAsTheLibraryReadsIt)
{
    for (Packing const packing : lossy) {
        SCOPED_TRACE(packing.name);
        auto const image = randomImage<Half4>({37, 33}, 1);
        RoundTrip const trip = roundTrip(*image, "exr", {.compression = packing.name});
        ASSERT_FALSE(trip.error) << trip.error.message();
        EXPECT_TRUE(sameBits(readByLibrary<std::uint16_t>(trip.file, {"R", "G", "B", "A"}),
                             channelsOf<std::uint16_t>(*trip.picture.image)));
        // The file says how it is packed; 24 bits hold halves without loss.
        ExrIn in(trip.file);
        EXPECT_EQ(Imf::InputFile(in, 0).header().compression(), packing.code);
        EXPECT_EQ(bool(samePixels(*image, *trip.picture.image)), packing.code == Imf::PXR24_COMPRESSION);
    }
}

TEST(Exr, HasTheBitsOfThePixelsUnlessAsked)
{
    auto const typeOf = [](Image const& image, int bits) {
        RoundTrip const trip = roundTrip(image, "exr", {.bits = bits});
        ExrIn in(trip.file);
        return Imf::InputFile(in, 0).header().channels().begin().channel().type;
    };
    EXPECT_EQ(typeOf(*randomImage<Byte4>({3, 2}, 1), 0), Imf::HALF);
    EXPECT_EQ(typeOf(*randomImage<Half4>({3, 2}, 1), 0), Imf::HALF);
    EXPECT_EQ(typeOf(*randomImage<Half4>({3, 2}, 1), 32), Imf::FLOAT);
    EXPECT_EQ(typeOf(*randomImage<Float3>({3, 2}, 1), 0), Imf::FLOAT);
    EXPECT_EQ(typeOf(*randomImage<Float3>({3, 2}, 1), 16), Imf::HALF);
    EXPECT_TRUE(roundTrip(*randomImage<float>({3, 2}, 1), "exr", {.bits = 8})
                    .error.message()
                    .ends_with("OpenEXR has 16 or 32 bits in a channel, not 8"));
    EXPECT_TRUE(roundTrip(*randomImage<float>({3, 2}, 1), "exr", {.compression = "best"})
                    .error.message()
                    .ends_with("OpenEXR has no compression \"best\""));
}

TEST(Exr, ClampsAndCountsWhatHalvesCannotHold)
{
    auto const image = hostileImage<Float4>({33, 5}, 6);
    RoundTrip const trip = roundTrip(*image, "exr", {.bits = 16});
    ASSERT_FALSE(trip.error) << trip.error.message();
    Misfits expected;
    for (int row = 0; row < 5; ++row) {
        std::vector<koImage::half> values(33 * 4);
        rowAsHalves(*image, row, 4, Transfer::Srgb, values, expected);
        EXPECT_EQ(std::memcmp(values.data(), pictureRow<Half4>(*trip.picture.image, row).data(), 33 * 8), 0);
    }
    EXPECT_EQ(trip.written, expected);
    EXPECT_GT(expected.overflow, 0);
    EXPECT_GT(expected.negative, 0);
    EXPECT_EQ(expected.nan, 0);
}

TEST(Exr, BytesAreWrittenAsTheirLightAndComeBack)
{
    auto const image = randomImage<Byte4>({61, 7}, 6);
    RoundTrip const trip = roundTrip(*image, "exr", {}, {.pixelType = PixelTypeId::Byte4});
    ASSERT_FALSE(trip.error) << trip.error.message();
    EXPECT_TRUE(samePixels(*image, *trip.picture.image));
    EXPECT_FALSE(trip.picture.misfits.any());
}

TEST(Exr, NamesTheProgramAndKeepsMetadata)
{
    auto const image = randomImage<float>({3, 2}, 1);
    RoundTrip const trip =
        roundTrip(*image, "exr",
                  {.metadata = {{"shape", "latlong"}, {"orientation", "z up"}, {"software", "another"}}});
    ASSERT_FALSE(trip.error) << trip.error.message();
    Metadata metadata = trip.picture.metadata;
    std::sort(metadata.begin(), metadata.end());
    ASSERT_EQ(metadata.size(), 3u);
    EXPECT_EQ(metadata[0], std::pair(std::string("orientation"), std::string("z up")));
    EXPECT_EQ(metadata[1], std::pair(std::string("shape"), std::string("latlong")));
    EXPECT_EQ(metadata[2].first, "software");
    EXPECT_TRUE(metadata[2].second.starts_with("koImage "));

    // Names that have another meaning in the format, or none.
    EXPECT_TRUE(roundTrip(*image, "exr", {.metadata = {{"channels", "text"}}}).error);
    EXPECT_TRUE(roundTrip(*image, "exr", {.metadata = {{"", "text"}}}).error);
}

TEST(Exr, ThatIsDamagedTellsTheByteAndTheReason)
{
    Bytes const file = scanlineExr(exrHeader(40, 40, halfRgba));
    Bytes cut(file.begin(), file.end() - 100);
    std::string const message = errorOf(cut);
    EXPECT_TRUE(message.starts_with("exr: byte ")) << message;
    // The last of the chunks of 16 lines.
    EXPECT_NE(message.find("scanline 32"), std::string::npos) << message;
    EXPECT_TRUE(errorOf(Bytes(file.begin(), file.begin() + 50)).starts_with("exr: byte "));
}

TEST(Exr, ThatIsTooShortForItsWindowsAllocatesNothing)
{
    Bytes const file = scanlineExr(exrHeader({0, 0, 3, 3}, {0, 0, 3, 3}, halfRgba));
    std::string const text(reinterpret_cast<char const*>(file.data()), file.size());
    for (std::string const window : {"dataWindow", "displayWindow"}) {
        for (std::uint32_t const last : {100000u, 0x7FFFFFFEu}) {
            // The corner of the window at the lower right follows name, type, length and the other corner.
            Bytes large = file;
            std::size_t const at = text.find(window) + window.size() + 1 + 6 + 4 + 8;
            std::memcpy(large.data() + at, &last, 4);
            std::memcpy(large.data() + at + 4, &last, 4);
            std::string message;
            EXPECT_LT(largestRequestOf([&] { message = errorOf(large); }), 300000u);
            EXPECT_TRUE(message.starts_with("exr: byte ")) << message;
        }
    }
}

TEST(Exr, WithDamageDoesNoHarm)
{
    std::vector<Bytes> files;
    for (Packing const packing : allPackings())
        files.push_back(scanlineExr(
            exrHeader(5, 4, packing.code == Imf::PIZ_COMPRESSION ? floatColour : halfRgba, packing.code)));
    files.push_back(tiledExr(exrHeader(5, 3, {"Y:half", "A:half"}), 2, 2, Imf::MIPMAP_LEVELS));
    files.push_back(multiPartExr({exrHeader(2, 2, {"R:uint"}), exrHeader(2, 2, {"Y:half"})}));
    Imf::Header windows = exrHeader({-1, 2, 1, 4}, {0, 0, 3, 5}, {"a.R:half", "Y:float"});
    windows.setPreviewImage(Imf::PreviewImage(2, 1));
    windows.insert("views", Imf::StringVectorAttribute({"left", "right"}));
    windows.insert("shape", Imf::StringAttribute("cross"));
    files.push_back(scanlineExr(windows));
    for (Bytes const& file : files) {
        // What pixels packed in the tightest way could become.
        expectNoHarmFrom(file, file.size() * 64 * 1032 + (1u << 20));
    }
}

TEST(Exr, OfAnotherProgramIsRead)
{
    Folder const folder;
    Misfits misfits;
    auto const image = randomImage<Half4>({45, 31}, 7);
    ASSERT_FALSE(writePicture(folder / "ours.exr", *image, misfits));
    auto const expectSame = [&](std::string const& name) {
        Picture picture;
        koUtil::Error const error = readPicture(folder / name, picture);
        ASSERT_FALSE(error) << error.message();
        EXPECT_TRUE(samePixels(*image, *picture.image));
    };
    // The programs read our file, and we theirs: each has to understand the other.
    ASSERT_TRUE(runs("exrmaketiled -t 16 8 -z piz " + folder / "ours.exr" + " " + folder / "tiled.exr"));
    expectSame("tiled.exr");
    ASSERT_TRUE(runs("exrmaketiled -m -t 16 16 -z zip " + folder / "ours.exr" + " " + folder / "mip.exr"));
    expectSame("mip.exr");
    ASSERT_TRUE(runs("exrmultipart -combine -i " + folder / "ours.exr" + ":0 " + folder / "tiled.exr" +
                     ":0 -o " + folder / "parts.exr -override 1 > " + folder / "log"));
    expectSame("parts.exr");
    ASSERT_TRUE(runs("exrheader " + folder / "ours.exr" + " | grep -q 'software (type string): \"koImage '"));
}

}  // namespace koImageIO
