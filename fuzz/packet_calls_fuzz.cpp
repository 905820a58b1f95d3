// Any sequence of calls of the write context, and then of the read context on what was written; images and
// lighting among what is written and read. No sequence may crash, and a file that was committed is read
// without damage to its records.

#include "koImage/image/typed_image.h"
#include "koImage/packet/testing.h"
#include "koPacketFile/koPacketFile.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

namespace {

using namespace koPacketFile;

class Program {
public:
    Program(std::uint8_t const* data, std::size_t size) : next_(data), end_(data + size) {}

    bool atEnd() const { return next_ == end_; }
    unsigned below(unsigned limit) { return atEnd() ? 0 : *next_++ % limit; }

private:
    std::uint8_t const* next_;
    std::uint8_t const* end_;
};

void demand(bool holds)
{
    if (!holds)
        std::abort();
}

constexpr std::array<char const*, 4> names{"a", "b", "c", "d"};
constexpr std::array<int, 8> tags{};

/// An array of so many elements and no more, as a caller would have it.
template <class T>
std::unique_ptr<T[]> elements(unsigned count)
{
    auto made = std::make_unique_for_overwrite<T[]>(count);
    // Not by a loop, which would be watched at every element.
    std::memset(made.get(), 1, count * sizeof(T));
    return made;
}

koImage::TypedImage<koImage::Half4>& someImage()
{
    static auto* const image = [] {
        auto* const made = new koImage::TypedImage<koImage::Half4>;
        made->addReference();
        made->resize(4, 2);
        std::memset(made->data(), 1, 64);
        return made;
    }();
    return *image;
}

koImage::ImageBasedLighting const& someLight()
{
    static koImage::ImageBasedLighting light;
    if (!light.haveUsableLightProbe()) {
        std::array<koImage::testing::LightingEntry, 2> const entries{{{1, &someImage()}, {2, &someImage()}}};
        koImage::testing::makeLighting(light, {}, &someImage(), entries);
    }
    return light;
}

/// Whether a commit among the calls succeeded.
bool write(Program& program, ioWriteContext& out)
{
    bool committed = false;
    bool wroteLarge = false;
    // One way of referring leads to nothing.
    auto const tag = [&]() -> void const* {
        unsigned const i = program.below(10);
        return i < tags.size() ? &tags[i] : i == 8 ? static_cast<void const*>(&someImage()) : nullptr;
    };
    unsigned const steps = program.below(64);
    for (unsigned step = 0; step < steps; ++step) {
        switch (program.below(20)) {
        case 0:
        case 1: {
            unsigned const i = program.below(64);
            out.startPacket(i < 60 ? names[i % 4] : i == 60 ? nullptr : "", tag());
            break;
        }
        case 2:
        case 3:
            out.endPacket();
            break;
        case 4:
            out.startSubPacket();
            break;
        case 5:
            out.endSubPacket();
            break;
        case 6:
            out.nextChunk();
            break;
        case 7:
            out.writeInt(static_cast<std::int32_t>(program.below(256)));
            break;
        case 8:
            out.writeBool(program.below(2) != 0);
            break;
        case 9:
            out.writeReference(tag());
            break;
        case 10: {
            unsigned const count = program.below(256);
            out.writeBytes(elements<std::uint8_t>(count).get(), count);
            break;
        }
        case 11: {
            unsigned const count = program.below(64);
            out.writeShorts(elements<std::uint16_t>(count).get(), count);
            break;
        }
        case 12: {
            unsigned const count = program.below(64);
            out.writeInts(elements<std::int32_t>(count).get(), count);
            break;
        }
        case 13: {
            unsigned const count = program.below(64);
            out.writeFloats(elements<float>(count).get(), count);
            break;
        }
        case 14: {
            // Once, for it takes a millisecond, so many that they take several records.
            bool const isLarge = program.below(64) == 63 && !std::exchange(wroteLarge, true);
            unsigned const count = isLarge ? 140'000 : program.below(255);
            out.writeDoubles(elements<double>(count).get(), count);
            break;
        }
        case 15:
            koImage::packetFile::writeImage(out, &someImage());
            break;
        case 16:
            koImage::packetFile::writeIrradiance(out, {});
            break;
        case 17:
            someLight().writeSubPacket(out);
            break;
        case 18:
            if (program.below(32) == 0)
                out.fail(Problem::InvalidValue);
            break;
        default:
            if (program.below(32) == 0 && out.commit()) {
                demand(!committed && !out.error());
                committed = true;
            }
            break;
        }
    }
    return committed;
}

class Object : public ko::ReferenceCount {};
class Other : public ko::ReferenceCount {};

/// Carries out the program's calls, in packets and outside.
class Reader {
public:
    Reader(Program& program, ioReadContext& in) : program_(program), in_(in), images_(in) {}

