#include "tool/testing/command.h"

#include "koImage/image/typed_image.h"
#include "koImage/testing/test_images.h"
#include "tool/testing/packets.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

namespace koTool::testing {
namespace {

using koImage::PixelTypeId;
using koImageIO::PictureFormat;
using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

std::vector<int> const sixPixels = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30, 40, 50, 60, 70, 80, 90};

TEST(Convert, KeepsThePixelsOfBytesThroughPng)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "b.png"}).exitCode);
    EXPECT_EQ(0, koimage({"convert", folder / "b.png", folder / "c.ppm"}).exitCode);
    EXPECT_EQ(sixPixels, ppmChannels(readFile(folder / "c.ppm")));
}

TEST(Convert, WritesTheFormatThatTheExtensionOrTheOptionNames)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    struct Case {
        char const* extension;
        char const* format;
        PictureFormat expected;
    };
    for (Case const& c : {Case{"exr", "exr", PictureFormat::Exr}, Case{"hdr", "hdr", PictureFormat::Hdr},
                          Case{"png", "png", PictureFormat::Png}, Case{"pfm", "pfm", PictureFormat::Pfm},
                          Case{"ppm", "pnm", PictureFormat::Pnm}}) {
        std::string const byName = folder / "b." + c.extension;
        auto const named = koimage({"convert", folder / "a.ppm", byName});
        EXPECT_EQ(0, named.exitCode) << named.err;
        EXPECT_EQ(c.expected, picture(byName).format);

        auto const asked = koimage({"convert", folder / "a.ppm", folder / "c.xyz", "--format", c.format});
        EXPECT_EQ(0, asked.exitCode) << asked.err;
        EXPECT_EQ(c.expected, picture(folder / "c.xyz").format);
    }
}

TEST(Convert, RefusesAnUnknownExtensionAndWritesNothing)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    auto const outcome = koimage({"convert", folder / "a.ppm", folder / "b.xyz"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, StartsWith("koimage: " + folder / "b.xyz" + ": "));
    EXPECT_THAT(folder.names(), ElementsAre("a.ppm"));
}

TEST(Convert, KeepsTheOldFileWhenWritingFails)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    writeFile(folder / "b.png", "old");
    // PNG has no 32 bits.
    auto const outcome = koimage({"convert", folder / "a.ppm", folder / "b.png", "--bits", "32"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, StartsWith("koimage: " + folder / "b.png" + ": "));
    EXPECT_EQ("old", readFile(folder / "b.png"));

    EXPECT_EQ(1, koimage({"convert", folder / "a.ppm", folder / "none/b.png"}).exitCode);
    EXPECT_THAT(folder.names(), ElementsAre("a.ppm", "b.png"));
}

TEST(Convert, ReadsAsTheTypeThatIsAskedFor)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(1, 1, {0.25f, 0.5f, 1}));
    auto const outcome = koimage({"convert", folder / "a.pfm", folder / "b.png", "--type", "Byte4"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(PixelTypeId::Byte4, picture(folder / "b.png").image->pixelType());
}

TEST(Convert, WritesTheBitsThatAreAskedFor)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    // Byte 24 of a PNG file is its depth.
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "b.png", "--bits", "16"}).exitCode);
    EXPECT_EQ(16, readFile(folder / "b.png")[24]);
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "b.png", "--bits", "8"}).exitCode);
    EXPECT_EQ(8, readFile(folder / "b.png")[24]);

    for (auto const& [bits, type] : {std::pair{"16", PixelTypeId::Half4}, {"32", PixelTypeId::Float3}}) {
        EXPECT_EQ(0,
                  koimage({"convert", folder / "a.ppm", folder / "b.exr", "--type", "Float3", "--bits", bits})
                      .exitCode);
        EXPECT_EQ(type, picture(folder / "b.exr").image->pixelType());
    }
}

