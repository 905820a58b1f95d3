#include "koPacketFile/read_context.h"

#include "koPacketFile/testing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

namespace koPacketFile {
namespace {

using testing::addTypes;
using testing::Bytes;
using testing::bytesOf;
using testing::fileOf;
using testing::headerOf;
using testing::Outcome;
using testing::readFile;
using testing::Reads;
using testing::recordBytes;
using testing::recordsOf;
using testing::TestType;
using testing::operator+;

class Object : public ko::ReferenceCount {
public:
    explicit Object(int v = 0) : value(v) { ++alive; }
    ~Object() override { --alive; }

    int value;
    static inline int alive = 0;
};

class Stranger : public ko::ReferenceCount {};

/// Writes a packet with what `write` puts into it.
template <class Write>
void packet(ioWriteContext& out, char const* type, void const* tag, Write const& write)
{
    out.startPacket(type, tag);
    write();
    out.endPacket();
}

void setObject(ioReadContext& in)
{
    in.setObject(new Object);
}

TEST(ReadContext, ReadsEveryValueAsItWasWritten)
{
    std::vector<std::uint8_t> const bytes{1, 255};
    std::vector<std::uint16_t> const shorts{1, 65535};
    std::vector<std::int32_t> const ints{-1, std::numeric_limits<std::int32_t>::min()};
    std::vector<float> const floats{-0.0f, 1.5f};
    std::vector<double> const doubles{std::numeric_limits<double>::denorm_min(), -1e300};
    Bytes const file = fileOf([&](ioWriteContext& out) {
        packet(out, "object", &bytes, [] {});
        packet(out, "all", nullptr, [&] {
            out.writeInt(-5);
            out.writeBool(true);
            out.writeReference(&bytes);
            out.writeReference(nullptr);
            out.writeBytes(bytes.data(), bytes.size());
            out.nextChunk();
            out.writeShorts(shorts.data(), shorts.size());
            out.startSubPacket();
            out.writeInts(ints.data(), ints.size());
            out.nextChunk();
            out.writeFloats(floats.data(), floats.size());
            out.endSubPacket();
            out.writeDoubles(doubles.data(), doubles.size());
        });
    });
    int read = 0;
    auto const outcome =
        readFile(file, {{"object", setObject}, {"all", [&](ioReadContext& in) {
                                                    EXPECT_EQ(in.readInt(), -5);
                                                    EXPECT_TRUE(in.readBool());
                                                    EXPECT_NE(in.readReference<Object>(), nullptr);
                                                    EXPECT_EQ(in.readReference(), nullptr);
                                                    std::vector<std::uint8_t> b(2);
                                                    EXPECT_TRUE(in.readBytes(b.data(), 2));
                                                    EXPECT_EQ(b, bytes);
                                                    EXPECT_FALSE(in.hasValues());
                                                    in.nextChunk();
                                                    std::vector<std::uint16_t> s(2);
                                                    EXPECT_TRUE(in.readShorts(s.data(), 2));
                                                    EXPECT_EQ(s, shorts);
                                                    in.startSubPacket();
                                                    std::vector<std::int32_t> i(2);
                                                    EXPECT_TRUE(in.readInts(i.data(), 2));
                                                    EXPECT_EQ(i, ints);
                                                    in.nextChunk();
                                                    std::vector<float> f(2);
                                                    EXPECT_TRUE(in.readFloats(f.data(), 2));
                                                    EXPECT_EQ(std::memcmp(f.data(), floats.data(), 8), 0);
                                                    in.endSubPacket();
                                                    std::vector<double> d(2);
                                                    EXPECT_EQ(in.peekCount(), 2u);
                                                    EXPECT_TRUE(in.readDoubles(d.data(), 2));
                                                    EXPECT_EQ(d, doubles);
                                                    EXPECT_FALSE(in.packetFailed());
                                                    ++read;
                                                }}});
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_EQ(read, 1);
}

TEST(ReadContext, SkipsPacketsOfUnknownTypes)
{
    Bytes const file = fileOf([](ioWriteContext& out) {
        packet(out, "new", nullptr, [&] { out.writeInt(1); });
        packet(out, "old", nullptr, [&] { out.writeInt(2); });
    });
    int value = 0;
    auto const outcome = readFile(file, {{"old", [&](ioReadContext& in) { value = in.readInt(); }}});
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_EQ(value, 2);
    ASSERT_EQ(outcome.report.informationCount(), 1u);
    EXPECT_EQ(outcome.report.information()[0].problem, Problem::SkippedPacket);
    EXPECT_EQ(outcome.report.information()[0].place.packetType, "new");
}

TEST(ReadContext, DropsAPacketAboveTheLimit)
{
    std::vector<std::uint8_t> const bytes(3 << 20, 7);
    Bytes const file = fileOf([&](ioWriteContext& out) {
        packet(out, "p", nullptr, [&] { out.writeBytes(bytes.data(), bytes.size()); });
        packet(out, "p", nullptr, [&] { out.writeBytes(bytes.data(), 1); });
    });
    for (std::uint64_t const limit : {bytes.size() + 9, bytes.size() - 100}) {
        std::vector<std::uint64_t> counts;
        auto const outcome =
            readFile(file, {{"p", [&](ioReadContext& in) { counts.push_back(in.peekCount()); }}},
                     {.policy = Policy::Recover, .mostPacketBytes = limit});
        bool const fits = limit > bytes.size();
        EXPECT_EQ(outcome.result, fits ? ReadResult::Complete : ReadResult::Damaged);
        EXPECT_EQ(outcome.found(Problem::PacketTooLarge), !fits);
        EXPECT_EQ(counts.back(), 1u);
        EXPECT_EQ(counts.size(), fits ? 2u : 1u);
    }
}

TEST(ReadContext, TellsAnUnknownPacketThatMustBeUnderstood)
{
    Bytes const file = headerOf(fileOf([](ioWriteContext&) {})) +
                       recordBytes({.kind = RecordKind::Packet,
                                    .flags = flag::first | flag::last | flag::mustUnderstand,
                                    .typeId = typeIdOf("new")},
                                   {});
    EXPECT_EQ(readFile(file, {}).report.first().problem, Problem::UnknownPacket);
    auto const known = readFile(file, {{"new", [](ioReadContext&) {}}});
    EXPECT_EQ(known.report.first().problem, Problem::Truncated);
}

TEST(ReadContext, TellsANameThatIsNotWhatItSays)
{
    Bytes const file = headerOf(fileOf([](ioWriteContext&) {})) +
                       recordBytes({.kind = RecordKind::TypeName, .typeId = typeIdOf("a")}, bytesOf({'b'}));
    EXPECT_EQ(readFile(file, {}).report.first().problem, Problem::WrongTypeName);
}

TEST(ReadContext, FailsThePacketOfAWrongValueAndNoOther)
{
    Bytes const file = fileOf([](ioWriteContext& out) {
        for (int i = 0; i < 2; ++i)
            packet(out, "p", nullptr, [&] { out.writeInt(i); });
    });
    int good = 0;
    Reads const reads{{"p", [&](ioReadContext& in) {
                           if (in.report().packets == 1)
                               EXPECT_FALSE(in.readBool());
                           else
                               ++good;
                       }}};
    auto const strict = readFile(file, reads);
    EXPECT_EQ(strict.result, ReadResult::Damaged);
    EXPECT_EQ(strict.report.first().problem, Problem::WrongValue);
    EXPECT_EQ(strict.report.first().place.packetType, "p");
    EXPECT_EQ(good, 0);
    EXPECT_EQ(readFile(file, reads, {.policy = Policy::Recover}).result, ReadResult::Damaged);
    EXPECT_EQ(good, 1);
}

TEST(ReadContext, ResolvesAReferenceToTheObjectOfItsPacketOnly)
{
    int a = 0;
    int b = 0;
    int c = 0;
    Bytes const file = fileOf([&](ioWriteContext& out) {
        packet(out, "object", &a, [] {});
        packet(out, "nothing", &b, [] {});
        packet(out, "unknown", &c, [] {});
        packet(out, "use", nullptr, [&] {
            for (void const* const tag : {&a, &b, &c})
                out.writeReference(tag);
            out.writeReference(nullptr);
        });
    });
    auto const outcome =
        readFile(file, {{"object", setObject},
                        {"nothing", [](ioReadContext& in) { in.setObject(nullptr); }},
                        {"use", [](ioReadContext& in) {
                             EXPECT_NE(in.readReference<Object>(), nullptr);
                             EXPECT_EQ(in.readReference<Object>(), nullptr) << "its object is null";
                             EXPECT_EQ(in.readReference<Object>(), nullptr) << "no type reads its packet";
                             EXPECT_EQ(in.readReference<Object>(), nullptr) << "null was written";
                         }}});
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_EQ(outcome.report.informationCount(), 3u) << "one packet skipped, two references unresolved";
}

TEST(ReadContext, DoesNotResolveIdsThatNoPacketHadOrThatComeLater)
{
    auto const use = [](std::uint64_t id) {
        Bytes payload(9, std::byte{0x81});
        store(payload.data() + 1, id);
        return payload;
    };
    auto const typeId = typeIdOf("use");
    constexpr std::uint8_t whole = flag::first | flag::last;
    Bytes tag(8);
    store<std::uint64_t>(tag.data(), 7);
    Bytes file = headerOf(fileOf([](ioWriteContext&) {}));
    std::uint32_t number = 0;
    for (std::uint64_t const id : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{7}, ~std::uint64_t{0}})
        file = file + recordBytes({.flags = whole, .typeId = typeId, .number = number++}, use(id));
    file = file +
           recordBytes({.flags = whole | flag::tagged, .typeId = typeIdOf("object"), .number = number}, tag);
    auto const outcome =
        readFile(file, {{"object", setObject},
                        {"use", [](ioReadContext& in) { EXPECT_EQ(in.readReference(), nullptr); }}});
    EXPECT_EQ(outcome.report.informationCount(), 4u + 1u) << "and nothing asked for the object";
}

TEST(ReadContext, TellsAReferenceToAnObjectOfAnotherClass)
{
    int a = 0;
    Bytes const file = fileOf([&](ioWriteContext& out) {
        packet(out, "object", &a, [] {});
        packet(out, "use", nullptr, [&] {
            out.writeReference(&a);
            out.writeInt(5);
        });
    });
    auto const outcome =
        readFile(file, {{"object", setObject}, {"use", [](ioReadContext& in) {
                                                    EXPECT_EQ(in.readReference<Stranger>(), nullptr);
                                                    EXPECT_EQ(in.readInt(), 5);
                                                }}});
    EXPECT_EQ(outcome.result, ReadResult::Damaged);
    EXPECT_EQ(outcome.report.first().problem, Problem::WrongObjectType);
    EXPECT_TRUE(outcome.found(Problem::UnclaimedObject));
}

TEST(ReadContext, RefusesObjectNumbersThatDoNotGrow)
{
    Bytes file = headerOf(fileOf([](ioWriteContext&) {}));
    std::uint32_t number = 0;
    for (std::uint64_t const id : {2u, 2u, 1u, 0u, 3u}) {
        Bytes tag(8);
        store(tag.data(), id);
        file = file + recordBytes({.flags = flag::first | flag::last | flag::tagged,
                                   .typeId = typeIdOf("object"),
                                   .number = number++},
                                  tag);
    }
    int read = 0;
    auto const outcome =
        readFile(file, {{"object", [&](ioReadContext&) { ++read; }}}, {.policy = Policy::Recover});
    EXPECT_EQ(read, 2);
    EXPECT_EQ(outcome.report.damageCount(), 3u + 1u) << "and the end is missing";
    EXPECT_EQ(outcome.report.first().problem, Problem::RepeatedId);
}

TEST(ReadContext, KeepsObjectsUntilItGoesAndLeavesThoseThatWereTaken)
{
    int a = 0;
    int b = 0;
    Bytes const file = fileOf([&](ioWriteContext& out) {
        packet(out, "object", &a, [] {});
        packet(out, "object", &b, [] {});
        packet(out, "object", nullptr, [] {});
        packet(out, "use", nullptr, [&] { out.writeReference(&a); });
    });
    ko::Reference<Object> taken;
    {
        MemorySource source(file);
        ioReadContext in(source);
        ioPacketRegistry registry;
        addTypes(registry, {{"object", setObject}, {"use", [&](ioReadContext& context) {
                                                        taken = context.readReference<Object>();
                                                    }}});
        EXPECT_EQ(in.readAll(registry), ReadResult::Complete);
        EXPECT_EQ(in.objects().size(), 3u);
        EXPECT_EQ(Object::alive, 3);
    }
    EXPECT_EQ(Object::alive, 1);
    EXPECT_EQ(taken->referenceCount(), 1u);
    taken = nullptr;
    EXPECT_EQ(Object::alive, 0);
}

TEST(ReadContext, TellsWhatIsMissingOfEveryObject)
{
    int tags[2] = {};
    Bytes const file = fileOf([&](ioWriteContext& out) {
        packet(out, "object", nullptr, [] {});
        packet(out, "nothing", &tags[1], [] {});
        packet(out, "object", &tags[0], [] {});
        for (int const start : {0, 70, 60})
            packet(out, "part", nullptr, [&] {
                out.writeReference(&tags[0]);
                out.writeInt(start);
            });
    });
    MemorySource source(file);
    ioReadContext in(source);
    ioPacketRegistry registry;
    addTypes(registry, {{"object",
                         [](ioReadContext& context) {
                             EXPECT_TRUE(context.expectElements(100, 1));
                             context.setObject(new Object);
                         }},
                        {"nothing", [](ioReadContext&) {}},
                        {"part", [](ioReadContext& context) {
                             context.readOwner<Object>();
                             context.elementsArrived(static_cast<std::uint64_t>(context.readInt()), 20);
                         }}});
    EXPECT_EQ(in.readAll(registry), ReadResult::Damaged);
    ASSERT_EQ(in.foundObjects().size(), 2u);
    FoundObject const tagged = in.foundObjects()[0];
    EXPECT_EQ(tagged.object, in.objects()[0]);
    EXPECT_EQ(tagged.id, 2u);
    EXPECT_EQ(tagged.elements, 100u);
    EXPECT_EQ(tagged.missing, 50u) << "70 to 80 came twice";
    FoundObject const untagged = in.foundObjects()[1];
    EXPECT_EQ(untagged.object, in.objects()[1]);
    EXPECT_EQ(untagged.id, 0u);
    EXPECT_EQ(untagged.missing, 100u);
}

TEST(ReadContext, TellsOnceOfEveryObjectThatNothingAskedFor)
{
    int tags[4] = {};
    Bytes const file = fileOf([&](ioWriteContext& out) {
        for (int& tag : tags)
            packet(out, "object", &tag, [] {});
        packet(out, "use", nullptr, [&] { out.writeReference(&tags[1]); });
        packet(out, "part", nullptr, [&] { out.writeReference(&tags[2]); });
    });
    MemorySource source(file);
    ioReadContext in(source);
    ioClientReadContext client(in);
    ioPacketRegistry registry;
    std::vector<ko::ReferenceCount*> told;
    auto* const type = new TestType("object", setObject);
    type->notReferenced = [&](ko::ReferenceCount* object) { told.push_back(object); };
    registry.supportedType(type);
    addTypes(registry, {{"use", [](ioReadContext& context) { context.readReference<Object>(); }},
                        {"part", [](ioReadContext& context) { context.readOwner<Object>(); }}});
    EXPECT_EQ(in.readAll(registry), ReadResult::Complete);
    auto const all = in.objects();
    EXPECT_EQ(told, (std::vector{all[0], all[2], all[3]}))
        << "bringing a part of an object is not asking for it";
}

TEST(ReadContext, TellsEveryReferenceThatStayedNull)
{
    int missing = 0;
    int there = 0;
    Bytes const file = fileOf([&](ioWriteContext& out) {
        packet(out, "unknown", &missing, [] {});
        packet(out, "object", &there, [] {});
        packet(out, "use", nullptr, [&] {
            for (void const* const tag : {&missing, &there, &missing, &there})
                out.writeReference(tag);
            out.writeReference(nullptr);
        });
    });
    MemorySource source(file);
    ioReadContext in(source);
    ioClientReadContext client(in);
    ioPacketRegistry registry;
    registry.supportedType(new TestType("object", setObject));
    std::vector<int> told;
    Object* user = nullptr;
    auto* const type = new TestType("use", [&](ioReadContext& context) {
        context.readReference<Object>();
        context.readReference<Object>();
        context.readReference<Object>();
        EXPECT_EQ(context.readReference<Stranger>(), nullptr);
        context.readReference<Object>();
        user = new Object;
        context.setObject(user);
    });
    type->unresolved = [&](ko::ReferenceCount* object, int n) {
        EXPECT_EQ(object, user);
        told.push_back(n);
    };
    registry.supportedType(type);
    EXPECT_EQ(in.readAll(registry), ReadResult::Damaged) << "one asked for the wrong class";
    EXPECT_EQ(told, (std::vector{0, 2, 3}));
}

class Diary : public ioClientReadContext {
public:
    Diary(ioReadContext& context, std::string name, std::string& text)
        : ioClientReadContext(context),
          name_(std::move(name)),
          text_(text)
    {
    }
    void prePacketRead() override { text_ += "<" + name_; }
    void postPacketRead() override { text_ += name_ + ">"; }

private:
    std::string name_;
    std::string& text_;
};

TEST(ReadContext, TellsItsClientsBeforeAndAfterEveryPacket)
{
    Bytes const file = fileOf([](ioWriteContext& out) {
        packet(out, "p", nullptr, [] {});
        packet(out, "unknown", nullptr, [] {});
        packet(out, "p", nullptr, [&] { out.writeInt(1); });
    });
    MemorySource source(file);
    ioReadContext in(source);
    std::string text;
    Diary const a(in, "a", text);
    {
        Diary const gone(in, "gone", text);
    }
    Diary const b(in, "b", text);
    ioPacketRegistry registry;
    addTypes(registry, {{"p", [&](ioReadContext& context) {
                             text += ".";
                             context.readBool();
                         }}});
    EXPECT_EQ(in.readAll(registry), ReadResult::Damaged);
    EXPECT_EQ(text, "<a<b.b>a>") << "and strict reading stopped at the missing value";
}

TEST(ReadContext, TellsItsClientsAfterAPacketThatThrows)
{
    Bytes const file = fileOf([](ioWriteContext& out) { packet(out, "p", nullptr, [] {}); });
    MemorySource source(file);
    std::string text;
    {
        ioReadContext in(source);
        Diary const a(in, "a", text);
        Diary const b(in, "b", text);
        ioPacketRegistry registry;
        addTypes(registry, {{"p", [](ioReadContext& context) {
                                 context.setObject(new Object);
                                 throw std::runtime_error("of the reader");
                             }}});
        EXPECT_THROW(in.readAll(registry), std::runtime_error);
        EXPECT_EQ(in.readAll(registry), ReadResult::Failed) << "a file is read once";
        EXPECT_EQ(in.report().first().problem, Problem::Misuse);
    }
    EXPECT_EQ(text, "<a<bb>a>");
    EXPECT_EQ(Object::alive, 0);
}

TEST(ReadContext, LetsClientsComeAndGoDuringAPacket)
{
    Bytes const file = fileOf([](ioWriteContext& out) {
        packet(out, "p", nullptr, [] {});
        packet(out, "p", nullptr, [] {});
    });
    MemorySource source(file);
    ioReadContext in(source);
    std::string text;
    auto a = std::make_unique<Diary>(in, "a", text);
    Diary const b(in, "b", text);
    std::unique_ptr<Diary> c;
    ioPacketRegistry registry;
    addTypes(registry, {{"p", [&](ioReadContext& context) {
                             text += ".";
                             a.reset();
                             if (c == nullptr)
                                 c = std::make_unique<Diary>(context, "c", text);
                         }}});
    EXPECT_EQ(in.readAll(registry), ReadResult::Complete);
    EXPECT_EQ(text, "<a<b.b><b<c.c>b>");
}

TEST(ReadContext, PassesTheFirstClientToTypesAndHooks)
{
    struct Type : ioPacketType {
        using ioPacketType::ioPacketType;
        void read(ioReadContext&, ioClientReadContext* c) override { client = c; }
        ioClientReadContext* client = nullptr;
    };
    Bytes const file = fileOf([](ioWriteContext& out) { packet(out, "p", nullptr, [] {}); });
    MemorySource source(file);
    ioReadContext in(source);
    ioClientReadContext first(in);
    ioClientReadContext const second(in);
    ioPacketRegistry registry;
    auto* const type = new Type("p");
    registry.supportedType(type);
    EXPECT_EQ(in.readAll(registry), ReadResult::Complete);
    EXPECT_EQ(type->client, &first);
}

TEST(ReadContext, GivesMisuseToReadersOutsidePackets)
{
    Bytes const file = fileOf([](ioWriteContext&) {});
    MemorySource source(file);
    ioReadContext in(source);
    float number = 5;
    std::vector<std::function<void()>> const calls{
        [&] { EXPECT_EQ(in.readInt(), 0); },
        [&] { EXPECT_FALSE(in.readBool()); },
        [&] { EXPECT_FALSE(in.readFloats(&number, 1)); },
        [&] { EXPECT_EQ(in.readReference(), nullptr); },
        [&] { EXPECT_EQ(in.readOwner<Object>(), nullptr); },
        [&] { in.nextChunk(); },
        [&] { in.startSubPacket(); },
        [&] { in.endSubPacket(); },
        [&] { in.setObject(new Object); },
        [&] { EXPECT_FALSE(in.expectElements(1, 1)); },
        [&] { EXPECT_EQ(in.enlisted(static_cast<Diary*>(nullptr)), nullptr); },
    };
    std::uint64_t expected = 0;
    for (auto const& call : calls) {
        call();
        EXPECT_EQ(in.report().damageCount(), ++expected);
        EXPECT_EQ(in.report().damage().back().problem, Problem::Misuse);
    }
    in.elementsArrived(0, 1);
    EXPECT_EQ(number, 5);
    EXPECT_TRUE(in.packetFailed());
    EXPECT_FALSE(in.hasValues());
    EXPECT_EQ(in.peekCount(), 0u);
    EXPECT_EQ(Object::alive, 0);
}

TEST(ReadContext, GivesMisuseToASecondObjectAndASecondReading)
{
    int a = 0;
    Bytes const file = fileOf([&](ioWriteContext& out) {
        packet(out, "twice", &a, [] {});
        packet(out, "again", nullptr, [] {});
    });
    ioPacketRegistry registry;
    addTypes(registry,
             {{"twice",
               [](ioReadContext& in) {
                   in.setObject(new Object(1));
                   in.setObject(new Object(2));
               }},
              {"again", [&](ioReadContext& in) { EXPECT_EQ(in.readAll(registry), ReadResult::Failed); }}});
    MemorySource source(file);
    ioReadContext in(source, {.policy = Policy::Recover});
    EXPECT_EQ(in.readAll(registry), ReadResult::Damaged);
    ASSERT_EQ(in.report().damageCount(), 2u);
    EXPECT_EQ(in.report().damage()[0].problem, Problem::Misuse);
    EXPECT_EQ(in.report().damage()[1].problem, Problem::Misuse);
    ASSERT_EQ(in.objects().size(), 1u);
    EXPECT_EQ(static_cast<Object*>(in.objects()[0])->value, 1);
}

// The parts of a packet of several records: first, middle, last.
class ReadContextParts : public ::testing::Test {
protected:
    struct Part {
        std::uint8_t flags;
        Bytes payload;
        char const* type = "p";
    };

