// Packet files as a user has them: looked at, damaged, and what is left of them saved.

#include "koImage/testing/test_images.h"
#include "tool/testing/packets.h"

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <set>

namespace koTool::testing {
namespace {

using koImage::Byte4;
using koImage::Float3;
using koImage::Float4;
using koImage::Half4;
using koImage::Int4;
using koImage::pixelsOf;
using koImage::testing::hostileImage;
using koImage::testing::imageOf;
using koImage::testing::ImageRef;
using koImage::testing::Random;
using koImage::testing::randomImage;
using koImage::testing::samePixels;
using nlohmann::json;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

/// A file of two images and a packet of another type that refers to both: objects 1, 2 and 3.
struct Scene {
    ImageRef<Float3> first = randomImage<Float3>({30, 40}, 1);  // 3600 elements, 4 parcels
    ImageRef<Byte4> second = randomImage<Byte4>({16, 20}, 2);   // 1280 elements, 2 parcels
    std::string bytes = packetFile([this](ioWriteContext& out) {
        koImage::packetFile::writeImage(out, first.get());
        koImage::packetFile::writeImage(out, second.get());
        out.startPacket("my.scene", this);
        out.writeInt(42);
        out.startSubPacket();
        out.writeReference(second.get());
        out.endSubPacket();
        out.nextChunk();
        out.writeReference(first.get());
        out.writeReference(nullptr);
        out.endPacket();
    });
    std::vector<std::size_t> records = recordsOf(bytes);

    // The records: name of images, first image, name of parcels, its 4 parcels, second image, its 2 parcels,
    // name of scenes, scene, end.
    static constexpr std::size_t firstImage = 1;
    static constexpr std::size_t firstParcel = 3;
    static constexpr std::size_t secondImage = 7;
    static constexpr std::size_t secondParcel = 8;
    static constexpr std::size_t scene = 11;

    /// The file with a damaged byte in the payload of each of these records.
    std::string damaged(std::initializer_list<std::size_t> which) const
    {
        std::string copy = bytes;
        for (std::size_t const record : which)
            copy[records[record] + koPacketFile::recordHeaderBytes + 5] ^= 0x10;
        return copy;
    }
};

struct Packets : ::testing::Test {
    /// Writes the file and runs `koimage packet VERB FILE ...`.
    Outcome packet(std::string const& verb, std::string const& bytes,
                   std::vector<std::string> const& more = {}) const
    {
        writeFile(file, bytes);
        std::vector<std::string> arguments = {"packet", verb, file};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return koimage(arguments);
    }

    /// What recover reports, and the file that it has made.
    json recover(std::string const& bytes, std::vector<std::string> more = {}) const
    {
        more.insert(more.end(), {"-o", saved, "--json"});
        auto const outcome = packet("recover", bytes, more);
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        EXPECT_EQ(0, koimage({"packet", "verify", saved}).exitCode);
        return json::parse(outcome.out);
    }

