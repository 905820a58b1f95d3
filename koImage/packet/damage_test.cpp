// No damage goes unnoticed: whatever is done to a file, reading it reports damage or gives all that was
// saved.
//
// KO_FAULTS sets the number of random faults.

#include "koImage/packet/testing.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace koImage::packetFile {
namespace {

using namespace koImage::testing;
using koPacketFile::Policy;
using koPacketFile::ReadResult;
using koPacketFile::testing::Bytes;
using koPacketFile::testing::fileOf;
using koPacketFile::testing::RecordPlace;
using koPacketFile::testing::recordsOf;
using koPacketFile::testing::TestType;

/// A packet with sub-packets, chunks and references.
void writeNotes(ioWriteContext& out, Image const* image)
{
    std::array<double, 16> numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = 0.1 * static_cast<double>(i);
    out.startPacket("notes", &numbers);
    out.writeReference(image);
    out.startSubPacket();
    writeImage(out, image);
    for (int i = 0; i < 3; ++i)
        out.writeDoubles(numbers.data(), numbers.size());
    out.endSubPacket();
    out.nextChunk();
    out.writeBool(true);
    out.writeReference(nullptr);
    out.endPacket();
}

enum class Reference { SmallImages, ManyParcels, OldAndNested, Lighting };
constexpr Reference references[] = {Reference::SmallImages, Reference::ManyParcels, Reference::OldAndNested,
                                    Reference::Lighting};

void PrintTo(Reference which, std::ostream* out)
{
    constexpr char const* names[] = {"SmallImages", "ManyParcels", "OldAndNested", "Lighting"};
    *out << names[static_cast<int>(which)];
}

Bytes referenceFile(Reference which, std::uint32_t salt = 1, std::uint32_t seed = 1)
{
    return fileOf(
        [&](ioWriteContext& out) {
            switch (which) {
            case Reference::SmallImages: {
                auto const a = randomImage<Half4>({3, 5}, seed);
                auto const b = randomImage<Byte4>({7, 3}, seed + 1);
                writeImage(out, a.get());
                writeImage(out, b.get());
                writeNotes(out, b.get());
                break;
            }
            case Reference::ManyParcels: {
                auto const image = randomImage<unsigned char>({90, 91}, seed);
                writeImage(out, image.get());
                break;
            }
            case Reference::OldAndNested: {
                auto const pixels = randomImage<unsigned char>({40, 30}, seed);
                out.startPacket("ko.lb.bitmap", pixels.get());
                for (int const value : {1, 40, 30})
                    out.writeInt(value);
                out.nextChunk();
                out.writeBool(true);
                out.writeBool(false);
                out.endPacket();
                out.startPacket("ko.lb.bitmap.parcel", nullptr);
                out.writeReference(pixels.get());
                out.writeInt(0);
                out.writeInt(1200);
                out.writeBytes(pixels->pixels(), 1200);
                out.endPacket();
                writeNotes(out, pixels.get());
                break;
            }
            case Reference::Lighting: {
                auto const probe = randomImage<Float3>({8, 4}, seed);
                auto const map = randomImage<Half4>({3, 4}, seed + 1);
                std::array<LightingEntry, 3> const entries{{{-1, map.get()}, {2, nullptr}, {5, map.get()}}};
                Irradiance irradiance;
                irradiance.red(1, 2) = 0.1;
                out.startPacket("light", nullptr);
                writeLightingByHand(out, true, irradiance, probe.get(), entries);
                out.endPacket();
                break;
            }
            }
        },
        salt);
}

struct Outcome {
    ReadResult result;
    std::string content;  // all that a program gets from the file
};

Outcome readContent(std::span<std::byte const> file, Policy policy)
{
    std::string content;
    auto const add = [&content](auto const& value) {
        content.append(reinterpret_cast<char const*>(&value), sizeof value);
    };
    koPacketFile::MemorySource source(file);
    ioReadContext in(source, {.policy = policy});
    ReadInterface reader(in);
    ioPacketRegistry registry;
    registerTypes(&registry, &reader);
    registry.supportedType(new TestType("notes", [&](ioReadContext& context) {
        add(context.readReference<Image>() != nullptr);
        context.startSubPacket();
        for (int i = 0; i < 3; ++i) {
            std::array<double, 16> numbers{};
            context.readDoubles(numbers.data(), numbers.size());
            add(numbers);
        }
        context.endSubPacket();
        context.nextChunk();
        add(context.readBool());
        add(context.readReference() != nullptr);
    }));
    registry.supportedType(new TestType("light", [&](ioReadContext& context) {
        ImageBasedLighting lighting;
        lighting.readSubPacket(context);
        // All that it holds.
        Bytes const saved = fileOf([&](ioWriteContext& out) {
            out.startPacket("light", nullptr);
            lighting.writeSubPacket(out);
            out.endPacket();
        });
        content.append(reinterpret_cast<char const*>(saved.data()), saved.size());
    }));
    auto const result = in.readAll(registry);

    for (ko::ReferenceCount* const object : in.objects()) {
        auto const& image = dynamic_cast<Image const&>(*object);
        for (int const field : {static_cast<int>(image.pixelType()), image.width(), image.height(),
                                int{image.wrapHorizontal()}, int{image.wrapVertical()}})
            add(field);
        content.append(static_cast<char const*>(image.data()),
                       static_cast<std::size_t>(image.pixelCount() * image.bytesPerPixel()));
    }
    return {result, content};
}

class Damage : public ::testing::TestWithParam<Reference> {
protected:
    Bytes const file_ = referenceFile(GetParam());
    std::string const content_ = readContent(file_, Policy::Strict).content;