    static Outcome read(std::vector<Part> const& parts)
    {
        Bytes file = headerOf(fileOf([](ioWriteContext&) {}));
        std::uint32_t number = 0;
        for (Part const& part : parts)
            file =
                file + recordBytes({.flags = part.flags, .typeId = typeIdOf(part.type), .number = number++},
                                   part.payload);
        return readFile(file,
                        {{"p", [](ioReadContext& in) { EXPECT_EQ(in.readInt(), 0x04030201); }},
                         {"q", [](ioReadContext&) {}}},
                        {.policy = Policy::Recover});
    }

    static Bytes length(std::uint64_t bytes)
    {
        Bytes stored(8);
        store(stored.data(), bytes);
        return stored;
    }

    Bytes const front_ = length(5) + bytesOf({0x61});
    Bytes const back_ = bytesOf({1, 2, 3, 4});
    Bytes const whole_ = bytesOf({0x61, 1, 2, 3, 4});
};

TEST_F(ReadContextParts, ArePutTogether)
{
    auto const outcome = read({{flag::first, front_}, {0, bytesOf({1, 2})}, {flag::last, bytesOf({3, 4})}});
    EXPECT_EQ(outcome.report.packets, 1u);
    EXPECT_EQ(outcome.report.damageCount(), 1u) << "the end is missing";
}

TEST_F(ReadContextParts, AreDroppedWhereTheyDoNotFit)
{
    std::uint8_t const one = flag::first | flag::last;
    struct Case {
        std::vector<Part> parts;
        std::uint64_t packets;  // that remain
    };
    for (auto const& [parts, packets] : {
             Case{{{flag::first, front_}}, 0u},                                              // no end
             Case{{{flag::first, front_}, {one, whole_}}, 1u},                               // another begins
             Case{{{flag::first, front_}, {flag::first, front_}, {flag::last, back_}}, 1u},  // the same
             Case{{{flag::last, back_}, {one, whole_}}, 1u},                                 // no beginning
             Case{{{0, back_}, {0, back_}, {flag::last, back_}}, 0u},
             Case{{{flag::first, front_}, {flag::last, back_, "q"}}, 0u},  // another type
             Case{{{flag::first, front_}, {flag::last | flag::tagged, back_}}, 0u},
             Case{{{flag::first, front_}, {flag::last, back_ + back_}}, 0u},  // another length
             Case{{{flag::first, length(~std::uint64_t{0})}, {flag::last, {}}}, 0u},
             Case{{{flag::first, {}}, {flag::last, {}}}, 0u},
             Case{{{flag::first | flag::tagged, length(1)}, {flag::last, {}}}, 0u},
             Case{{{one | flag::tagged, bytesOf({1, 2, 3})}}, 0u},
         }) {
        auto const outcome = read(parts);
        EXPECT_EQ(outcome.report.packets, packets);
        EXPECT_TRUE(outcome.found(Problem::BrokenPacket));
    }
}

TEST(ReadContext, DropsAPacketThatLostOneOfItsRecords)
{
    std::vector<std::uint8_t> const bytes(3 << 20, 7);
    Bytes const file = fileOf([&](ioWriteContext& out) {
        for (int i = 0; i < 2; ++i)
            packet(out, "p", nullptr, [&] { out.writeBytes(bytes.data(), bytes.size()); });
    });
    auto const records = recordsOf(file);
    for (std::size_t lost = 1; lost < 5; ++lost) {
        Bytes damaged = file;
        std::size_t const at = records[lost].start + 40;
        damaged[at] ^= std::byte{1};
        int read = 0;
        auto const outcome = readFile(damaged,
                                      {{"p",
                                        [&](ioReadContext& in) {
                                            EXPECT_EQ(in.peekCount(), bytes.size());
                                            ++read;
                                        }}},
                                      {.policy = Policy::Recover});
        EXPECT_EQ(read, 1) << lost;
        EXPECT_TRUE(outcome.found(Problem::BrokenPacket));
    }
}

}  // namespace
}  // namespace koPacketFile
