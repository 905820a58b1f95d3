// Files of this version, byte for byte: every later version writes the same and reads them. `golden/` also
// holds what they say, as examples/read_packet.py prints it; here the same text is made with the library's
// readers.

#include "koImage/packet/testing.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace koImage::packetFile {
namespace {

using namespace koImage::testing;
using koPacketFile::Policy;
using koPacketFile::ValueReader;
using koPacketFile::ValueTag;
using koPacketFile::testing::Bytes;
using koPacketFile::testing::fileOf;

/// Element i of every golden image: zeros of both signs, subnormals, infinities, NaNs with payloads, and
/// more.
template <class Element>
Element goldenElement(std::uint32_t i)
{
    if constexpr (std::is_same_v<Element, float>)
        return std::bit_cast<float>(i < hostileFloatBits.size() ? hostileFloatBits[i] : i * 2654435761u);
    else
        return static_cast<Element>(i * 2654435761u >> (32 - 8 * sizeof(Element)));
}

template <class Pixel>
ImageRef<Pixel> goldenImage(Size size)
{
    using Channel = typename ChannelOf<Pixel>::type;
    using Element = std::conditional_t<std::is_same_v<Channel, half>, std::uint16_t, Channel>;
    auto const image = imageOf<Pixel>(size);
    auto const pixels = pixelsOf<Pixel>(*image);
    auto* const bytes = reinterpret_cast<unsigned char*>(pixels.data());
    for (std::size_t i = 0; i < pixels.size_bytes() / sizeof(Element); ++i) {
        Element const element = goldenElement<Element>(static_cast<std::uint32_t>(i));
        std::memcpy(bytes + i * sizeof(Element), &element, sizeof(Element));
    }
    return image;
}

void writeEmpty(ioWriteContext&) {}

void writeImages(ioWriteContext& out)
{
    bool wrap = false;
    auto const write = [&](auto const& image) {
        image->setWrap(wrap, !wrap);
        wrap = !wrap;
        writeImage(out, image.get());
    };
    write(goldenImage<unsigned char>({33, 32}));
    write(goldenImage<Byte4>({5, 3}));
    write(goldenImage<unsigned int>({3, 3}));
    write(goldenImage<Int4>({2, 3}));
    write(goldenImage<Half4>({1, 1}));
    write(goldenImage<float>({8, 5}));
    write(goldenImage<Float3>({11, 1}));
    write(goldenImage<Float4>({1, 12}));
    write(goldenImage<Byte4>({0, 0}));
    ImageRef<Double3> const headerOnly(new TypedImage<Double3>);
    headerOnly->resize(2, 2);
    write(headerOnly);
}

void writeBitmaps(ioWriteContext& out)
{
    auto const image = goldenImage<unsigned char>({4, 3});
    for (bool const hasFlags : {false, true}) {
        out.startPacket("ko.lb.bitmap", image.get());
        for (int const value : {1, 4, 3})
            out.writeInt(value);
        if (hasFlags) {
            out.nextChunk();
            out.writeBool(true);
            out.writeBool(false);
        }
        out.endPacket();
        out.startPacket("ko.lb.bitmap.parcel", nullptr);
        out.writeReference(image.get());
        out.writeInt(0);
        out.writeInt(12);
        out.writeBytes(image->pixels(), 12);
        out.endPacket();
    }
}

Irradiance goldenIrradiance()
{
    Irradiance irradiance;
    std::uint64_t bits = 0x0123456789ABCDEF;
    for (auto* const matrix : {&irradiance.red, &irradiance.green, &irradiance.blue})
        for (int i = 0; i < 16; ++i)
            matrix->data()[i] = std::bit_cast<double>(bits *= 6364136223846793005u);
    return irradiance;
}

/// Two lights, the first with all that a light can hold and the second with nothing.
void writeLights(ioWriteContext& out)
{
    auto const probe = goldenImage<Float3>({8, 4});
    auto const cross = goldenImage<Half4>({3, 4});
    auto const map = goldenImage<Byte4>({2, 1});
    std::array<LightingEntry, 3> const entries{{{-5, cross.get()}, {0, map.get()}, {7, map.get()}}};
    ImageBasedLighting const none;
    ImageBasedLighting lighting;
    makeLighting(lighting, goldenIrradiance(), probe.get(), entries);
    for (ImageBasedLighting const& light : {std::cref(lighting), std::cref(none)}) {
        out.startPacket("example.light", &light);
        out.writeInt(1);
        light.writeSubPacket(out);
        out.writeInt(2);
        out.endPacket();
    }
}

/// Every kind of value, and a packet inside an open one.
void writeValues(ioWriteContext& out)
{
    std::array<double, 4> const doubles{-0.0, 5e-324, 0.1, -1e300};
    std::array<std::int32_t, 2> const ints{-2147483647 - 1, 7};
    int outer = 0;
    int inner = 0;
    out.startPacket("example.outer", &outer);
    out.writeInt(-1);
    out.startSubPacket();
    out.writeBool(true);
    out.startPacket("example.inner", &inner);
    out.writeReference(&outer);
    out.writeReference(nullptr);
    out.endPacket();
    out.nextChunk();
    out.writeReference(&inner);
    out.startSubPacket();
    out.endSubPacket();
    out.endSubPacket();
    out.writeDoubles(doubles.data(), doubles.size());
    out.nextChunk();
    out.writeInts(ints.data(), ints.size());
    out.writeBytes(nullptr, 0);
    out.writeBool(false);
    out.endPacket();
}

std::string contentsOf(std::string const& name)
{
    std::ifstream file(KO_GOLDEN_FOLDER "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

template <class Element, class Bits>
void list(ValueReader& values, char const* name, std::string& text)
{
    std::vector<Element> elements(values.peekCount());
    values.readArray(elements.data(), elements.size());
    text += name;
    for (Element const& element : elements) {
        Bits bits;
        std::memcpy(&bits, &element, sizeof bits);
        char word[20];
        std::snprintf(word, sizeof word, " %0*" PRIx64, int{2 * sizeof bits}, std::uint64_t{bits});
        text += word;
    }
    text += '\n';
}

/// The values from here to the end of the packet or sub-packet, one a line.
void listValues(ValueReader& values, std::string& text)
{
    std::string const indent(2 * static_cast<std::size_t>(values.depth() + 1), ' ');
    for (bool isFirstChunk = true;; isFirstChunk = false) {
        if (!isFirstChunk)
            text += indent + "chunk\n";
        while (values.hasValues()) {
            text += indent;
            switch (values.peekTag()) {
            case ValueTag::Int:
                text += "int " + std::to_string(values.readInt()) + '\n';
                break;
            case ValueTag::False:
            case ValueTag::True:
                text += values.readBool() ? "bool true\n" : "bool false\n";
                break;
            case ValueTag::NullReference:
            case ValueTag::Reference: {
                auto const reference = values.readReference();
                text += reference.isNull ? "reference null\n"
                                         : "reference " + std::to_string(reference.id) + '\n';
                break;
            }
            case ValueTag::Bytes:
                list<std::uint8_t, std::uint8_t>(values, "bytes", text);
                break;
            case ValueTag::Shorts:
                list<std::uint16_t, std::uint16_t>(values, "shorts", text);
                break;
            case ValueTag::Ints:
                list<std::int32_t, std::uint32_t>(values, "ints", text);
                break;
            case ValueTag::Floats:
                list<float, std::uint32_t>(values, "floats", text);
                break;
            case ValueTag::Doubles:
                list<double, std::uint64_t>(values, "doubles", text);
                break;
            case ValueTag::SubPacket:
                text += "sub-packet\n";
                values.startSubPacket();
                listValues(values, text);
                values.endSubPacket();
                break;
            default:
                FAIL() << "a golden file holds values of the known types only";
            }
        }
        if (values.atEnd())
            return;
        values.nextChunk();
    }
}

std::string listing(Bytes const& file)
{
    koPacketFile::MemorySource source(file);
    koPacketFile::Report report;
    koPacketFile::RecordReader records(source, Policy::Strict, report);
    EXPECT_TRUE(records.start());
    std::map<std::uint64_t, std::string> names;
    std::string text;
    koPacketFile::Record record;
    while (records.next(record)) {
        auto body = record.payload;
        if (record.header.kind == koPacketFile::RecordKind::TypeName) {
            names[record.header.typeId].assign(reinterpret_cast<char const*>(body.data()), body.size());
            continue;
        }
        text += names[record.header.typeId];
        if (record.header.is(koPacketFile::flag::tagged)) {
            text += " = object " + std::to_string(koPacketFile::load<std::uint64_t>(body.data()));
            body = body.subspan(8);
        }
        text += '\n';
        ValueReader values(body);
        listValues(values, text);
        EXPECT_EQ(values.problem(), koPacketFile::Problem::None);
    }
    EXPECT_EQ(report.damageCount(), 0u);
    return text;
}

struct Golden {
    char const* name;
    void (*write)(ioWriteContext&);

    friend void PrintTo(Golden const& golden, std::ostream* out) { *out << golden.name; }
};

class GoldenFile : public ::testing::TestWithParam<Golden> {
protected:
    Bytes const file_ = fileOf(GetParam().write, 0x676F6C64);
};

INSTANTIATE_TEST_SUITE_P(Version10, GoldenFile,
                         ::testing::Values(Golden{"empty", writeEmpty}, Golden{"images", writeImages},
                                           Golden{"bitmaps", writeBitmaps}, Golden{"values", writeValues},
                                           Golden{"lights", writeLights}));

TEST_P(GoldenFile, IsWrittenByteForByte)
{
    std::string const name = std::string(GetParam().name) + ".packets";
    std::string const written(reinterpret_cast<char const*>(file_.data()), file_.size());
    EXPECT_TRUE(written == contentsOf(name)) << "see " << ::testing::TempDir() + name;
    if (HasFailure())
        std::ofstream(::testing::TempDir() + name, std::ios::binary) << written;
}

TEST_P(GoldenFile, SaysWhatItsTextSays)
{
    std::string const name = std::string(GetParam().name) + ".txt";
    std::string const text = listing(file_);
    EXPECT_EQ(text, contentsOf(name)) << "see " << ::testing::TempDir() + name;
    if (HasFailure())
        std::ofstream(::testing::TempDir() + name, std::ios::binary) << text;
}

TEST_P(GoldenFile, IsReadWithoutDamage)
{
    std::string const stored = contentsOf(std::string(GetParam().name) + ".packets");
    koPacketFile::MemorySource source(std::as_bytes(std::span(stored)));
    ioReadContext in(source);
    ReadInterface reader(in);
    ioPacketRegistry registry;
    registerTypes(&registry, &reader);
    EXPECT_EQ(in.readAll(registry), koPacketFile::ReadResult::Complete);
}

TEST(GoldenImages, HoldEveryBitOfTheirPixels)
{
    std::string const stored = contentsOf("images.packets");
    koPacketFile::MemorySource source(std::as_bytes(std::span(stored)));
    ioReadContext in(source);
    ReadInterface reader(in);
    ioPacketRegistry registry;
    registerTypes(&registry, &reader);
    EXPECT_EQ(in.readAll(registry), koPacketFile::ReadResult::Complete);
    ASSERT_EQ(in.objects().size(), 9u);
    std::size_t next = 0;
    auto const expect = [&](auto const& image) {
        EXPECT_TRUE(samePixels(*image, dynamic_cast<Image const&>(*in.objects()[next++])));
    };
    expect(goldenImage<unsigned char>({33, 32}));
    expect(goldenImage<Byte4>({5, 3}));
    expect(goldenImage<unsigned int>({3, 3}));
    expect(goldenImage<Int4>({2, 3}));
    expect(goldenImage<Half4>({1, 1}));
    expect(goldenImage<float>({8, 5}));
    expect(goldenImage<Float3>({11, 1}));
    expect(goldenImage<Float4>({1, 12}));
    expect(goldenImage<Byte4>({0, 0}));
}

TEST(GoldenLights, HoldEveryBitOfTheirMapsAndIrradiance)
{
    std::string const stored = contentsOf("lights.packets");
    koPacketFile::MemorySource source(std::as_bytes(std::span(stored)));
    ioReadContext in(source);
    ReadInterface reader(in);
    ioPacketRegistry registry;
    registerTypes(&registry, &reader);
    std::vector<std::unique_ptr<ImageBasedLighting>> lights;
    registry.supportedType(new koPacketFile::testing::TestType("example.light", [&](ioReadContext& context) {
        EXPECT_EQ(context.readInt(), 1);
        lights.push_back(std::make_unique<ImageBasedLighting>());
        lights.back()->readSubPacket(context);
        EXPECT_EQ(context.readInt(), 2);
    }));
    EXPECT_EQ(in.readAll(registry), koPacketFile::ReadResult::Complete);
    ASSERT_EQ(lights.size(), 2u);

    ImageBasedLighting& light = *lights[0];
    ASSERT_TRUE(light.haveUsableLightProbe() && light.getReflectionMap() != nullptr);
    EXPECT_TRUE(samePixels(*goldenImage<Float3>({8, 4}), *light.getReflectionMap()->image()));
    Irradiance irradiance;
    light.getIrradiance(irradiance, nullptr);
    Irradiance const expected = goldenIrradiance();
    EXPECT_EQ(std::memcmp(&irradiance, &expected, sizeof expected), 0);
    auto const expect = [&](int key, auto const& image) {
        EnvironmentMap const* const map = light.getSpecularMap(MapOf(key), nullptr);
        ASSERT_NE(map, nullptr) << key;
        EXPECT_TRUE(samePixels(*image, *map->image())) << key;
    };
    expect(-5, goldenImage<Half4>({3, 4}));
    expect(0, goldenImage<Byte4>({2, 1}));
    expect(7, goldenImage<Byte4>({2, 1}));
    EXPECT_FALSE(lights[1]->haveUsableLightProbe());
}

}  // namespace
}  // namespace koImage::packetFile