    void step()
    {
        switch (program_.below(27)) {
        case 0:
            in_.readInt();
            break;
        case 1:
            in_.readBool();
            break;
        case 2:
            in_.readReference<Object>();
            break;
        case 3:
            in_.readReference<Other>();
            break;
        case 4:
            in_.readOwner<Object>();
            break;
        case 5:
            in_.nextChunk();
            break;
        case 6:
            in_.startSubPacket();
            break;
        case 7:
            in_.endSubPacket();
            break;
        case 8:
            in_.setObject(new Object);
            break;
        case 9:
            in_.setObject(nullptr);
            break;
        case 10:
            static_cast<void>(in_.expectElements(program_.below(256), program_.below(9)));
            break;
        case 11:
            in_.elementsArrived(program_.below(256), program_.below(256));
            break;
        case 12:
            array<std::uint8_t>(&ioReadContext::readBytes);
            break;
        case 13:
            array<std::uint16_t>(&ioReadContext::readShorts);
            break;
        case 14:
            array<std::int32_t>(&ioReadContext::readInts);
            break;
        case 15:
            array<float>(&ioReadContext::readFloats);
            break;
        case 16:
            array<double>(&ioReadContext::readDoubles);
            break;
        case 17:
            client_ = std::make_unique<ioClientReadContext>(in_);
            break;
        case 18:
            client_.reset();
            break;
        case 19:
            images_.readImage();
            break;
        case 20:
            images_.readImageParcel();
            break;
        case 21:
            images_.readBitmap();
            break;
        case 22:
            images_.readBitmapParcel();
            break;
        case 23: {
            koImage::Irradiance irradiance;
            koImage::packetFile::readIrradiance(in_, irradiance);
            break;
        }
        case 24:
            light_.readSubPacket(in_);
            break;
        case 25:
            in_.readReference<koImage::Image>();
            break;
        default:
            if (program_.below(8) == 0)
                in_.fail(Problem::InvalidValue);
            break;
        }
    }

    koImage::packetFile::ReadInterface* images() { return &images_; }

    void steps(unsigned most)
    {
        for (unsigned const count = program_.below(most); done_ < count; ++done_)
            step();
        done_ = 0;
    }

private:
    template <class T>
    void array(bool (ioReadContext::*read)(T*, std::size_t))
    {
        // Sometimes as many as there are, sometimes not: the buffer is as long as what is asked for.
        auto const there = static_cast<unsigned>(in_.peekCount());
        unsigned const count = program_.below(4) != 0 ? there : program_.below(256);
        (in_.*read)(elements<T>(count).get(), count);
    }

    Program& program_;
    ioReadContext& in_;
    koImage::packetFile::ReadInterface images_;
    koImage::ImageBasedLighting light_;
    std::unique_ptr<ioClientReadContext> client_;
    unsigned done_ = 0;
};

class Type : public ioPacketType {
public:
    Type(char const* name, Reader& reader) : ioPacketType(name), reader_(reader) {}
    void read(ioReadContext&, ioClientReadContext*) override { reader_.steps(16); }

private:
    Reader& reader_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    Program program(data, size);
    MemorySink sink;
    {
        ioWriteContext out(sink, {.salt = 1});
        bool const before = write(program, out);
        bool const now = out.commit();
        demand(!now || (!before && !out.error()));
        demand((before || now) == !sink.bytes().empty());
    }

    MemorySource source(sink.bytes());
    ioReadContext in(source, {.policy = program.below(2) == 0 ? Policy::Strict : Policy::Recover});
    Reader reader(program, in);
    ioPacketRegistry registry;
    for (unsigned i = program.below(5); i < names.size(); ++i)
        registry.supportedType(new Type(names[i], reader));
    if (program.below(2) == 0)
        koImage::packetFile::registerTypes(&registry, reader.images());
    reader.steps(4);
    static_cast<void>(in.readAll(registry));
    reader.steps(4);

    // The calls may be wrong, the file is not.
    for (Finding const& finding : in.report().damage())
        demand(finding.problem > Problem::TrailingData || sink.bytes().empty());
    return 0;
}
