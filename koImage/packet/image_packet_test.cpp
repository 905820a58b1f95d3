#include "koImage/packet/image_packet.h"

#include "koImage/image/factory.h"
#include "koImage/testing/allocation_limit.h"
#include "koImage/testing/test_images.h"
#include "koPacketFile/testing.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

namespace koImage::packetFile {
namespace {

using namespace koImage::testing;
using koPacketFile::Finding;
using koPacketFile::Policy;
using koPacketFile::Problem;
using koPacketFile::ReadOptions;
using koPacketFile::ReadResult;
using koPacketFile::RecordKind;
using koPacketFile::testing::Bytes;
using koPacketFile::testing::fileOf;
using koPacketFile::testing::recordsOf;
using koPacketFile::testing::TestType;

/// A file, and the context and reader that have read it.
struct Loaded {
    explicit Loaded(Bytes contents, ReadOptions const& options = {})
        : file(std::move(contents)),
          source(file),
          in(source, options),
          reader(std::make_unique<ReadInterface>(in))
    {
        registerTypes(&registry, reader.get());
    }

    ReadResult read() { return result = in.readAll(registry); }

    bool found(Problem problem) const
    {
        auto const& report = in.report();
        auto const is = [problem](Finding const& finding) { return finding.problem == problem; };
        return std::any_of(report.damage().begin(), report.damage().end(), is) ||
               std::any_of(report.information().begin(), report.information().end(), is);
    }

    std::size_t imageCount() const { return in.objects().size(); }
    Image* image(std::size_t i = 0) const
    {
        return i < imageCount() ? dynamic_cast<Image*>(in.objects()[i]) : nullptr;
    }