    Folder const folder;
    std::string const file = folder / "a.packets";
    std::string const saved = folder / "saved.packets";
    Scene const scene{};
};

using PacketList = Packets;
using PacketVerify = Packets;
using PacketExtract = Packets;
using PacketRecover = Packets;

TEST_F(PacketList, TellsTypesSizesObjectsAndReferences)
{
    auto const outcome = packet("list", scene.bytes, {"--json"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    auto const at = [&](std::size_t record) { return scene.records[record]; };
    // A parcel: reference, two ints, and the array.
    EXPECT_EQ((json{{"file", file},
                    {"whole", true},
                    {"packets",
                     {{{"byte", at(Scene::firstImage)},
                       {"type", "ko.lb.image"},
                       {"packets", 1},
                       {"bytes", 17},
                       {"object", 1},
                       {"references", json::array()},
                       {"image", "Float3 30 x 40"}},
                      {{"byte", at(Scene::firstParcel)},
                       {"type", "ko.lb.image.parcel"},
                       {"packets", 4},
                       {"bytes", 4 * (9 + 5 + 5 + 9) + 3600 * 4},
                       {"object", nullptr},
                       {"references", {1}}},
                      {{"byte", at(Scene::secondImage)},
                       {"type", "ko.lb.image"},
                       {"packets", 1},
                       {"bytes", 17},
                       {"object", 2},
                       {"references", json::array()},
                       {"image", "Byte4 16 x 20"}},
                      {{"byte", at(Scene::secondParcel)},
                       {"type", "ko.lb.image.parcel"},
                       {"packets", 2},
                       {"bytes", 2 * (9 + 5 + 5 + 9) + 1280},
                       {"object", nullptr},
                       {"references", {2}}},
                      {{"byte", at(Scene::scene)},
                       {"type", "my.scene"},
                       {"packets", 1},
                       {"bytes", 5 + 9 + 9 + 1 + 9 + 1},
                       {"object", 3},
                       {"references", {2, 1}}}}}}),
              json::parse(outcome.out));
}

TEST_F(PacketList, PrintsATableWhoseNumbersEndInOneColumn)
{
    auto const outcome = packet("list", scene.bytes);
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(file + "\n"
                     "   byte  packets  bytes  object  type                about\n"
                     "     88        1     17      #1  ko.lb.image         Float3 30 x 40\n"
                     "    208        4  14512          ko.lb.image.parcel  #1\n"
                     "  14864        1     17      #2  ko.lb.image         Byte4 16 x 20\n"
                     "  14928        2   1336          ko.lb.image.parcel  #2\n"
                     "  16376        1     34      #3  my.scene            #2 #1\n",
              outcome.out);
}

TEST_F(PacketList, TellsWhatIsSoundOfADamagedFileAndFails)
{
    auto const outcome = packet("list", scene.damaged({Scene::firstParcel, Scene::secondImage}), {"--json"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + file + ": damaged; koimage packet verify tells where\n", outcome.err);
    auto const list = json::parse(outcome.out);
    EXPECT_EQ(false, list["whole"]);
    ASSERT_EQ(4u, list["packets"].size());
    EXPECT_EQ(3, list["packets"][1]["packets"]) << "parcels";
    EXPECT_EQ(json({2}), list["packets"][2]["references"]) << "also of an image that is lost";
}

TEST_F(PacketList, NamesTheTypesItKnowsWhereTheirNamesAreLost)
{
    auto const list = json::parse(packet("list", scene.damaged({0, 2, 10}), {"--json"}).out);
    EXPECT_EQ("ko.lb.image", list["packets"][0]["type"]);
    EXPECT_EQ("ko.lb.image.parcel", list["packets"][1]["type"]);
    EXPECT_THAT(list["packets"][4]["type"].get<std::string>(), StartsWith("unknown "));
}

TEST_F(PacketList, FailsOnWhatIsNoPacketFile)
{
    for (char const* const bytes : {"", "\x8Bkop", "This is no packet file, but a long text."}) {
        auto const outcome = packet("list", bytes);
        EXPECT_EQ(1, outcome.exitCode) << bytes;
    }
    EXPECT_EQ("koimage: " + file + ": not a packet file\n", packet("list", "text").err);
    auto const outcome = koimage({"packet", "list", folder / "none"});
    EXPECT_EQ("koimage: " + folder / "none" + ": cannot be read: No such file or directory\n", outcome.err);
    EXPECT_EQ("koimage: " + folder / "" + ": the system failed to read\n",
              koimage({"packet", "list", folder / ""}).err);
}

TEST_F(PacketVerify, SaysThatAFileIsWhole)
{
    auto const outcome = packet("verify", scene.bytes);
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ(file + ": whole, 9 packets in 13 records\n  packet of unknown type skipped, packet my.scene\n",
              outcome.out);
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(PacketVerify, TellsEveryDamageWithItsPlaceAndFails)
{
    std::string const damaged = scene.damaged({Scene::firstParcel + 1, Scene::secondParcel});
    auto const outcome = packet("verify", damaged);
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + file + ": damaged; koimage packet recover saves what is sound\n", outcome.err);
    for (std::size_t const record : {Scene::firstParcel + 1, Scene::secondParcel})
        EXPECT_THAT(outcome.out,
                    HasSubstr("\n  payload damaged: byte " + std::to_string(scene.records[record]) +
                              ", record " + std::to_string(record) + "\n"));
    EXPECT_THAT(outcome.out, HasSubstr("\n  object incomplete (1024): byte 88, record 1, packet ko.lb.image, "
                                       "object 1\n"));

    auto const report = json::parse(packet("verify", damaged, {"--json"}).out);
    EXPECT_EQ(false, report["whole"]);
    EXPECT_EQ(4, report["damageCount"]);
    EXPECT_EQ((json{{"problem", "payload damaged"},
                    {"byte", scene.records[Scene::secondParcel]},
                    {"record", Scene::secondParcel}}),
              report["damage"][1]);
}

TEST_F(PacketVerify, NoticesWhateverByteIsChanged)
{
    for (std::size_t at = 0; at < scene.bytes.size(); at += 397) {
        std::string damaged = scene.bytes;
        damaged[at] ^= 1;
        EXPECT_EQ(1, packet("verify", damaged).exitCode) << at;
    }
}

TEST_F(PacketVerify, NoticesThatAFileIsCutOff)
{
    for (std::size_t const length : {0ul, 8ul, 39ul, 40ul, 5000ul, scene.bytes.size() - 1}) {
        auto const outcome = packet("verify", scene.bytes.substr(0, length));
        EXPECT_EQ(1, outcome.exitCode) << length;
        bool const isCutOff = outcome.out.find("\n  file cut off: byte ") != std::string::npos;
        EXPECT_EQ(length > 0, isCutOff) << outcome.out;
    }
}

TEST_F(PacketVerify, TakesAnyNumberOfFilesAndNamesTheDamagedOnes)
{
    writeFile(folder / "b.packets", scene.damaged({Scene::scene}));
    auto const outcome = packet("verify", scene.bytes, {folder / "b.packets"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("a.packets: whole"), HasSubstr("b.packets: damaged")));
    EXPECT_EQ("koimage: " + folder / "b.packets" + ": damaged; koimage packet recover saves what is sound\n",
              outcome.err);
}

TEST_F(PacketVerify, ReadsStandardInput)
{
    auto const outcome = koimage({"packet", "verify", "-"}, scene.bytes);
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_THAT(outcome.out, StartsWith("standard input: whole"));
}

TEST_F(PacketExtract, WritesBytesAsPngAndFloatsAsOpenExr)
{
    auto const grey = randomImage<unsigned char>({5, 4}, 3);
    auto const halves = randomImage<Half4>({6, 3}, 4);
    auto const floats = randomImage<float>({3, 6}, 5);
    auto const colours = randomImage<Float4>({7, 7}, 6);
    auto const outcome = packet("extract",
                                packetFile({scene.first.get(), scene.second.get(), grey.get(), halves.get(),
                                            floats.get(), colours.get()}),
                                {"-o", folder / "out"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    std::string expected;
    int number = 0;
    for (koImage::Image const* const image : std::initializer_list<koImage::Image const*>{
             scene.first.get(), scene.second.get(), grey.get(), halves.get(), floats.get(), colours.get()}) {
        bool const isBytes = image->bytesPerPixel() == 1 || image->pixelType() == koImage::PixelTypeId::Byte4;
        std::string const path =
            folder / ("out/image-" + std::to_string(++number) + (isBytes ? ".png" : ".exr"));
        EXPECT_TRUE(samePixels(*image, *picture(path).image)) << path;
        expected += path + "\n";
    }
    EXPECT_EQ(expected, outcome.out);
}

TEST_F(PacketExtract, TakesTheImagesThatAreNamed)
{
    for (char const* const name : {"2", "#2", "image-2"}) {
        Folder const out;
        auto const outcome = packet("extract", scene.bytes, {name, "-o", out / "", "--json"});
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        EXPECT_THAT(out.names(), ElementsAre("image-2.png"));
        EXPECT_EQ((json{{"file", file},
                        {"files",
                         {{{"file", out / "image-2.png"},
                           {"image", "image-2"},
                           {"width", 16},
                           {"height", 20},
                           {"type", "Byte4"}}}}}),
                  json::parse(outcome.out));
    }
}

TEST_F(PacketExtract, RefusesNamesThatAreNotThereBeforeItWrites)
{
    for (char const* const name : {"3", "image-0", "sky"}) {
        auto const outcome = packet("extract", scene.bytes, {"1", name, "-o", folder / "out"});
        EXPECT_EQ(1, outcome.exitCode);
        EXPECT_EQ("koimage: " + file + ": there is no " + name + "; there is image-1, image-2\n",
                  outcome.err);
        EXPECT_THAT(folder.names(), ElementsAre("a.packets"));
    }
}

TEST_F(PacketExtract, LeavesIncompleteImagesOutAndFails)
{
    auto const outcome = packet("extract", scene.damaged({Scene::firstParcel}), {"-o", folder / "out"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("image-1: 1024 of 3600 values are missing; koimage packet recover"));
    EXPECT_THAT(outcome.err, HasSubstr("not taken out: image-1\n"));
    EXPECT_EQ(folder / "out/image-2.png\n", outcome.out);
    EXPECT_TRUE(samePixels(*scene.second, *picture(folder / "out/image-2.png").image));
}

TEST_F(PacketExtract, TellsOfImagesThatNoPictureFileHolds)
{
    auto const ids = randomImage<unsigned int>({2, 2}, 1);
    auto const empty = imageOf<Float3>({0, 0});
    std::string const bytes = packetFile({ids.get(), empty.get(), scene.second.get()});
    auto outcome = packet("extract", bytes, {"-o", folder / "out"});
    EXPECT_EQ(0, outcome.exitCode) << "nothing of the others was asked for";
    EXPECT_THAT(outcome.err, HasSubstr("image-1: no picture file holds pixels of UInt\n"));
    EXPECT_THAT(outcome.err, HasSubstr("image-2: it has no pixels\n"));
    EXPECT_EQ(folder / "out/image-3.png\n", outcome.out);

    outcome = packet("extract", bytes, {"1", "-o", folder / "out"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("not taken out: image-1\n"));
}

TEST_F(PacketRecover, SavesAllOfAWholeFile)
{
    auto const outcome = packet("recover", scene.bytes, {"-o", saved});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(saved + "\n  image-1: Float3 30 x 40\n  image-2: Byte4 16 x 20\n  my.scene: 1 packet\n"
                      "nothing was lost\n",
              outcome.out);
    // The packets of both files differ in nothing but their salt.
    auto const packets = [](std::string const& path) {
        return json::parse(koimage({"packet", "list", "--json", path}).out)["packets"];
    };
    EXPECT_EQ(packets(file), packets(saved));
    auto const images = imagesOf(readFile(saved));
    ASSERT_EQ(2u, images.size());
    EXPECT_TRUE(samePixels(*scene.first, *images[0]));
    EXPECT_TRUE(samePixels(*scene.second, *images[1]));
}

TEST_F(PacketRecover, SavesWhatIsLeftOfAnImageAndTellsWhatIsNot)
{
    auto const report = recover(scene.damaged({Scene::firstParcel + 1}));
    EXPECT_EQ(1024, report["images"][0]["missing"]);
    EXPECT_EQ(3600, report["images"][0]["values"]);
    EXPECT_EQ(0, report["images"][1]["missing"]);
    EXPECT_EQ("payload damaged", report["damage"][0]["problem"]);

    auto const expected = randomImage<Float3>({30, 40}, 1);
    auto* const elements = static_cast<float*>(expected->data());
    std::fill(elements + 1024, elements + 2048, 0.0f);
    auto const images = imagesOf(readFile(saved));
    ASSERT_EQ(2u, images.size());
    EXPECT_TRUE(samePixels(*expected, *images[0]));
    EXPECT_TRUE(samePixels(*scene.second, *images[1]));
}

TEST_F(PacketRecover, SavesTheBeginningOfAFileThatWasCutOff)
{
    for (std::size_t parcels = 1; parcels <= 4; ++parcels) {
        // In the middle of the record behind them.
        std::size_t const cut = scene.records[Scene::firstParcel + parcels] + 20;
        auto const report = recover(scene.bytes.substr(0, cut));
        std::size_t const there = std::min<std::size_t>(1024 * parcels, 3600);
        EXPECT_EQ(3600 - there, report["images"][0]["missing"]);

        auto const expected = randomImage<Float3>({30, 40}, 1);
        auto* const elements = static_cast<float*>(expected->data());
        std::fill(elements + there, elements + 3600, 0.0f);
        auto const images = imagesOf(readFile(saved));
        ASSERT_EQ(1u, images.size());
        EXPECT_TRUE(samePixels(*expected, *images[0])) << parcels;
    }
}

TEST_F(PacketRecover, MakesNoImagesLargerThanIsAllowed)
{
    std::string const cut = scene.bytes.substr(0, scene.records[Scene::firstParcel + 2]);
    auto const outcome = packet("recover", cut, {"-o", saved, "--missing", "0"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("nothing in it that can be saved: image-1: no room for its values"));
    EXPECT_FALSE(std::filesystem::exists(saved));
}

TEST_F(PacketRecover, CarriesPacketsOfOtherTypesOverWithAllTheirValues)
{
    std::vector<std::uint8_t> const bytes(300, 9);
    auto const writeAll = [&](ioWriteContext& out, void const* image, void const* other) {
        out.startPacket("my.values", &bytes);
        out.writeInt(-7);
        out.writeBool(true);
        out.writeBool(false);
        out.writeReference(image);
        out.nextChunk();
        out.writeBytes(bytes.data(), bytes.size());
        std::array<std::uint16_t, 3> const shorts{1, 2, 65535};
        out.writeShorts(shorts.data(), shorts.size());
        std::array<std::int32_t, 2> const ints{-1, 5};
        out.startSubPacket();
        out.writeInts(ints.data(), ints.size());
        out.startSubPacket();
        out.nextChunk();
        out.endSubPacket();
        std::array<float, 3> const floats{0.5f, -0.0f, std::bit_cast<float>(0x7F800001u)};
        out.writeFloats(floats.data(), floats.size());
        out.endSubPacket();
        out.writeReference(nullptr);
        std::array<double, 1> const doubles{1e-310};
        out.writeDoubles(doubles.data(), doubles.size());
        out.writeReference(other);
        out.endPacket();
        out.startPacket("my.user", nullptr);
        out.writeReference(&bytes);
        out.endPacket();
    };
    auto const body = [&](bool withFirst) {
        return packetFile([&](ioWriteContext& out) {
            if (withFirst)
                koImage::packetFile::writeImage(out, scene.first.get());
            koImage::packetFile::writeImage(out, scene.second.get());
            writeAll(out, scene.second.get(), withFirst ? scene.first.get() : nullptr);
        });
    };
    // Without the first image every number is another, and what referred to it refers to nothing.
    std::string damaged = body(true);
    damaged[recordsOf(damaged)[1] + koPacketFile::recordHeaderBytes] ^= 1;
    auto const report = recover(damaged);
    EXPECT_EQ(json({{{"type", "my.user"}, {"packets", 1}}, {{"type", "my.values"}, {"packets", 1}}}),
              report["carried"]);
    EXPECT_EQ("image-2", report["images"][0]["was"]);
    EXPECT_EQ("image-1", report["images"][0]["image"]);
    ASSERT_EQ(2u, report["lost"].size());
    EXPECT_THAT(
        report["lost"][0].get<std::string>(),
        AllOf(StartsWith("packet my.values at byte "), HasSubstr("refers to object #1, which is not there")));
    EXPECT_EQ("4 parcels of image-1, whose first packet is lost", report["lost"][1]);

    auto const values = [](std::string const& bytesOfFile) {
        std::vector<std::string> packets;
        koPacketFile::MemorySource source(std::as_bytes(std::span(bytesOfFile)));
        koPacketFile::Report found;
        koPacketFile::PacketReader reader(source, koPacketFile::Policy::Strict, found);
        EXPECT_TRUE(reader.start());
        for (koPacketFile::Packet packet; reader.next(packet);)
            packets.push_back(
                std::string(packet.typeName) + std::to_string(packet.id) +
                std::string(reinterpret_cast<char const*>(packet.values.data()), packet.values.size()));
        return packets;
    };
    EXPECT_EQ(values(body(false)), values(readFile(saved)));
}

TEST_F(PacketRecover, TellsOfPacketsThatItCannotCarry)
{
    std::string bytes = scene.bytes;
    // The int of the scene becomes a value that no version has so far; the checksums follow.
    auto* const record = reinterpret_cast<unsigned char*>(bytes.data() + scene.records[Scene::scene]);
    auto const payloadBytes = koPacketFile::load<std::uint32_t>(record + 8);
    record[32 + 8] = 0x62;
    koPacketFile::store(record + 28,
                        koPacketFile::masked(koPacketFile::crc32c(0, record + 32, payloadBytes)));
    koPacketFile::store(record + 4, koPacketFile::recordHeaderCrc(record, 7));

    auto const report = recover(bytes);
    EXPECT_THAT(report["carried"], IsEmpty());
    EXPECT_EQ(json({"packet my.scene at byte " + std::to_string(scene.records[Scene::scene]) +
                    ": holds values that are not known here"}),
              report["lost"]);
    EXPECT_EQ(2u, report["images"].size());
}

TEST_F(PacketRecover, TellsOfPacketsWhoseNameIsLost)
{
    auto const report = recover(scene.damaged({10}));
    ASSERT_EQ(1u, report["lost"].size());
    EXPECT_THAT(report["lost"][0].get<std::string>(), HasSubstr("the name of its type is lost"));
}

TEST_F(PacketRecover, RestoresADamagedFileHeader)
{
    for (std::size_t at = 0; at < koPacketFile::fileHeaderBytes; ++at) {
        std::string damaged = scene.bytes;
        damaged[at] ^= 0x41;
        auto const report = recover(damaged);
        EXPECT_EQ(true, report["fileHeaderRestored"]) << at;
        EXPECT_THAT(report["lost"], IsEmpty());
        EXPECT_EQ(2u, report["images"].size());
    }
    std::string zeroed = scene.bytes;
    std::fill_n(zeroed.begin(), koPacketFile::fileHeaderBytes, '\0');
    EXPECT_EQ(2u, recover(zeroed)["images"].size());
    EXPECT_EQ(false, recover(scene.bytes)["fileHeaderRestored"]);
}

TEST_F(PacketRecover, LeavesTheDamagedFileAsItIs)
{
    std::string const damaged = scene.damaged({Scene::firstParcel});
    writeFile(file, damaged);
    std::filesystem::create_symlink(file, folder / "link");
    std::filesystem::create_hard_link(file, folder / "twin");
    for (std::string const& output : {file, folder / "link", folder / "twin", folder / "./a.packets"}) {
        auto const outcome = packet("recover", damaged, {"-o", output});
        EXPECT_EQ(1, outcome.exitCode) << output;
        EXPECT_THAT(outcome.err, HasSubstr("is the damaged file"));
        EXPECT_EQ(damaged, readFile(file));
    }
    EXPECT_EQ(2, packet("recover", damaged, {"-o", "-"}).exitCode);
}

TEST_F(PacketRecover, WritesNothingWhereNothingCanBeSaved)
{
    for (std::string const& bytes : {std::string(), std::string("text"), packetFile([](ioWriteContext&) {}),
                                     scene.bytes.substr(0, 100)}) {
        auto const outcome = packet("recover", bytes, {"-o", saved});
        EXPECT_EQ(1, outcome.exitCode);
        EXPECT_THAT(outcome.out, IsEmpty());
        EXPECT_THAT(folder.names(), ElementsAre("a.packets"));
    }
}

TEST_F(PacketRecover, MakesAWholeFileOfWhateverDamage)
{
    Random random(5);
    for (int i = 0; i < 40; ++i) {
        std::string damaged = scene.bytes;
        for (std::size_t hits = 1 + random() % 4; hits > 0; --hits) {
            std::size_t const length = 1 + random() % 600;
            std::size_t const at = random() % (damaged.size() - length);
            for (std::size_t k = 0; k < length; ++k)
                damaged[at + k] = static_cast<char>(random());
        }
        if (random() % 3 == 0)
            damaged.resize(random() % damaged.size());
        std::filesystem::remove(saved);
        auto const outcome = packet("recover", damaged, {"-o", saved});
        ASSERT_LE(outcome.exitCode, 1) << i << outcome.err;
        EXPECT_EQ(outcome.exitCode == 0, std::filesystem::exists(saved)) << i;
        if (outcome.exitCode == 0) {
            EXPECT_EQ(0, koimage({"packet", "verify", saved}).exitCode) << i << outcome.out;
        }
    }
}

}  // namespace
}  // namespace koTool::testing
