// What of ImageBasedLighting is saved.

#include "koImage/envmap/lat_long_map.h"
#include "koImage/lighting/image_based_lighting.h"
#include "koImage/lighting/lobes.h"
#include "koImage/lighting/rotation_matrices.h"
#include "koImage/packet/testing.h"
#include "koImage/testing/loaded_rotations.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>
#include <vector>

namespace koImage {
namespace {

using namespace testing;
using koPacketFile::Policy;
using koPacketFile::Problem;
using koPacketFile::ReadResult;
using koPacketFile::RecordKind;
using koPacketFile::testing::Bytes;
using koPacketFile::testing::Outcome;
using koPacketFile::testing::recordsOf;

constexpr int mostKey = std::numeric_limits<int>::max();
constexpr int leastKey = std::numeric_limits<int>::min();

/// Every element another number.
Irradiance someIrradiance()
{
    Irradiance irradiance;
    double next = 0.1;
    for (auto* const matrix : {&irradiance.red, &irradiance.green, &irradiance.blue})
        for (int i = 0; i < 16; ++i)
            matrix->data()[i] = next *= -1.7;
    return irradiance;
}

bool sameBits(Irradiance const& a, Irradiance const& b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

Irradiance irradianceOf(ImageBasedLighting& lighting)
{
    Irradiance irradiance;
    lighting.getIrradiance(irradiance, nullptr);
    return irradiance;
}

/// A glossy lobe that counts how often it is sampled; without a specular part on request.
class Counted final : public ReflectanceFunction {
public:
    explicit Counted(int key, bool isSpecular = true)
        : lobe_(20.0, isSpecular ? Double3{1.0, 1.0, 1.0} : Double3{1.0, 0.0, 1.0})
    {
        setKey(key);
    }

    Double3 sample(ReflectanceSamples& samples) const override
    {
        ++count_;
        return lobe_.sample(samples);
    }
    int count() const { return count_; }

private:
    PhongLobe lobe_;
    mutable int count_ = 0;
};

/// The image of the map that is kept for the key, or null. There are no rotation matrices: no map is made.
Image* keptImage(ImageBasedLighting& lighting, int key)
{
    EnvironmentMap* const map = lighting.getSpecularMap(MapOf(key), nullptr);
    return map != nullptr ? map->image() : nullptr;
}

Bytes fileOf(ImageBasedLighting const& lighting)
{
    return koPacketFile::testing::fileOf([&](ioWriteContext& out) {
        out.startPacket("light", &lighting);
        lighting.writeSubPacket(out);
        out.endPacket();
    });
}

/// A file whose lighting is written by hand.
Bytes fileByHand(bool usable, Image const* probe, std::vector<LightingEntry> const& entries)
{
    return koPacketFile::testing::fileOf([&](ioWriteContext& out) {
        out.startPacket("light", nullptr);
        writeLightingByHand(out, usable, someIrradiance(), probe, entries);
        out.endPacket();
    });
}

Outcome load(ImageBasedLighting& lighting, Bytes const& file)
{
    return readLights(file, [&](ioReadContext& in) { lighting.readSubPacket(in); });
}

void expectComplete(ImageBasedLighting& lighting, Bytes const& file)
{
    auto const outcome = load(lighting, file);
    EXPECT_EQ(outcome.result, ReadResult::Complete) << outcome.report.first().message();
}

/// Without rotation matrices: what is there was read.
class LightingPacket : public ::testing::Test {
protected:
    LightingPacket()
    {
        finalizeReflectance();
        ImageBasedLighting::setRotationMatrixFilename({});
    }

    ImageRef<Float3> const probe_ = randomImage<Float3>({8, 4}, 1);
    ImageRef<Float3> const cross_ = randomImage<Float3>({6, 8}, 2);
    ImageRef<Half4> const halves_ = randomImage<Half4>({4, 2}, 3);
};

// --- What is written ---

TEST_F(LightingPacket, IsWrittenInTheOrderOfThisList)
{
    ImageBasedLighting lighting;
    makeLighting(lighting, someIrradiance(), probe_.get(),
                 std::vector<LightingEntry>{{7, halves_.get()}, {-3, cross_.get()}});
    std::vector<Image*> objects;
    auto const outcome = readLights(fileOf(lighting), [&](ioReadContext& in) {
        in.startSubPacket();
        EXPECT_TRUE(in.readBool());
        Irradiance irradiance;
        packetFile::readIrradiance(in, irradiance);
        EXPECT_TRUE(sameBits(irradiance, someIrradiance()));
        auto const* const probe = in.readReference<TypedImage<Float3>>();
        EXPECT_TRUE(probe != nullptr && samePixels(*probe_, *probe));
        EXPECT_EQ(in.readInt(), 2);

        in.startSubPacket();
        EXPECT_EQ(in.readInt(), -3);
        auto const* const cross = in.readReference<TypedImage<Float3>>();
        EXPECT_TRUE(cross != nullptr && samePixels(*cross_, *cross));
        EXPECT_FALSE(in.hasValues());
        in.endSubPacket();

        in.startSubPacket();
        EXPECT_EQ(in.readInt(), 7);
        auto const* const halves = in.readReference<TypedImage<Half4>>();
        EXPECT_TRUE(halves != nullptr && samePixels(*halves_, *halves));
        EXPECT_FALSE(in.hasValues());
        in.endSubPacket();

        EXPECT_FALSE(in.hasValues());
        in.endSubPacket();
        EXPECT_FALSE(in.hasValues());
        EXPECT_FALSE(in.packetFailed());
        for (auto* const object : in.objects())
            objects.push_back(dynamic_cast<Image*>(object));
        // In the order of the list, and all in front of this packet.
        EXPECT_EQ(objects, (std::vector<Image*>{const_cast<TypedImage<Float3>*>(probe),
                                                const_cast<TypedImage<Float3>*>(cross),
                                                const_cast<TypedImage<Half4>*>(halves)}));
    });
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_EQ(objects.size(), 3u);
}

TEST_F(LightingPacket, OfAnEmptyObjectHoldsNoImages)
{
    Bytes const file = fileOf(ImageBasedLighting());
    EXPECT_EQ(recordsOf(file).size(), 3u);  // a name, a packet, the end
    ImageBasedLighting lighting;
    makeLighting(lighting, someIrradiance(), probe_.get(), std::vector<LightingEntry>{{7, cross_.get()}});
    expectComplete(lighting, file);
    EXPECT_FALSE(lighting.haveUsableLightProbe());
    EXPECT_EQ(lighting.getReflectionMap(), nullptr);
    EXPECT_EQ(fileOf(lighting), file) << "the irradiance, too";
}

// --- A save and a load ---

TEST_F(LightingPacket, ComesBackWithEveryBitThatWasSet)
{
    std::vector<LightingEntry> const none;
    std::vector<LightingEntry> const one{{0, halves_.get()}};
    std::vector<LightingEntry> const many{
        {leastKey, halves_.get()}, {-1, cross_.get()}, {0, probe_.get()}, {mostKey, cross_.get()}};
    std::vector<Image*> const probes{probe_.get(), cross_.get(), halves_.get()};
    for (auto const& entries : {none, one, many}) {
        for (Image* const probe : probes) {
            ImageBasedLighting lighting;
            makeLighting(lighting, someIrradiance(), probe, entries);
            Bytes const file = fileOf(lighting);

            ImageBasedLighting copy;
            expectComplete(copy, file);
            EXPECT_TRUE(copy.haveUsableLightProbe());
            EXPECT_TRUE(sameBits(irradianceOf(copy), someIrradiance()));
            ASSERT_NE(copy.getReflectionMap(), nullptr);
            Image const& image = *copy.getReflectionMap()->image();
            EXPECT_TRUE(samePixels(*probe, image));
            EXPECT_TRUE(image.wrapHorizontal());
            EXPECT_EQ(image.wrapVertical(), probe == cross_.get());
            EXPECT_EQ(copy.getReflectionMap()->mapType(),
                      probe == cross_.get() ? EnvironmentMapType::Cross : EnvironmentMapType::LatLong);
            for (auto const& [key, entry] : entries) {
                Image const* const kept = keptImage(copy, key);
                ASSERT_NE(kept, nullptr) << key;
                EXPECT_TRUE(samePixels(*entry, *kept)) << key;
                EXPECT_EQ(kept->wrapHorizontal(), entry->wrapHorizontal());
                EXPECT_EQ(kept->wrapVertical(), entry->wrapVertical());
            }
            EXPECT_EQ(keptImage(copy, 5), nullptr);
            EXPECT_EQ(fileOf(copy), file);
        }
    }
}

TEST_F(LightingPacket, ComesBackFromInsideASubPacketOfItsOwner)
{
    ImageBasedLighting lighting;
    makeLighting(lighting, someIrradiance(), probe_.get(), std::vector<LightingEntry>{{1, cross_.get()}});
    Bytes const file = koPacketFile::testing::fileOf([&](ioWriteContext& out) {
        out.startPacket("light", &lighting);
        out.writeInt(11);
        out.startSubPacket();
        out.writeReference(&lighting);
        lighting.writeSubPacket(out);
        out.nextChunk();
        lighting.writeSubPacket(out);
        out.writeInt(12);
        out.endSubPacket();
        out.writeInt(13);
        out.endPacket();
    });
    ImageBasedLighting first;
    ImageBasedLighting second;
    auto const outcome = readLights(file, [&](ioReadContext& in) {
        EXPECT_EQ(in.readInt(), 11);
        in.startSubPacket();
        EXPECT_EQ(in.readReference(), nullptr) << "a packet's own object comes too late for it";
        first.readSubPacket(in);
        in.nextChunk();
        second.readSubPacket(in);
        EXPECT_EQ(in.readInt(), 12);
        in.endSubPacket();
        EXPECT_EQ(in.readInt(), 13);
        EXPECT_FALSE(in.packetFailed());
    });
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_EQ(fileOf(first), fileOf(lighting));
    EXPECT_EQ(fileOf(second), fileOf(lighting));
}

/// With rotation matrices: light and maps are computed.
class ComputedLighting : public ::testing::Test {
protected:
    ComputedLighting() { ImageBasedLighting::setRotationMatrixFilename(rotations_.path()); }
    ~ComputedLighting() override { ImageBasedLighting::setRotationMatrixFilename({}); }

    LoadedRotations const rotations_;
};

TEST_F(ComputedLighting, ComesBackWithTheSameLightAndMaps)
{
    for (Size const size : {Size{64, 32}, Size{24, 32}}) {
        auto const probe = randomImage<Float3>(size, 1);
        ImageBasedLighting lighting;
        koUtil::Error error;
        lighting.setLightProbe(probe.get(), error);
        Counted const glossy(4);
        Counted const dull(9, false);
        ko::Reference<EnvironmentMap> const map(lighting.getSpecularMap(glossy, nullptr));
        ASSERT_TRUE(map);
        ASSERT_EQ(lighting.getSpecularMap(dull, nullptr), nullptr);

        ImageBasedLighting copy;
        expectComplete(copy, fileOf(lighting));
        EXPECT_TRUE(copy.haveUsableLightProbe());
        EXPECT_TRUE(samePixels(*probe, *copy.getReflectionMap()->image()));
        EXPECT_EQ(copy.getReflectionMap()->image()->wrapVertical(), probe->wrapVertical());
        EXPECT_TRUE(sameBits(irradianceOf(copy), irradianceOf(lighting)));

        EnvironmentMap const* const copied = copy.getSpecularMap(glossy, nullptr);
        EXPECT_EQ(glossy.count(), 1) << "the map was saved";
        ASSERT_NE(copied, nullptr);
        EXPECT_EQ(copied->mapType(), map->mapType());
        EXPECT_TRUE(samePixels(*map->image(), *copied->image()));
        EXPECT_EQ(copied->image()->wrapHorizontal(), map->image()->wrapHorizontal());
        EXPECT_EQ(copied->image()->wrapVertical(), map->image()->wrapVertical());

        // That a function has no map is not saved; one that was not asked for is the same afterwards.
        EXPECT_EQ(copy.getSpecularMap(dull, nullptr), nullptr);
        EXPECT_EQ(dull.count(), 2);
        Counted const other(5);
        ko::Reference<EnvironmentMap> const expected(lighting.getSpecularMap(other, nullptr));
        EXPECT_TRUE(samePixels(*expected->image(), *copy.getSpecularMap(other, nullptr)->image()));
    }
}

TEST_F(ComputedLighting, IsForgottenByAnObjectThatReadsAnother)
{
    ImageBasedLighting first;
    ImageBasedLighting second;
    koUtil::Error error;
    first.setLightProbe(randomImage<Float3>({64, 32}, 1).get(), error);
    second.setLightProbe(randomImage<Float3>({64, 32}, 2).get(), error);
    Counted const kept(1);
    second.getSpecularMap(kept, nullptr);

    // Before its light was computed: only the probe stands in the file.
    expectComplete(second, fileOf(first));
    EXPECT_EQ(second.getReducedProbe(), nullptr);
    EXPECT_TRUE(sameBits(irradianceOf(second), irradianceOf(first)));
    EXPECT_NE(irradianceOf(first), Irradiance());
    second.getSpecularMap(kept, nullptr);
    EXPECT_EQ(kept.count(), 2);
}

TEST_F(LightingPacket, MarksNoMapUsed)
{
    ImageBasedLighting lighting;
    makeLighting(lighting, someIrradiance(), probe_.get(),
                 std::vector<LightingEntry>{{1, cross_.get()}, {2, cross_.get()}});
    lighting.markSpecularMapUsed(1);
    lighting.markSpecularMapUsed(2);
    ImageBasedLighting copy;
    expectComplete(copy, fileOf(lighting));
    copy.markSpecularMapUsed(2);
    copy.deleteUnusedSpecularMaps();
    EXPECT_EQ(keptImage(copy, 1), nullptr);
    EXPECT_NE(keptImage(copy, 2), nullptr);
}

TEST_F(LightingPacket, SharesItsImagesWithTheContextAndKeepsThemLonger)
{
    Bytes const file = fileByHand(true, probe_.get(), {{1, cross_.get()}, {2, cross_.get()}});
    ImageBasedLighting lighting;
    expectComplete(lighting, file);
    EXPECT_EQ(lighting.getReflectionMap()->image()->referenceCount(), 1u);
    EXPECT_NE(keptImage(lighting, 1), keptImage(lighting, 2)) << "one image, written twice";
    EXPECT_EQ(keptImage(lighting, 2)->referenceCount(), 1u);
}

// --- Objects without some of their images ---

TEST_F(LightingPacket, LosesAProbeThatCannotBeStored)
{
    auto const doubles = imageOf<Double3>({4, 2});
    randomise(*doubles, 1);
    for (Image* const image : {static_cast<Image*>(doubles.get()), static_cast<Image*>(nullptr)}) {
        ImageBasedLighting lighting;
        makeLighting(lighting, someIrradiance(), probe_.get(), std::vector<LightingEntry>{{1, cross_.get()}});
        lighting.getReflectionMap()->setImage(image);
        ImageBasedLighting copy;
        auto const outcome = load(copy, fileOf(lighting));
        EXPECT_EQ(outcome.result, ReadResult::Complete);
        EXPECT_EQ(outcome.found(Problem::UnresolvedReference), image != nullptr);
        EXPECT_TRUE(copy.haveUsableLightProbe());
        EXPECT_EQ(copy.getReflectionMap(), nullptr);
        EXPECT_NE(keptImage(copy, 1), nullptr);
    }
}

TEST_F(LightingPacket, MayBeUsableWithoutAProbe)
{
    auto const sphere = randomImage<Float3>({4, 4}, 1);
    auto const noMap = randomImage<Float3>({5, 4}, 1);
    auto const empty = imageOf<Float3>({0, 0});
    for (Image* const image :
         std::initializer_list<Image*>{nullptr, sphere.get(), noMap.get(), empty.get()}) {
        ImageBasedLighting lighting;
        expectComplete(lighting, fileByHand(true, image, {}));
        EXPECT_TRUE(lighting.haveUsableLightProbe());
        EXPECT_EQ(lighting.getReflectionMap(), nullptr);
        EXPECT_TRUE(sameBits(irradianceOf(lighting), someIrradiance()));
        EXPECT_EQ(keptImage(lighting, 1), nullptr);
        lighting.updateLightCoeffs(nullptr);
        EXPECT_TRUE(sameBits(irradianceOf(lighting), someIrradiance()));
    }
}

TEST_F(LightingPacket, MayHoldAProbeAndNotBeUsable)
{
    ImageBasedLighting lighting;
    expectComplete(lighting, fileByHand(false, probe_.get(), {{1, cross_.get()}}));
    EXPECT_FALSE(lighting.haveUsableLightProbe());
    EXPECT_NE(lighting.getReflectionMap(), nullptr);
    EXPECT_EQ(irradianceOf(lighting), Irradiance());
    EXPECT_EQ(keptImage(lighting, 1), nullptr);
}

TEST_F(LightingPacket, LacksMapsWhoseImageIsNone)
{
    auto const sphere = randomImage<Float3>({4, 4}, 1);
    auto const noMap = randomImage<Float3>({5, 4}, 1);
    auto const doubles = imageOf<Double3>({4, 2});
    ImageBasedLighting lighting;
    expectComplete(
        lighting,
        fileByHand(
            true, probe_.get(),
            {{1, nullptr}, {2, sphere.get()}, {3, noMap.get()}, {4, doubles.get()}, {5, cross_.get()}}));
    for (int const key : {1, 2, 3, 4})
        EXPECT_EQ(keptImage(lighting, key), nullptr) << key;
    EXPECT_NE(keptImage(lighting, 5), nullptr);
}

TEST_F(LightingPacket, HoldsTheLastOfTwoMapsOfOneKey)
{
    ImageBasedLighting lighting;
    expectComplete(lighting,
                   fileByHand(true, probe_.get(),
                              {{1, cross_.get()}, {2, cross_.get()}, {1, halves_.get()}, {2, nullptr}}));
    EXPECT_TRUE(samePixels(*halves_, *keptImage(lighting, 1)));
    EXPECT_TRUE(samePixels(*cross_, *keptImage(lighting, 2))) << "one that is none replaces nothing";
}

// --- Packets that are wrong ---

/// A packet whose reference leads to whatever packet "other" has set.
Bytes fileReferringTo(void const* other)
{
    return koPacketFile::testing::fileOf([&](ioWriteContext& out) {
        out.startPacket("other", other);
        out.endPacket();
        out.startPacket("light", nullptr);
        out.startSubPacket();
        out.writeBool(true);
        packetFile::writeIrradiance(out, someIrradiance());
        out.writeReference(other);
        out.writeInt(1);
        out.startSubPacket();
        out.writeInt(1);
        out.writeReference(other);
        out.endSubPacket();
        out.endSubPacket();
        out.endPacket();
    });
}

TEST_F(LightingPacket, TakesNoObjectOfAnotherClassForAnImage)
{
    Bytes const file = fileReferringTo(this);
    koPacketFile::MemorySource source(file);
    ioReadContext in(source);
    ioPacketRegistry registry;
    ImageBasedLighting lighting;
    koPacketFile::testing::addTypes(
        registry, {{"other", [](ioReadContext& context) { context.setObject(new LatLongMap(2, 1)); }},
                   {"light", [&](ioReadContext& context) { lighting.readSubPacket(context); }}});
    EXPECT_EQ(in.readAll(registry), ReadResult::Damaged);
    EXPECT_EQ(in.report().first().problem, Problem::WrongObjectType);
    EXPECT_EQ(in.report().damageCount(), 2u);
    EXPECT_TRUE(lighting.haveUsableLightProbe());
    EXPECT_EQ(lighting.getReflectionMap(), nullptr);
    EXPECT_EQ(keptImage(lighting, 1), nullptr);
}

TEST_F(LightingPacket, HasNoMapsWhereNothingReadsImages)
{
    ImageBasedLighting lighting;
    Bytes const file = fileByHand(true, probe_.get(), {{1, cross_.get()}});
    auto const outcome = koPacketFile::testing::readFile(
        file, {{"light", [&](ioReadContext& in) { lighting.readSubPacket(in); }}});
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_TRUE(lighting.haveUsableLightProbe());
    EXPECT_EQ(lighting.getReflectionMap(), nullptr);
    EXPECT_EQ(keptImage(lighting, 1), nullptr);
}

TEST_F(LightingPacket, EndsWhereItsPacketDoesWhateverTheNumberOfMaps)
{
    for (int const count : {2, mostKey, -1, leastKey}) {
        Bytes const file = koPacketFile::testing::fileOf([&](ioWriteContext& out) {
            packetFile::writeImage(out, cross_.get());
            out.startPacket("light", nullptr);
            out.startSubPacket();
            out.writeBool(true);
            packetFile::writeIrradiance(out, someIrradiance());
            out.writeReference(cross_.get());
            out.writeInt(count);
            out.startSubPacket();
            out.writeInt(1);
            out.writeReference(cross_.get());
            out.endSubPacket();
            out.endSubPacket();
            out.endPacket();
        });
        ImageBasedLighting lighting;
        auto const outcome = load(lighting, file);
        EXPECT_EQ(outcome.result, ReadResult::Damaged);
        EXPECT_EQ(outcome.report.first().problem, count < 0 ? Problem::InvalidValue : Problem::MissingValue);
        EXPECT_NE(lighting.getReflectionMap(), nullptr);
        EXPECT_EQ(keptImage(lighting, 1) != nullptr, count > 0);
    }
}

TEST_F(LightingPacket, HoldsWhatStandsInFrontOfAFailure)
{
    // One after the other, each value is a chunk's end, and so a value that is missing.
    using Step = std::function<void(ioWriteContext&)>;
    Step const start = [](ioWriteContext& out) { out.startSubPacket(); };
    Step const end = [](ioWriteContext& out) { out.endSubPacket(); };
    std::vector<Step> const steps{
        start,
        [](ioWriteContext& out) { out.writeBool(true); },
        [](ioWriteContext& out) { packetFile::writeIrradiance(out, someIrradiance()); },
        [this](ioWriteContext& out) { out.writeReference(probe_.get()); },
        [](ioWriteContext& out) { out.writeInt(2); },
        start,
        [](ioWriteContext& out) { out.writeInt(1); },
        [this](ioWriteContext& out) { out.writeReference(cross_.get()); },
        end,
        start,
        [](ioWriteContext& out) { out.writeInt(2); },
        [this](ioWriteContext& out) { out.writeReference(cross_.get()); },
        end,
        end,
    };
    for (std::size_t missing = 0; missing < steps.size(); ++missing) {
        int depth = 0;
        Bytes const file = koPacketFile::testing::fileOf([&](ioWriteContext& out) {
            packetFile::writeImage(out, probe_.get());
            packetFile::writeImage(out, cross_.get());
            out.startPacket("light", nullptr);
            for (std::size_t i = 0; i < missing; ++i) {
                depth += i == 0 || i == 5 || i == 9 ? 1 : 0;
                depth -= i == 8 || i == 12 || i == 13 ? 1 : 0;
                steps[i](out);
            }
            for (; depth > 0; --depth)
                out.endSubPacket();
            out.endPacket();
        });
        ASSERT_FALSE(file.empty());
        ImageBasedLighting lighting;
        makeLighting(lighting, someIrradiance(), cross_.get(), std::vector<LightingEntry>{{3, cross_.get()}});
        auto const outcome = load(lighting, file);
        EXPECT_EQ(outcome.result, missing < 12 ? ReadResult::Damaged : ReadResult::Complete) << missing;
        EXPECT_EQ(lighting.haveUsableLightProbe(), missing > 1) << missing;
        EXPECT_TRUE(sameBits(irradianceOf(lighting), missing > 2 ? someIrradiance() : Irradiance()));
        EXPECT_EQ(lighting.getReflectionMap() != nullptr, missing > 3) << missing;
        EXPECT_EQ(keptImage(lighting, 1) != nullptr, missing > 7) << missing;
        EXPECT_EQ(keptImage(lighting, 2) != nullptr, missing > 11) << missing;
        EXPECT_EQ(keptImage(lighting, 3), nullptr) << "from before";
    }
}

TEST_F(LightingPacket, IsReadWithWhatALaterVersionAddsToIt)
{
    Bytes const file = koPacketFile::testing::fileOf([&](ioWriteContext& out) {
        packetFile::writeImage(out, cross_.get());
        out.startPacket("light", nullptr);
        out.startSubPacket();
        out.writeBool(true);
        packetFile::writeIrradiance(out, someIrradiance());
        out.writeReference(cross_.get());
        out.writeInt(1);
        out.startSubPacket();
        out.writeInt(1);
        out.writeReference(cross_.get());
        out.nextChunk();
        out.writeBool(true);
        out.endSubPacket();
        out.nextChunk();
        out.writeInt(5);
        out.startSubPacket();
        out.endSubPacket();
        out.endSubPacket();
        out.writeInt(6);
        out.endPacket();
    });
    ImageBasedLighting lighting;
    auto const outcome = readLights(file, [&](ioReadContext& in) {
        lighting.readSubPacket(in);
        EXPECT_EQ(in.readInt(), 6);
    });
    EXPECT_EQ(outcome.result, ReadResult::Complete);
    EXPECT_NE(keptImage(lighting, 1), nullptr);
}

TEST_F(LightingPacket, OutsideAPacketIsMisuse)
{
    ImageBasedLighting lighting;
    makeLighting(lighting, someIrradiance(), probe_.get(), {});
    koPacketFile::MemorySink sink;
    ioWriteContext out(sink);
    lighting.writeSubPacket(out);
    EXPECT_FALSE(out.commit());
    EXPECT_EQ(out.error().problem, Problem::Misuse);

    koPacketFile::MemorySource source({});
    ioReadContext in(source);
    lighting.readSubPacket(in);
    EXPECT_EQ(in.report().first().problem, Problem::Misuse);
    EXPECT_FALSE(lighting.haveUsableLightProbe());
}

}  // namespace
}  // namespace koImage