    ::testing::AssertionResult isNoticed(Bytes const& damaged) const
    {
        if (damaged == file_)
            return ::testing::AssertionSuccess();
        for (Policy const policy : {Policy::Strict, Policy::Recover}) {
            Outcome const outcome = readContent(damaged, policy);
            if (outcome.result == ReadResult::Complete)
                return ::testing::AssertionFailure()
                       << (outcome.content == content_ ? "no damage reported"
                                                       : "other content, not reported");
        }
        return ::testing::AssertionSuccess();
    }

    Bytes between(std::size_t first, std::size_t end) const
    {
        return {file_.begin() + static_cast<std::ptrdiff_t>(first),
                file_.begin() + static_cast<std::ptrdiff_t>(end)};
    }
};

INSTANTIATE_TEST_SUITE_P(References, Damage, ::testing::ValuesIn(references));

TEST_P(Damage, IsAbsentFromTheReferenceFiles)
{
    for (Policy const policy : {Policy::Strict, Policy::Recover}) {
        Outcome const outcome = readContent(file_, policy);
        EXPECT_EQ(outcome.result, ReadResult::Complete);
        EXPECT_EQ(outcome.content, content_);
        EXPECT_GT(content_.size(), 200u);
    }
}

TEST_P(Damage, OfEveryBitIsNoticed)
{
    Bytes damaged = file_;
    for (std::size_t bit = 0; bit < 8 * file_.size(); ++bit) {
        damaged[bit / 8] ^= std::byte{1} << (bit % 8);
        ASSERT_TRUE(isNoticed(damaged)) << "bit " << bit;
        damaged[bit / 8] = file_[bit / 8];
    }
    std::cout << 8 * file_.size() << " bits, all noticed\n";
}

TEST_P(Damage, OfTheEndIsNoticedAtEveryByte)
{
    for (std::size_t cut = 0; cut < file_.size(); ++cut)
        ASSERT_TRUE(isNoticed(between(0, cut))) << cut;
}

TEST_P(Damage, OfRecordsDroppedDoubledAndSwappedIsNoticed)
{
    using koPacketFile::testing::operator+;
    auto const records = recordsOf(file_);
    for (std::size_t i = 0; i < records.size(); ++i) {
        Bytes const before = between(0, records[i].start);
        Bytes const record = between(records[i].start, records[i].end);
        Bytes const after = between(records[i].end, file_.size());
        ASSERT_TRUE(isNoticed(before + after)) << "without record " << i;
        ASSERT_TRUE(isNoticed(before + record + record + after)) << "record " << i << " twice";
        for (std::size_t j = i + 1; j < records.size(); ++j) {
            Bytes const swapped = before + between(records[j].start, records[j].end) +
                                  between(records[i].end, records[j].start) + record +
                                  between(records[j].end, file_.size());
            ASSERT_TRUE(isNoticed(swapped)) << "records " << i << " and " << j << " swapped";
        }
    }
}

TEST_P(Damage, OfRecordsLeftFromAnOlderSaveIsNoticed)
{
    // The same content under another salt, and other content of the same size.
    for (std::uint32_t const seed : {1u, 9u}) {
        Bytes const older = referenceFile(GetParam(), 2, seed);
        ASSERT_EQ(older.size(), file_.size());
        for (RecordPlace const& record : recordsOf(file_)) {
            Bytes spliced = file_;
            std::copy(older.begin() + static_cast<std::ptrdiff_t>(record.start),
                      older.begin() + static_cast<std::ptrdiff_t>(record.end),
                      spliced.begin() + static_cast<std::ptrdiff_t>(record.start));
            ASSERT_TRUE(isNoticed(spliced)) << record.start;
        }
    }
}

std::uint64_t faultCount()
{
    char const* const count = std::getenv("KO_FAULTS");
    return count != nullptr ? std::strtoull(count, nullptr, 10) : 6000;
}

TEST_P(Damage, OfRandomFaultsIsNoticed)
{
    Random random(5);
    auto const below = [&random](std::size_t limit) { return static_cast<std::size_t>(random()) % limit; };
    Bytes const older = referenceFile(GetParam(), 2, 9);
    for (std::uint64_t fault = 0; fault < faultCount() / std::size(references); ++fault) {
        Bytes damaged = file_;
        std::size_t const block = below(2) == 0 ? 512 : 4096;
        std::size_t const first = below(damaged.size() / block + 1) * block;
        std::size_t const end = std::min(first + block, damaged.size());
        auto const at = [&damaged](std::size_t i) {
            return damaged.begin() + static_cast<std::ptrdiff_t>(i);
        };
        switch (below(5)) {
        case 0: {
            std::size_t const start = below(damaged.size());
            std::size_t const count = std::min(1 + below(64), damaged.size() - start);
            for (std::size_t i = 0; i < count; ++i)
                damaged[start + i] = static_cast<std::byte>(random());
            break;
        }
        case 1:
            std::fill(at(first), at(end), std::byte{0});
            break;
        case 2:
            std::fill(at(first), at(end), std::byte{0xFF});
            break;
        case 3: {
            std::size_t const other = below(damaged.size() / 512) * 512;
            std::size_t const sector = below(damaged.size() / 512) * 512;
            std::swap_ranges(at(sector), at(sector + 512), at(other));
            break;
        }
        default:
            std::copy(older.begin() + (at(first) - at(0)), older.begin() + (at(end) - at(0)), at(first));
        }
        // All of the older file is not damage.
        if (damaged == older)
            continue;
        ASSERT_TRUE(isNoticed(damaged)) << "fault " << fault;
    }
    std::cout << faultCount() / std::size(references) << " faults, all noticed\n";
}

}  // namespace
}  // namespace koImage::packetFile
