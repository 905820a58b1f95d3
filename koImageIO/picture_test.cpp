#include "koImageIO/picture.h"
#include "koImageIO/testing/files.h"

#include "koImage/image/factory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <thread>

namespace koImageIO {

namespace {

using namespace koImage;
using koImage::testing::imageOf;
using koImage::testing::randomImage;
using koImage::testing::samePixels;
using testing::Bytes;
using testing::bytesOfFile;
using testing::Folder;
using testing::writeFile;

using Names = std::vector<std::string>;

// A standard stream that is something else while this lives.
class Redirected {
public:
    Redirected(int stream, int to) : stream_(stream), before_(dup(stream))
    {
        dup2(to, stream);
        close(to);
    }
    Redirected(Redirected const&) = delete;
    Redirected& operator=(Redirected const&) = delete;
    ~Redirected()
    {
        dup2(before_, stream_);
        close(before_);
    }

private:
    int stream_;
    int before_;
};

class Followed : public koUtil::Progress {
public:
    void set(double fraction) override
    {
        EXPECT_GE(fraction, last);
        EXPECT_LE(fraction, 1.0);
        last = fraction;
    }
    double last = 0;
};

Bytes pngOf(Image const& image)
{
    return testing::roundTrip(image, "png").file;
}

}  // namespace

TEST(WritePicture, TakesTheFormatFromTheExtension)
{
    Folder const folder;
    auto const image = randomImage<Byte4>({5, 4}, 1);
    struct Case {
        std::string name;
        PictureFormat format;
    };
    Case const cases[] = {{"a.png", PictureFormat::Png},
                          {"a.PNG", PictureFormat::Png},
                          {"a.hdr.png", PictureFormat::Png},
                          {"a.exr", PictureFormat::Exr},
                          {"b.Exr", PictureFormat::Exr}};
    for (Case const& c : cases) {
        Misfits misfits;
        koUtil::Error const error = writePicture(folder / c.name, *image, misfits);
        ASSERT_FALSE(error) << error.message();
        Picture picture;
        ASSERT_FALSE(readPicture(folder / c.name, picture));
        EXPECT_EQ(picture.format, c.format) << c.name;
    }
}

TEST(WritePicture, TakesTheFormatAskedForWhateverTheName)
{
    Folder const folder;
    auto const image = randomImage<Byte4>({5, 4}, 1);
    for (std::string const name : {"a", "a.exr"}) {
        Misfits misfits;
        ASSERT_FALSE(writePicture(folder / name, *image, misfits, {.format = PictureFormat::Png}));
        Picture picture;
        ASSERT_FALSE(readPicture(folder / name, picture));
        EXPECT_EQ(picture.format, PictureFormat::Png);
    }
}

TEST(WritePicture, NamesTheFormatsThatItKnows)
{
    Folder const folder;
    auto const image = randomImage<Byte4>({5, 4}, 1);
    for (std::string const name : {"a.gif", "a", "a.", ".d/exr", "exr", ""}) {
        Misfits misfits;
        std::string const path = name.empty() ? name : folder / name;
        koUtil::Error const error = writePicture(path, *image, misfits);
        EXPECT_TRUE(error.message().starts_with(
            path + ": the format to write cannot be told from the name; known are .exr, "))
            << error.message();
    }
    EXPECT_EQ(folder.names(), Names());
}

TEST(WritePicture, RefusesImagesThatAreNoPictures)
{
    Folder const folder;
    Misfits misfits;
    for (int id = 0; id <= 8; ++id) {
        ko::Reference<Image> const image(imageCreateByType(static_cast<PixelTypeId>(id)));
        image->resize(2, 2);
        std::memset(image->data(), 0, static_cast<std::size_t>(4 * image->bytesPerPixel()));
        bool const other =
            id == int(PixelTypeId::UInt) || id == int(PixelTypeId::Int4) || id == int(PixelTypeId::Double3);
        EXPECT_EQ(bool(writePicture(folder / (std::to_string(id) + ".png"), *image, misfits)), other) << id;
    }
    for (auto const size : koImage::testing::hostileSizes) {
        ko::Reference<Image> image(new TypedImage<unsigned char>);
        image->resize(size.width, size.height);
        EXPECT_TRUE(writePicture(folder / "none.png", *image, misfits)) << size;
    }
    ko::Reference<TypedImage<float>> borrowed(new TypedImage<float>);
    borrowed->borrow(nullptr, 3, 3);
    EXPECT_TRUE(writePicture(folder / "none.png", *borrowed, misfits));
    EXPECT_FALSE(std::filesystem::exists(folder / "none.png"));
}

TEST(WritePicture, LeavesTheOldFileWhereItFails)
{
    Folder const folder;
    auto const image = randomImage<Byte4>({5, 4}, 1);
    writeFile(folder / "old.png", std::as_bytes(std::span("old", 3)));
    writeFile(folder / "old.exr", std::as_bytes(std::span("old", 3)));
    Misfits misfits;
    for (std::string const name : {"old.png", "old.exr", "new.png", "new.exr"}) {
        koUtil::Error const error = writePicture(folder / name, *image, misfits, {.bits = 7});
        EXPECT_TRUE(error.message().starts_with(folder / name + ": ")) << error.message();
    }
    EXPECT_EQ(folder.names(), (Names{"old.exr", "old.png"}));
    EXPECT_EQ(bytesOfFile(folder / "old.png").size(), 3u);

    std::string const nowhere = folder / "none" + "/a.png";
    EXPECT_EQ(writePicture(nowhere, *image, misfits).message(),
              nowhere + ": cannot be written: No such file or directory");
    EXPECT_FALSE(misfits.any());
}

TEST(WritePicture, LeavesNothingWhereTheDiskIsFull)
{
    Folder const folder;
    auto const image = randomImage<Float4>({300, 300}, 1);
    Misfits misfits;
    // A device that is always full stands for it; a file on it cannot be replaced by a rename.
    Redirected const full(STDOUT_FILENO, open("/dev/full", O_WRONLY | O_CLOEXEC));
    for (PictureFormat const format : {PictureFormat::Png, PictureFormat::Exr}) {
        koUtil::Error const error = writePicture("-", *image, misfits, {.format = format});
        EXPECT_EQ(error.message(), "-: cannot be written: No space left on device");
    }
}

TEST(WritePicture, WritesToStandardOutput)
{
    Folder const folder;
    auto const image = randomImage<Byte4>({5, 4}, 1);
    for (PictureFormat const format : {PictureFormat::Png, PictureFormat::Exr}) {
        std::fflush(stdout);
        {
            Redirected const out(STDOUT_FILENO, open((folder / "out").c_str(),
                                                     O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
            Misfits misfits;
            EXPECT_FALSE(writePicture("-", *image, misfits, {.format = format}));
            EXPECT_TRUE(writePicture("-", *image, misfits)) << "nothing tells the format";
        }
        Picture picture;
        ASSERT_FALSE(readPicture(folder / "out", picture, {.pixelType = PixelTypeId::Byte4}));
        EXPECT_TRUE(samePixels(*image, *picture.image));
        EXPECT_EQ(picture.format, format);
    }
}

TEST(ReadPicture, ReadsStandardInputFromAPipeOrAFile)
{
    Folder const folder;
    // Longer than a pipe holds, and than the first buffer.
    auto const image = randomImage<Byte4>({200, 200}, 1);
    Bytes const file = pngOf(*image);
    ASSERT_GT(file.size(), 100000u);
    std::array<int, 2> pipeEnds = {};
    ASSERT_EQ(pipe(pipeEnds.data()), 0);
    std::thread writer([&] {
        for (std::size_t at = 0; at < file.size();)
            at += static_cast<std::size_t>(write(pipeEnds[1], file.data() + at, file.size() - at));
        close(pipeEnds[1]);
    });
    {
        Redirected const in(STDIN_FILENO, pipeEnds[0]);
        Picture picture;
        koUtil::Error const error = readPicture("-", picture);
        EXPECT_FALSE(error) << error.message();
        ASSERT_TRUE(picture.image);
        EXPECT_TRUE(samePixels(*image, *picture.image));
    }
    writer.join();

    writeFile(folder / "in", file);
    Redirected const in(STDIN_FILENO, open((folder / "in").c_str(), O_RDONLY | O_CLOEXEC));
    Picture picture;
    EXPECT_FALSE(readPicture("-", picture));
    ASSERT_TRUE(picture.image);
    EXPECT_TRUE(samePixels(*image, *picture.image));
}

TEST(ReadPicture, RecognisesTheContentWhateverTheName)
{
    Folder const folder;
    auto const image = randomImage<Byte4>({5, 4}, 1);
    writeFile(folder / "picture.exr", pngOf(*image));
    Picture picture;
    ASSERT_FALSE(readPicture(folder / "picture.exr", picture));
    EXPECT_EQ(picture.format, PictureFormat::Png);
}

TEST(ReadPicture, TellsWhyItCannotRead)
{
    Folder const folder;
    auto const errorOf = [](std::string const& name) {
        Picture picture;
        koUtil::Error const error = readPicture(name, picture);
        EXPECT_FALSE(picture.image);
        return error.message();
    };
    writeFile(folder / "empty", {});
    writeFile(folder / "text", std::as_bytes(std::span("no picture", 10)));
    EXPECT_EQ(errorOf(folder / "none"), folder / "none" + ": cannot be read: No such file or directory");
    EXPECT_EQ(errorOf(folder / "."), folder / "." + ": cannot be read: Is a directory");
    EXPECT_EQ(errorOf(folder / "empty"), folder / "empty" + ": byte 0: not a picture of a known format");
    EXPECT_EQ(errorOf(folder / "text"), folder / "text" + ": byte 0: not a picture of a known format");
}

TEST(ReadPicture, LeavesThePictureAsItWasWhereItFails)
{
    auto const image = randomImage<Byte4>({5, 4}, 1);
    Picture picture;
    picture.image = ko::Reference<Image>(image->clone());
    picture.metadata = {{"shape", "cross"}};
    Image const* const before = picture.image.get();
    Bytes damaged = pngOf(*randomImage<Byte4>({3, 3}, 2));
    damaged.resize(damaged.size() - 20);
    EXPECT_TRUE(readPicture(damaged, "damaged", picture));
    EXPECT_TRUE(readPicture("/none", picture));
    EXPECT_EQ(picture.image.get(), before);
    EXPECT_EQ(picture.metadata.size(), 1u);
}

TEST(ReadPicture, IsRefusedForTypesThatPicturesAreNotReadAs)
{
    Bytes const file = pngOf(*randomImage<Byte4>({5, 4}, 1));
    for (int id = -1; id <= 10; ++id) {
        Picture picture;
        koUtil::Error const error =
            readPicture(file, "a.png", picture, {.pixelType = static_cast<PixelTypeId>(id)});
        bool const known = id == 0 || id == 1 || (id >= 4 && id <= 7);
        EXPECT_EQ(error.message(), known ? "" : "a.png: pictures are not read as this pixel type") << id;
        EXPECT_EQ(bool(picture.image), known);
    }
}

TEST(ReadPicture, CountsWhatItClampsToTheTypeAsked)
{
    auto const image = imageOf<Float3>({2, 1});
    image->pixels()[0] = {2.0f, -1.0f, 0.5f};
    image->pixels()[1] = {std::numeric_limits<float>::quiet_NaN(), 1.0f, 0.0f};
    auto const trip = testing::roundTrip(*image, "exr", {}, {.pixelType = PixelTypeId::Byte4});
    EXPECT_EQ(trip.picture.misfits, (Misfits{1, 1, 1}));
    Byte4 const* const bytes = static_cast<Byte4 const*>(trip.picture.image->data());
    EXPECT_EQ(bytes[0], (Byte4{255, 0, 188, 255}));
    EXPECT_EQ(bytes[1], (Byte4{0, 255, 0, 255}));
}

TEST(ReadPicture, TurnsTheRowsOver)
{
    // Red above, blue below; row 0 of an image is the bottom.
    auto const image = imageOf<Byte4>({1, 2});
    image->pixels()[0] = {0, 0, 255, 255};
    image->pixels()[1] = {255, 0, 0, 255};
    Folder const folder;
    Misfits misfits;
    ASSERT_FALSE(writePicture(folder / "a.png", *image, misfits));
    ASSERT_TRUE(testing::runs("convert-im6 " + folder / "a.png" + " -depth 8 " + folder / "a.rgb"));
    auto const text = bytesOfFile(folder / "a.rgb");
    ASSERT_EQ(text.size(), 6u);
    EXPECT_EQ(std::to_integer<int>(text[0]), 255) << "the file begins with red";
    EXPECT_EQ(std::to_integer<int>(text[5]), 255);
}

TEST(Pictures, TellHowFarTheyAre)
{
    Folder const folder;
    auto const image = randomImage<Float3>({100, 300}, 1);
    for (std::string const name : {"a.png", "a.exr"}) {
        Misfits misfits;
        Followed writing, reading;
        ASSERT_FALSE(writePicture(folder / name, *image, misfits, {}, &writing));
        EXPECT_EQ(writing.last, 1.0);
        Picture picture;
        ASSERT_FALSE(readPicture(folder / name, picture, {}, &reading));
        EXPECT_EQ(reading.last, 1.0);
    }
}

}  // namespace koImageIO