TEST(Convert, CompressesExrAsAsked)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(64, 64, std::vector<int>(64 * 64 * 3, 77)));
    EXPECT_EQ(0,
              koimage({"convert", folder / "a.ppm", folder / "none.exr", "--compression", "none"}).exitCode);
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "piz.exr", "--compression", "piz"}).exitCode);
    EXPECT_LT(2 * readFile(folder / "piz.exr").size(), readFile(folder / "none.exr").size());
    EXPECT_EQ(info(folder / "none.exr")["mean"], info(folder / "piz.exr")["mean"]);
}

TEST(Convert, GoesThroughTheCurveUnlessItIsRaw)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(1, 1, {0, 128, 255}));
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "b.pfm", "--type", "Float3"}).exitCode);
    // The sRGB curve of IEC 61966-2-1 at 128 / 255.
    float const light = static_cast<float>(std::pow((128 / 255.0 + 0.055) / 1.055, 2.4));
    EXPECT_FLOAT_EQ(light, colours(folder / "b.pfm")->pixels()[0].g);
    EXPECT_EQ(0, koimage({"convert", folder / "b.pfm", folder / "b.ppm", "--bits", "8"}).exitCode);
    EXPECT_THAT(ppmChannels(readFile(folder / "b.ppm")), ElementsAre(0, 128, 255));

    EXPECT_EQ(0,
              koimage({"convert", folder / "a.ppm", folder / "c.pfm", "--type", "Float3", "--raw"}).exitCode);
    EXPECT_FLOAT_EQ(128.0f / 255.0f, colours(folder / "c.pfm")->pixels()[0].g);
    EXPECT_EQ(0, koimage({"convert", folder / "c.pfm", folder / "c.ppm", "--bits", "8", "--raw"}).exitCode);
    EXPECT_THAT(ppmChannels(readFile(folder / "c.ppm")), ElementsAre(0, 128, 255));
}

TEST(Convert, SaysWhatItHadToClamp)
{
    Folder const folder;
    float const nan = std::numeric_limits<float>::quiet_NaN();
    writeFile(folder / "a.pfm", pfm(2, 1, {2, -1, nan, 0.5f, 3, 4}));
    auto outcome = koimage({"convert", folder / "a.pfm", folder / "b.png"});
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "b.png" + ": values clamped: 3 too large, 1 too small, 1 not a number\n",
              outcome.err);
    EXPECT_THAT(outcome.out, IsEmpty());

    outcome = koimage({"convert", folder / "a.pfm", folder / "b.png", "--quiet"});
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_THAT(outcome.err, IsEmpty());

    // On the way to the pixels that were asked for, it is the file read that they are said of.
    outcome = koimage({"convert", folder / "a.pfm", folder / "b.png", "--type", "Byte4"});
    EXPECT_THAT(outcome.err, StartsWith("koimage: " + folder / "a.pfm" + ": values clamped: "));
}

TEST(Convert, TellsAsJsonWhatItWrote)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(2, 1, {2, -1, 0, 0.5f, 3, 4}));
    auto const outcome = koimage({"convert", folder / "a.pfm", folder / "b.png", "--json", "-q"});
    EXPECT_EQ((json{{"file", folder / "b.png"},
                    {"width", 2},
                    {"height", 1},
                    {"type", "Float3"},
                    {"clamped", {{"overflow", 3}, {"negative", 1}, {"nan", 0}}}}),
              json::parse(outcome.out));
}

TEST(Convert, GoesFromStandardInputToStandardOutput)
{
    auto const outcome = koimage({"convert", "-", "-", "--format", "pnm"}, ppm(3, 2, sixPixels));
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(sixPixels, ppmChannels(outcome.out));
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST(Convert, WorksInAPipe)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    auto const outcome =
        shell("koimage convert '" + folder / "a.ppm" + "' - --format png | koimage convert - - --format pnm");
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(sixPixels, ppmChannels(outcome.out));
}