    Bytes file;
    koPacketFile::MemorySource source;
    ioReadContext in;
    std::unique_ptr<ReadInterface> reader;
    ioPacketRegistry registry;
    ReadResult result = ReadResult::Failed;
};

Bytes fileWith(std::initializer_list<Image const*> images)
{
    return fileOf([&](ioWriteContext& out) {
        for (Image const* const image : images)
            writeImage(out, image);
    });
}

struct Header {
    int type;
    int width;
    int height;
};

/// Starts a header packet of any content, tagged with that address.
void writeHeader(ioWriteContext& out, Header const& header, void const* tag)
{
    out.startPacket("ko.lb.image", tag);
    out.writeInt(header.type);
    out.writeInt(header.width);
    out.writeInt(header.height);
    out.writeBool(true);
    out.writeBool(false);
    out.endPacket();
}

void writeParcel(ioWriteContext& out, void const* tag, int start, int count,
                 std::vector<std::uint8_t> const& bytes, char const* name = "ko.lb.image.parcel")
{
    out.startPacket(name, nullptr);
    out.writeReference(tag);
    out.writeInt(start);
    out.writeInt(count);
    out.writeBytes(bytes.data(), bytes.size());
    out.endPacket();
}

constexpr Size roundTripSizes[] = {{0, 0}, {1, 1}, {32, 32}, {33, 32}, {1, 37}, {37, 1}, {100, 100}, {0, 5}};

template <class Pixel>
class ImagePacket : public ::testing::Test {
};
TYPED_TEST_SUITE(ImagePacket, TestTypes<ParcelPixels>, ById);

TYPED_TEST(ImagePacket, ComesBackToTheBitAtEverySize)
{
    for (Size const size : roundTripSizes) {
        SCOPED_TRACE(::testing::Message() << size);
        auto const image = imageOf<TypeParam>(size);
        makeHostile(*image, 1);
        image->setWrap(size.width % 2 == 1, size.height % 2 == 0);

        Loaded loaded(fileWith({image.get()}));
        EXPECT_EQ(loaded.read(), ReadResult::Complete);
        ASSERT_EQ(loaded.imageCount(), 1u);
        Image const& copy = *loaded.image();
        ASSERT_EQ(copy.pixelType(), pixelTypeIdOf<TypeParam>);
        EXPECT_EQ(copy.width(), size.width);
        EXPECT_EQ(copy.height(), size.height);
        EXPECT_EQ(copy.wrapHorizontal(), image->wrapHorizontal());
        EXPECT_EQ(copy.wrapVertical(), image->wrapVertical());
        EXPECT_TRUE(samePixels(*image, static_cast<TypedImage<TypeParam> const&>(copy)));
    }
}

TYPED_TEST(ImagePacket, TakesOneParcelForEveryThousandAndTwentyFourElements)
{
    for (Size const size : roundTripSizes) {
        auto const image = imageOf<TypeParam>(size);
        randomise(*image, 1);
        std::size_t const elements = pixelsOf<TypeParam>(*image).size() * sizeof(TypeParam) /
                                     sizeof(typename ChannelOf<TypeParam>::type);
        std::size_t packets = 0;
        for (auto const& record : recordsOf(fileWith({image.get()})))
            packets += record.header.kind == RecordKind::Packet ? 1u : 0u;
        EXPECT_EQ(packets, 1 + (elements + 1023) / 1024) << size;
    }
}

TYPED_TEST(ImagePacket, StaysBlackWhereAParcelIsMissing)
{
    auto const image = imageOf<TypeParam>({100, 100});
    randomise(*image, 1);
    Bytes const whole = fileWith({image.get()});
    auto const records = recordsOf(whole);
    ASSERT_GE(records.size(), 7u);

    // Without the second parcel (after type name, header, type name and first parcel).
    Bytes damaged(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(records[4].start));
    damaged.insert(damaged.end(), whole.begin() + static_cast<std::ptrdiff_t>(records[4].end), whole.end());
    Loaded loaded(damaged, {.policy = Policy::Recover, .missingBytes = 4096});
    EXPECT_EQ(loaded.read(), ReadResult::Damaged);
    EXPECT_TRUE(loaded.found(Problem::LostRecords));
    ASSERT_TRUE(loaded.found(Problem::IncompleteObject));
    EXPECT_EQ(loaded.in.report().damage().back().amount, 1024u);

    auto* const expected = static_cast<unsigned char*>(image->data());
    constexpr std::size_t elementBytes = sizeof(typename ChannelOf<TypeParam>::type);
    std::fill_n(expected + 1024 * elementBytes, 1024 * elementBytes, static_cast<unsigned char>(0));
    ASSERT_EQ(loaded.imageCount(), 1u);
    EXPECT_TRUE(samePixels(*image, static_cast<TypedImage<TypeParam> const&>(*loaded.image())));
}

TEST(ImagePacketLayout, IsThatOfTheTableInTheHeader)
{
    auto const image = imageOf<Half4>({1, 1});
    pixelsOf<Half4>(*image)[0] = {half::fromBits(1), half::fromBits(2), half::fromBits(3), half::fromBits(4)};
    image->setWrap(true, false);
    Bytes const file = fileWith({image.get()});

    std::vector<std::string> order;
    auto const outcome =
        koPacketFile::testing::readFile(file, {{"ko.lb.image",
                                                [&](ioReadContext& in) {
                                                    EXPECT_EQ(in.readInt(), 4);
                                                    EXPECT_EQ(in.readInt(), 1);
                                                    EXPECT_EQ(in.readInt(), 1);
                                                    EXPECT_TRUE(in.readBool());
                                                    EXPECT_FALSE(in.readBool());
                                                    EXPECT_FALSE(in.hasValues());
                                                    order.push_back("header");
                                                    in.setObject(new TypedImage<Half4>);
                                                }},
                                               {"ko.lb.image.parcel", [&](ioReadContext& in) {
                                                    EXPECT_NE(in.readReference<TypedImage<Half4>>(), nullptr);
                                                    EXPECT_EQ(in.readInt(), 0);
                                                    EXPECT_EQ(in.readInt(), 4);
                                                    std::uint16_t words[4] = {};
                                                    EXPECT_TRUE(in.readShorts(words, 4));
                                                    EXPECT_EQ(words[3], 4);
                                                    EXPECT_FALSE(in.hasValues());
                                                    order.push_back("parcel");
                                                }}});
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_EQ(order, (std::vector<std::string>{"header", "parcel"}));
}

TEST(WriteImage, WritesNothingForNull)
{
    EXPECT_EQ(fileWith({nullptr}), fileWith({}));
}

TEST(WriteImage, WritesTheHeaderOnlyOfTypesWithoutElements)
{
    auto const image = imageOf<Double3>({8, 8});
    randomise(*image, 1);
    auto const harmonics = imageOf<HarmonicsPixel>({2, 2});
    Bytes const file = fileWith({image.get(), harmonics.get()});
    EXPECT_EQ(recordsOf(file).size(), 4u);  // a name, two headers, the end

    Loaded loaded(file);
    EXPECT_EQ(loaded.read(), ReadResult::Complete);
    EXPECT_EQ(loaded.imageCount(), 0u);
}

TEST(WriteImage, RefusesWhatNoFileCanHold)
{
    auto const refusalOf = [](Image const& image) {
        koPacketFile::MemorySink sink;
        ioWriteContext out(sink);
        writeImage(out, &image);
        EXPECT_FALSE(out.commit());
        return out.error().problem;
    };
    // Not a pixel of these arrays is touched before they are refused.
    unsigned char byte = 0;
    Float4 pixel{};
    TypedImage<unsigned char> bytes;
    TypedImage<Float4> floats;
    for (Size const size : hostileSizes) {
        bytes.borrow(&byte, size.width, size.height);
        EXPECT_EQ(refusalOf(bytes), Problem::SizeLimit) << size;
    }
    floats.borrow(&pixel, 32768, 16384);  // 2^31 elements
    EXPECT_EQ(refusalOf(floats), Problem::SizeLimit);
    floats.borrow(&pixel, 2147483647, 2147483647);
    EXPECT_EQ(refusalOf(floats), Problem::SizeLimit);
    floats.borrow(nullptr, 3, 3);
    EXPECT_EQ(refusalOf(floats), Problem::InvalidValue);
}

TEST(WriteImage, MayWriteOneImageTwiceAndAnotherAtItsAddress)
{
    auto const image = imageOf<unsigned char>({40, 40});
    randomise(*image, 1);
    auto const first = imageOf<unsigned char>({40, 40});
    randomise(*first, 1);
    auto const second = imageOf<unsigned char>({7, 5});
    randomise(*second, 2);
    Bytes const file = fileOf([&](ioWriteContext& out) {
        writeImage(out, image.get());
        writeImage(out, image.get());
        image->resize(7, 5);
        randomise(*image, 2);
        writeImage(out, image.get());
    });
    Loaded loaded(file);
    EXPECT_EQ(loaded.read(), ReadResult::Complete);
    ASSERT_EQ(loaded.imageCount(), 3u);
    using Bitmap = TypedImage<unsigned char>;
    EXPECT_TRUE(samePixels(*first, static_cast<Bitmap const&>(*loaded.image(0))));
    EXPECT_TRUE(samePixels(*first, static_cast<Bitmap const&>(*loaded.image(1))));
    EXPECT_TRUE(samePixels(*second, static_cast<Bitmap const&>(*loaded.image(2))));
}

TEST(ReadImage, RefusesSizesThatNoImageHas)
{
    constexpr int most = std::numeric_limits<int>::max();
    constexpr int least = std::numeric_limits<int>::min();
    for (Header const header : {Header{7, 65535, 65535},
                                {7, 65536, 65536},
                                {7, 46341, 46341},
                                {7, 16384, 32768},
                                {7, most, most},
                                {0, 65536, 32768},
                                {7, -1, -1},
                                {7, -2, -3},
                                {0, 1, -1},
                                {4, least, 1},
                                {4, least, least},
                                {1, 65536, 16384}}) {
        SCOPED_TRACE(::testing::Message() << header.type << ": " << header.width << " x " << header.height);
        AllocationLimit const limit(std::size_t{4} << 20);
        Loaded loaded(fileOf([&](ioWriteContext& out) { writeHeader(out, header, &out); }));
        EXPECT_EQ(loaded.read(), ReadResult::Damaged);
        EXPECT_EQ(loaded.in.report().first().problem, Problem::InvalidValue);
        EXPECT_EQ(loaded.imageCount(), 0u);
    }
}

TEST(ReadImage, CreatesNothingForOtherTypes)
{
    for (int const type : {8, 9, 10, -1, 1000, std::numeric_limits<int>::min()}) {
        Loaded loaded(fileOf([&](ioWriteContext& out) {
            writeHeader(out, {type, 4, 4}, &out);
            writeParcel(out, &out, 0, 16, std::vector<std::uint8_t>(16));
        }));
        EXPECT_EQ(loaded.read(), ReadResult::Complete) << type;
        EXPECT_EQ(loaded.imageCount(), 0u);
        EXPECT_TRUE(loaded.found(Problem::UnresolvedReference)) << "of the parcel";
    }
}

TEST(ReadImage, RefusesAnImageLargerThanItsFileBeforeMemoryIsTaken)
{
    AllocationLimit const limit(std::size_t{4} << 20);
    Bytes const file = fileOf([](ioWriteContext& out) { writeHeader(out, {7, 11584, 11585}, &out); });
    EXPECT_LT(file.size(), 300u);
    Loaded loaded(file);
    EXPECT_EQ(loaded.read(), ReadResult::Damaged);
    EXPECT_EQ(loaded.in.report().first().problem, Problem::PromiseTooLarge);
}

TEST(ReadImage, RefusesTheSecondPromiseOfTheSameBytes)
{
    Bytes const file = fileOf([](ioWriteContext& out) {
        std::vector<std::uint8_t> const rest(100'000);
        char tags[1000];
        for (char& tag : tags)
            writeHeader(out, {0, 1000, 99}, &tag);
        out.startPacket("rest", nullptr);
        out.writeBytes(rest.data(), rest.size());
        out.endPacket();
    });
    for (Policy const policy : {Policy::Strict, Policy::Recover}) {
        Loaded loaded(file, {.policy = policy});
        EXPECT_EQ(loaded.read(), ReadResult::Damaged);
        EXPECT_EQ(loaded.in.report().first().problem, Problem::PromiseTooLarge);
        EXPECT_EQ(loaded.imageCount(), 1u);
        EXPECT_EQ(loaded.in.report().damageCount(), policy == Policy::Strict ? 2u : 1000u);
    }
}

TEST(ReadImage, ReadsAnImageFromASourceOfUnknownSize)
{
    struct Pipe : koPacketFile::MemorySource {
        using MemorySource::MemorySource;
        std::optional<std::uint64_t> size() const override { return {}; }
    };
    auto const image = imageOf<Byte4>({50, 50});
    randomise(*image, 1);
    Bytes const file = fileWith({image.get()});
    for (std::uint64_t const limit : {10'000u, 9'999u}) {
        Pipe pipe(file);
        ioReadContext in(pipe, {.mostBytesFromPipe = limit});
        ReadInterface reader(in);
        ioPacketRegistry registry;
        registerTypes(&registry, &reader);
        EXPECT_EQ(in.readAll(registry), limit == 10'000u ? ReadResult::Complete : ReadResult::Damaged);
    }
}

TEST(ReadImage, RefusesAHeaderThatIsCutShort)
{
    Loaded loaded(fileOf([](ioWriteContext& out) {
        out.startPacket("ko.lb.image", &out);
        out.writeInt(0);
        out.writeInt(4);
        out.writeInt(4);
        out.writeBool(true);
        out.endPacket();
    }));
    EXPECT_EQ(loaded.read(), ReadResult::Damaged);
    EXPECT_EQ(loaded.in.report().first().problem, Problem::MissingValue);
    EXPECT_EQ(loaded.imageCount(), 0u);
}

TEST(ReadImageParcel, RefusesWhatIsNotInsideItsImage)
{
    constexpr int most = std::numeric_limits<int>::max();
    constexpr int least = std::numeric_limits<int>::min();
    struct Place {
        int start;
        int count;
    };
    // Of an image of 16 elements.
    for (Place const place : {Place{15, 1024},
                              {-1, 1},
                              {0, 0},
                              {0, -1},
                              {0, most},
                              {most, most},
                              {16, 1},
                              {0, 17},
                              {least, 1},
                              {1, least},
                              {most, 1},
                              {-1, 2}}) {
        SCOPED_TRACE(::testing::Message() << place.count << " from " << place.start);
        Loaded loaded(fileOf([&](ioWriteContext& out) {
            writeHeader(out, {1, 2, 2}, &out);
            writeParcel(out, &out, place.start, place.count, std::vector<std::uint8_t>(1024, 5));
        }));
        EXPECT_EQ(loaded.read(), ReadResult::Damaged);
        EXPECT_EQ(loaded.in.report().first().problem, Problem::InvalidValue);
        ASSERT_EQ(loaded.imageCount(), 1u);
        for (Byte4 const pixel : pixelsOf<Byte4>(*loaded.image()))
            EXPECT_EQ(pixel, (Byte4{0, 0, 0, 0}));
    }
}

TEST(ReadImageParcel, RefusesElementsOfAnotherTypeOrCount)
{
    Loaded otherType(fileOf([](ioWriteContext& out) {
        writeHeader(out, {5, 2, 2}, &out);
        writeParcel(out, &out, 0, 4, std::vector<std::uint8_t>(16, 5));
    }));
    EXPECT_EQ(otherType.read(), ReadResult::Damaged);
    EXPECT_EQ(otherType.in.report().first().problem, Problem::WrongValue);
    EXPECT_EQ(pixelsOf<float>(*otherType.image())[0], 0.0f);

    Loaded otherCount(fileOf([](ioWriteContext& out) {
        writeHeader(out, {0, 4, 4}, &out);
        writeParcel(out, &out, 0, 16, std::vector<std::uint8_t>(15, 5));
    }));
    EXPECT_EQ(otherCount.read(), ReadResult::Damaged);
    EXPECT_EQ(otherCount.in.report().first().problem, Problem::WrongValue);
    EXPECT_EQ(pixelsOf<unsigned char>(*otherCount.image())[0], 0);
}

TEST(ReadImageParcel, RefusesAnObjectOfAnotherClass)
{
    struct Other : ko::ReferenceCount {};
    Bytes const file = fileOf([](ioWriteContext& out) {
        out.startPacket("other", &out);
        out.endPacket();
        writeParcel(out, &out, 0, 1, {5});
        writeParcel(out, &out, 0, 1, {5}, "ko.lb.bitmap.parcel");
    });
    Loaded loaded(file, {.policy = Policy::Recover});
    loaded.registry.supportedType(new TestType("other", [](ioReadContext& in) { in.setObject(new Other); }));
    EXPECT_EQ(loaded.read(), ReadResult::Damaged);
    EXPECT_EQ(loaded.in.report().first().problem, Problem::WrongObjectType);
    EXPECT_EQ(loaded.in.report().damageCount(), 2u);
}

TEST(ReadImageParcel, TakesDoubledOverlappingAndUnorderedParcels)
{
    Loaded loaded(fileOf([](ioWriteContext& out) {
        writeHeader(out, {0, 10, 1}, &out);
        writeParcel(out, &out, 6, 2, {1, 1});
        writeParcel(out, &out, 8, 2, {2, 2});
        writeParcel(out, &out, 5, 4, {3, 3, 3, 3});
        writeParcel(out, &out, 5, 4, {3, 3, 3, 3});
        writeParcel(out, &out, 0, 3, {4, 4, 4});
        writeParcel(out, &out, 1, 1, {5});
    }));
    EXPECT_EQ(loaded.read(), ReadResult::Damaged);
    EXPECT_EQ(loaded.in.report().first().problem, Problem::IncompleteObject);
    EXPECT_EQ(loaded.in.report().first().amount, 2u);
    auto const pixels = pixelsOf<unsigned char>(*loaded.image());
    EXPECT_EQ(std::vector(pixels.begin(), pixels.end()),
              (std::vector<unsigned char>{4, 5, 4, 0, 0, 3, 3, 3, 3, 2}));
}

TEST(ReadImageParcel, CountsEveryOrderOfArrivalOnce)
{
    // All orders of five ranges that overlap and touch: nothing is missing, nothing counts twice.
    struct Range {
        int start;
        int count;
    };
    std::vector<Range> const ranges{{0, 4}, {3, 3}, {6, 2}, {8, 2}, {5, 2}};
    std::vector<std::size_t> order{0, 1, 2, 3, 4};
    do {
        Loaded loaded(fileOf([&](ioWriteContext& out) {
            writeHeader(out, {0, 10, 1}, &out);
            for (std::size_t const i : order)
                writeParcel(out, &out, ranges[i].start, ranges[i].count,
                            std::vector<std::uint8_t>(static_cast<std::size_t>(ranges[i].count), 1));
        }));
        ASSERT_EQ(loaded.read(), ReadResult::Complete);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(ReadBitmap, ReadsOlderFiles)
{
    enum class Flags { NoChunk, EmptyChunk, Both };
    for (int const channels : {1, 4}) {
        for (Flags const flags : {Flags::NoChunk, Flags::EmptyChunk, Flags::Both}) {
            std::vector<std::uint8_t> bytes(static_cast<std::size_t>(6 * channels));
            for (std::size_t i = 0; i < bytes.size(); ++i)
                bytes[i] = static_cast<std::uint8_t>(i + 1);
            Loaded loaded(fileOf([&](ioWriteContext& out) {
                out.startPacket("ko.lb.bitmap", &out);
                out.writeInt(channels);
                out.writeInt(3);
                out.writeInt(2);
                if (flags != Flags::NoChunk)
                    out.nextChunk();
                if (flags == Flags::Both) {
                    out.writeBool(false);
                    out.writeBool(true);
                }
                out.endPacket();
                writeParcel(out, &out, 0, static_cast<int>(bytes.size()), bytes, "ko.lb.bitmap.parcel");
            }));
            EXPECT_EQ(loaded.read(), ReadResult::Complete);
            ASSERT_EQ(loaded.imageCount(), 1u);
            Image const& image = *loaded.image();
            EXPECT_EQ(image.pixelType(), channels == 1 ? PixelTypeId::Byte : PixelTypeId::Byte4);
            EXPECT_EQ(image.width(), 3);
            EXPECT_EQ(image.height(), 2);
            EXPECT_FALSE(image.wrapHorizontal());
            EXPECT_EQ(image.wrapVertical(), flags == Flags::Both);
            EXPECT_EQ(std::memcmp(image.data(), bytes.data(), bytes.size()), 0);
        }
    }
}

TEST(ReadBitmap, SetsNoObjectForOtherChannelCounts)
{
    for (int const channels : {3, 0, -1, 2}) {
        Loaded loaded(fileOf([&](ioWriteContext& out) {
            out.startPacket("ko.lb.bitmap", &out);
            for (int const value : {channels, 2, 2})
                out.writeInt(value);
            out.endPacket();
            writeParcel(out, &out, 0, 12, std::vector<std::uint8_t>(12), "ko.lb.bitmap.parcel");
        }));
        EXPECT_EQ(loaded.read(), ReadResult::Complete);
        EXPECT_EQ(loaded.imageCount(), 0u);
        EXPECT_TRUE(loaded.found(Problem::UnresolvedReference));
    }
}

TEST(ReadBitmap, RefusesAFlagWithoutTheOther)
{
    Loaded loaded(fileOf([](ioWriteContext& out) {
        out.startPacket("ko.lb.bitmap", &out);
        for (int const value : {1, 2, 2})
            out.writeInt(value);
        out.nextChunk();
        out.writeBool(true);
        out.endPacket();
    }));
    EXPECT_EQ(loaded.read(), ReadResult::Damaged);
    EXPECT_EQ(loaded.in.report().first().problem, Problem::MissingValue);
    EXPECT_EQ(loaded.imageCount(), 0u);
}

TEST(ReadBitmapParcel, SkipsImagesOfOtherTypes)
{
    Loaded loaded(fileOf([](ioWriteContext& out) {
        writeHeader(out, {5, 2, 2}, &out);
        writeParcel(out, &out, 0, 16, std::vector<std::uint8_t>(16, 5), "ko.lb.bitmap.parcel");
    }));
    EXPECT_EQ(loaded.read(), ReadResult::Damaged);
    EXPECT_EQ(loaded.in.report().first().problem, Problem::IncompleteObject);
    EXPECT_EQ(pixelsOf<float>(*loaded.image())[0], 0.0f);
}

TEST(RegisterTypes, TellsEveryUnresolvedParcelWhereImagesAreNotKnown)
{
    auto const image = imageOf<float>({50, 50});
    randomise(*image, 1);
    Bytes const file = fileWith({image.get()});

    koPacketFile::MemorySource source(file);
    ioReadContext in(source);
    ReadInterface reader(in);
    ioPacketRegistry registry;
    int told = 0;
    auto* const parcel = new TestType(
        "ko.lb.image.parcel", [](ioReadContext& context) { EXPECT_EQ(context.readOwner<Image>(), nullptr); });
    parcel->unresolved = [&](ko::ReferenceCount* object, int n) {
        EXPECT_EQ(object, nullptr);
        EXPECT_EQ(n, 0);
        ++told;
    };
    registry.supportedType(parcel);
    EXPECT_EQ(in.readAll(registry), ReadResult::Complete);
    EXPECT_EQ(told, 3);
    EXPECT_EQ(in.report().informationCount(), 1u + 3u);
}

TEST(RegisterTypes, GivesMisuseWithTheContextOfAnotherReader)
{
    Bytes const file = fileWith({imageOf<float>({2, 2}).get()});
    Loaded first(file);
    EXPECT_EQ(first.read(), ReadResult::Complete);

    koPacketFile::MemorySource source(file);
    ioReadContext second(source);
    ReadInterface reader(second);
    EXPECT_EQ(second.readAll(first.registry), ReadResult::Damaged);
    EXPECT_EQ(second.report().first().problem, Problem::Misuse);
    EXPECT_TRUE(second.objects().empty());
}

TEST(RegisterTypes, GivesMisuseWhenTheReaderIsGone)
{
    Loaded loaded(fileWith({imageOf<float>({2, 2}).get()}));
    loaded.reader.reset();
    EXPECT_EQ(loaded.read(), ReadResult::Damaged);
    EXPECT_EQ(loaded.in.report().first().problem, Problem::Misuse);
}

TEST(RegisterTypes, GivesMisuseWithoutAReaderAndNothingWithoutARegistry)
{
    Bytes const file = fileWith({imageOf<float>({2, 2}).get()});
    koPacketFile::MemorySource source(file);
    ioReadContext in(source);
    ioPacketRegistry registry;
    registerTypes(&registry, nullptr);
    registerTypes(nullptr, nullptr);
    EXPECT_EQ(in.readAll(registry), ReadResult::Damaged);
    EXPECT_EQ(in.report().first().problem, Problem::Misuse);
}

TEST(ReadInterface, DoesNothingAfterItsContext)
{
    Bytes const file = fileWith({});
    koPacketFile::MemorySource source(file);
    auto in = std::make_unique<ioReadContext>(source);
    ReadInterface reader(*in);
    reader.readImage();
    EXPECT_EQ(in->report().first().problem, Problem::Misuse) << "outside packets";
    in.reset();
    reader.readImage();
    reader.readImageParcel();
    reader.readBitmap();
    reader.readBitmapParcel();
    EXPECT_EQ(reader.readContext(), nullptr);
}

TEST(ReadInterface, LeavesAnImageToWhoeverTakesItAndDeletesTheOthers)
{
    Bytes const file = fileWith({imageOf<float>({2, 2}).get(), imageOf<float>({3, 3}).get()});
    std::size_t const before = livePixelArrays();
    ko::Reference<Image> kept;
    {
        Loaded loaded(file);
        EXPECT_EQ(loaded.read(), ReadResult::Complete);
        EXPECT_EQ(livePixelArrays(), before + 2);
        EXPECT_EQ(loaded.in.report().informationCount(), 2u) << "nobody asked for them";
        kept = loaded.image(1);
    }
    EXPECT_EQ(livePixelArrays(), before + 1);
    EXPECT_EQ(kept->width(), 3);
    EXPECT_EQ(kept->referenceCount(), 1u);
}

TEST(ReadInterface, SurvivesPixelsThatCannotBeAllocated)
{
    auto const image = imageOf<float>({100, 100});
    randomise(*image, 1);
    Bytes const file = fileWith({image.get()});
    std::size_t const before = livePixelArrays();
    {
        Loaded loaded(file);
        AllocationLimit const limit(1000);
        EXPECT_THROW(static_cast<void>(loaded.read()), std::bad_alloc);
        EXPECT_EQ(loaded.imageCount(), 0u);
    }
    EXPECT_EQ(livePixelArrays(), before);
}

// What a cut leaves whole is what a reader that recovers gives.
TEST(ReadInterface, RecoversExactlyTheWholeParcelsBeforeACut)
{
    auto const image = imageOf<Byte4>({40, 30});
    randomise(*image, 1);
    for (Byte4& pixel : pixelsOf<Byte4>(*image))
        pixel.a |= 1;
    Bytes const file = fileWith({image.get()});
    auto const records = recordsOf(file);
    for (std::size_t cut = 0; cut < file.size(); ++cut) {
        Bytes const front(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(cut));
        Loaded strict(front);
        ASSERT_NE(strict.read(), ReadResult::Complete) << cut;

        // The rest of the image would not fit into the file: room for it is asked for.
        Loaded recovering(front, {.policy = Policy::Recover, .missingBytes = 4800});
        ASSERT_NE(recovering.read(), ReadResult::Complete) << cut;
        if (cut < records[1].start + 32 + records[1].header.payloadBytes) {
            ASSERT_EQ(recovering.imageCount(), 0u);
            continue;
        }
        std::size_t parcels = 0;
        for (std::size_t i = 3; i + 1 < records.size(); ++i)
            parcels += records[i].start + 32 + records[i].header.payloadBytes <= cut ? 1u : 0u;
        std::size_t const arrived = std::min<std::size_t>(1024 * parcels, 4800);
        ASSERT_EQ(recovering.imageCount(), 1u);
        auto const* const bytes = static_cast<unsigned char const*>(recovering.image()->data());
        ASSERT_EQ(std::memcmp(bytes, image->data(), arrived), 0) << cut;
        ASSERT_TRUE(std::all_of(bytes + arrived, bytes + 4800, [](unsigned char c) { return c == 0; }))
            << cut;
    }
}

}  // namespace
}  // namespace koImage::packetFile