TEST(Convert, FailsOnEmptyStandardInput)
{
    auto const outcome = koimage({"convert", "-", "-", "--format", "png"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, StartsWith("koimage: standard input: "));
    EXPECT_THAT(outcome.out, IsEmpty());
}

TEST(Convert, MayOverwriteItsOwnInput)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "a.ppm", "--bits", "8"}).exitCode);
    EXPECT_EQ(sixPixels, ppmChannels(readFile(folder / "a.ppm")));
}

TEST(Convert, KeepsPicturesInPacketFilesToTheBit)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    writeFile(folder / "b.pfm", pfm(1, 2, {1e-40f, -2, 3e38f, 0.25f, -0.0f, 7}));
    EXPECT_EQ(0, koimage({"convert", folder / "b.pfm", folder / "c.exr", "--type", "Half4", "-q"}).exitCode);
    for (std::string const name : {"a.ppm", "b.pfm", "c.exr"}) {
        auto const outcome = koimage({"convert", folder / name, folder / "x.packets"});
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        auto const images = imagesOf(readFile(folder / "x.packets"));
        ASSERT_EQ(1u, images.size());
        EXPECT_TRUE(koImage::testing::samePixels(*picture(folder / name).image, *images[0])) << name;

        std::string const back = folder / ("back-" + name);
        EXPECT_EQ(0, koimage({"convert", folder / "x.packets", back}).exitCode);
        EXPECT_TRUE(koImage::testing::samePixels(*picture(folder / name).image, *picture(back).image))
            << name;
    }
}

TEST(Convert, KnowsAPacketFileByItsFirstBytesAndWritesOneByItsNameOrOption)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "b.PACKETS"}).exitCode);
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "c.png", "--format", "packets"}).exitCode);
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "d.packets", "--format", "png"}).exitCode);
    EXPECT_EQ(1u, imagesOf(readFile(folder / "b.PACKETS")).size());
    EXPECT_EQ(1u, imagesOf(readFile(folder / "c.png")).size());
    EXPECT_EQ(PictureFormat::Png, picture(folder / "d.packets").format);
    auto const outcome = koimage({"convert", folder / "c.png", "-", "--format", "pnm"});
    EXPECT_EQ(sixPixels, ppmChannels(outcome.out)) << outcome.err;
}

TEST(Convert, TakesPacketFilesThroughPipes)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    auto outcome = shell("koimage convert '" + folder / "a.ppm" + "' - --format packets | " +
                         "koimage convert - - --format pnm");
    EXPECT_EQ(sixPixels, ppmChannels(outcome.out)) << outcome.err;

    outcome = shell("mkfifo '" + folder / "pipe" + "'; koimage convert '" + folder / "a.ppm" +
                    "' - --format packets > '" + folder / "pipe" + "' & koimage blur '" + folder / "pipe" +
                    "' - 1 --format pnm");
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;

    outcome = shell("koimage convert '" + folder / "a.ppm" + "' - --format packets > /dev/full");
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: standard output: No space left on device\n", outcome.err);
}

TEST(Convert, TakesTheImageOfAPacketFileThatIsNamed)
{
    Folder const folder;
    auto const first = koImage::testing::randomImage<koImage::Float3>({4, 4}, 1);
    auto const second = koImage::testing::randomImage<koImage::Byte4>({5, 5}, 2);
    writeFile(folder / "a.packets", packetFile({first.get(), second.get()}));
    for (auto const& [layer, width] : {std::pair{"", 4}, {"1", 4}, {"image-2", 5}, {"#2", 5}}) {
        auto const outcome = koimage({"convert", folder / "a.packets", folder / "b.exr", "--layer", layer});
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        EXPECT_EQ(width, picture(folder / "b.exr").image->width()) << layer;
    }
    auto const outcome = koimage({"convert", folder / "a.packets", folder / "c.exr", "--layer", "3"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "a.packets" + ": there is no 3; there is image-1, image-2\n",
              outcome.err);
}

TEST(Convert, GoesThroughTheCurveWithBytesOfPacketFilesAsWithOthers)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(3, 2, sixPixels));
    EXPECT_EQ(0, koimage({"convert", folder / "a.ppm", folder / "a.packets"}).exitCode);
    for (std::string const option : {"--quiet", "--raw"}) {
        for (std::string const name : {"a.ppm", "a.packets"})
            EXPECT_EQ(
                0, koimage({"convert", folder / name, folder / (name + ".pfm"), "--type", "Float3", option})
                       .exitCode);
        EXPECT_EQ(readFile(folder / "a.ppm.pfm"), readFile(folder / "a.packets.pfm")) << option;
    }
}

TEST(Convert, KeepsTheWrapFlagsAndThePixelsThatOnlyPacketFilesHold)
{
    Folder const folder;
    auto const image = koImage::testing::hostileImage<koImage::Int4>({3, 2}, 1);
    image->setWrap(true, false);
    writeFile(folder / "a.packets", packetFile({image.get()}));
    EXPECT_EQ(0, koimage({"convert", folder / "a.packets", folder / "b.packets"}).exitCode);
    auto const images = imagesOf(readFile(folder / "b.packets"));
    ASSERT_EQ(1u, images.size());
    EXPECT_TRUE(koImage::testing::samePixels(*image, *images[0]));
    EXPECT_TRUE(images[0]->wrapHorizontal());
    EXPECT_FALSE(images[0]->wrapVertical());

    auto outcome = koimage({"convert", folder / "a.packets", folder / "b.png"});
    EXPECT_EQ(1, outcome.exitCode);
    outcome = koimage({"convert", folder / "a.packets", folder / "b.packets", "--type", "Float4"});
    EXPECT_EQ("koimage: " + folder / "a.packets" + ": pixels of Int4 cannot be made others\n", outcome.err);
    outcome = koimage({"blur", folder / "a.packets", folder / "b.packets", "3"});
    EXPECT_EQ(1, outcome.exitCode);
}

TEST(Convert, RefusesDamagedPacketFilesAndWhatTheyCannotHold)
{
    Folder const folder;
    auto const image = koImage::testing::randomImage<koImage::Float3>({4, 4}, 1);
    std::string bytes = packetFile({image.get()});
    std::size_t const parcel = recordsOf(bytes)[3];
    bytes[parcel + 40] ^= 1;
    writeFile(folder / "a.packets", bytes);
    auto outcome = koimage({"convert", folder / "a.packets", folder / "b.exr"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "a.packets" + ": payload damaged: byte " + std::to_string(parcel) +
                  ", record 3, and more; koimage packet recover saves what is sound\n",
              outcome.err);

    writeFile(folder / "empty.packets", packetFile({}));
    outcome = koimage({"convert", folder / "empty.packets", folder / "b.exr"});
    EXPECT_EQ("koimage: " + folder / "empty.packets" + ": holds no image\n", outcome.err);
    writeFile(folder / "none.packets", packetFile({koImage::testing::imageOf<float>({0, 3}).get()}));
    outcome = koimage({"convert", folder / "none.packets", folder / "b.exr"});
    EXPECT_EQ("koimage: " + folder / "none.packets" + ": image-1 has no pixels\n", outcome.err);

    writeFile(folder / "c.ppm", ppm(1, 1, {1, 2, 3}));
    outcome = koimage({"convert", folder / "c.ppm", folder / "c.packets", "--bits", "16"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("--bits"));
    EXPECT_FALSE(std::filesystem::exists(folder / "c.packets"));
    outcome = koimage({"convert", folder / "c.ppm", folder / "no/c.packets"});
    EXPECT_EQ("koimage: " + folder / "no/c.packets" + ": cannot be written: No such file or directory\n",
              outcome.err);
}

}  // namespace
}  // namespace koTool::testing
