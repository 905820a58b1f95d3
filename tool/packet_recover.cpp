// koimage packet recover: everything undamaged of a packet file, saved into a new one.
//
// Images are saved as far as they are there, the values that are lost as 0. Packets of other types, known or
// not, are carried over value by value; their references mean the same objects as before, although these may
// have other numbers.

#include "koImage/image/typed_image.h"
#include "koImage/packet/image_packet.h"
#include "koPacketFile/crc32c.h"
#include "koPacketFile/encoding.h"
#include "koPacketFile/packet_reader.h"
#include "koPacketFile/value_reader.h"
#include "tool/files.h"
#include "tool/packet_report.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>

namespace koTool {

using Json = nlohmann::ordered_json;
using koPacketFile::MemorySource;
using koPacketFile::Packet;
using koPacketFile::PacketReader;
using koPacketFile::Policy;
using koPacketFile::Problem;
using koPacketFile::Report;
using koPacketFile::ValueReader;
using koPacketFile::ValueTag;

namespace {

using Bytes = std::vector<std::byte>;

struct Recover {
    Files files;
    std::string input;
    std::string output;
    std::uint64_t missing = 1024;  // [MiB]
    bool json = false;
};

// A file header whose checksum fails says nothing new but the salt, and that stands behind every record's
// checksum.

/// The number from which the checksum of these bytes came out so: crc32c, run backwards.
std::uint32_t startOfCrc(std::uint32_t crc, std::span<std::byte const> bytes)
{
    constexpr std::uint32_t polynomial = 0x82F63B78;
    std::uint32_t state = ~crc;
    for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) {
        for (int bit = 0; bit < 8; ++bit)
            state = (state & 0x80000000) != 0 ? (state ^ polynomial) << 1 | 1 : state << 1;
        state ^= std::to_integer<std::uint32_t>(*byte);
    }
    return ~state;
}

/// The salt that most records of a file agree on, if at least two do.
std::optional<std::uint32_t> saltOf(Bytes const& file)
{
    std::map<std::uint32_t, std::size_t> records;
    for (std::size_t at = 0; at + koPacketFile::recordHeaderBytes <= file.size(); at += 8) {
        if (koPacketFile::load<std::uint32_t>(file.data() + at) != koPacketFile::recordMarker)
            continue;
        std::span const summed(file.data() + at + 8, koPacketFile::recordHeaderBytes - 8);
        auto const masked = koPacketFile::load<std::uint32_t>(file.data() + at + 4);
        ++records[startOfCrc(koPacketFile::unmasked(masked), summed)];
    }
    auto const most = std::max_element(records.begin(), records.end(),
                                       [](auto const& a, auto const& b) { return a.second < b.second; });
    if (most == records.end() || most->second < 2)
        return {};
    return most->first;
}

/// Puts a sound file header in the place of one that is damaged. False where there is none to be found.
bool repairFileHeader(Bytes& file)
{
    auto const salt = saltOf(file);
    if (!salt)
        return false;
    koPacketFile::MemorySink sink;
    ioWriteContext empty(sink, {.salt = *salt});
    if (!empty.commit() || file.size() < koPacketFile::fileHeaderBytes)
        return false;
    std::copy_n(sink.bytes().begin(), koPacketFile::fileHeaderBytes, file.begin());
    return true;
}

using AddressOf = std::function<void const*(std::uint64_t)>;

template <class T>
bool copyArray(ValueReader& in, ioWriteContext& out, void (ioWriteContext::*write)(T const*, std::size_t))
{
    std::vector<T> elements(static_cast<std::size_t>(in.peekCount()));
    if (!in.readArray(elements.data(), elements.size()))
        return false;
    (out.*write)(elements.data(), elements.size());
    return true;
}

/// Copies the values that are left of a packet, or of the sub-packet that is open. A reference becomes one to
/// the object at addressOf(its number). False where there are values that cannot be read, or not be written.
bool copyValues(ValueReader& in, ioWriteContext& out, AddressOf const& addressOf)
{
    while (!in.atEnd()) {
        bool copied = true;
        switch (in.hasValues() ? in.peekTag() : ValueTag::NextChunk) {
        case ValueTag::NextChunk:
            in.nextChunk();
            out.nextChunk();
            break;
        case ValueTag::False:
        case ValueTag::True:
            out.writeBool(in.readBool());
            break;
        case ValueTag::NullReference:
        case ValueTag::Reference: {
            auto const reference = in.readReference();
            out.writeReference(reference.isNull ? nullptr : addressOf(reference.id));
            break;
        }
        case ValueTag::Int:
            out.writeInt(in.readInt());
            break;
        case ValueTag::Bytes:
            copied = copyArray(in, out, &ioWriteContext::writeBytes);
            break;
        case ValueTag::Shorts:
            copied = copyArray(in, out, &ioWriteContext::writeShorts);
            break;
        case ValueTag::Ints:
            copied = copyArray(in, out, &ioWriteContext::writeInts);
            break;
        case ValueTag::Floats:
            copied = copyArray(in, out, &ioWriteContext::writeFloats);
            break;
        case ValueTag::Doubles:
            copied = copyArray(in, out, &ioWriteContext::writeDoubles);
            break;
        case ValueTag::SubPacket:
            in.startSubPacket();
            out.startSubPacket();
            copied = copyValues(in, out, addressOf);
            in.endSubPacket();
            out.endSubPacket();
            break;
        default:
            copied = false;
            break;
        }
        if (!copied)
            return false;
    }
    return in.problem() == Problem::None;
}

/// Whether copyValues will succeed: a packet cannot be taken back from a file.
bool canCopy(Packet const& packet)
{
    koPacketFile::MemorySink sink;
    ioWriteContext out(sink);
    ValueReader values(packet.values);
    out.startPacket("any", nullptr);
    bool const copied = copyValues(values, out, [](std::uint64_t) { return nullptr; });
    return copied && !out.error();
}

/// Goes through the packets of a file in their order and writes those that are sound.
class Recovery {
public:
    Recovery(PacketFile const& packets, ioWriteContext& out) : out_(out)
    {
        for (PacketImage const& image : packets.images)
            images_.emplace(image.id, image);
    }

    void take(Packet const& packet, std::uint64_t offset)
    {
        if (isParcel(packet))
            return takeParcel(packet);
        if (auto const image = images_.find(packet.id); image != images_.end())
            return takeImage(image->second);

        std::string const name = "packet " + typeNameOf(packet) + " at byte " + std::to_string(offset);
        if (isLostImage(packet))
            lost_.push_back("image-" + std::to_string(packet.id) +
                            ": no room for its values; --missing makes more");
        else if (packet.mustUnderstand)
            lost_.push_back(name + ": has to be understood, and is not");
        else if (packet.typeName.empty() && typeNameOf(packet).starts_with("unknown"))
            lost_.push_back(name + ": the name of its type is lost");
        else if (!canCopy(packet))
            lost_.push_back(name + ": holds values that are not known here");
        else
            carry(packet, name);
    }

    /// What became of everything, after the last packet.
    Json report() const
    {
        Json carried = Json::array();
        for (auto const& [type, packets] : carried_)
            carried.push_back({{"type", type}, {"packets", packets}});
        Json lost = lost_;
        for (auto const& [owner, parcels] : parcelsLost_)
            lost.push_back(std::to_string(parcels) + " parcels of image-" + std::to_string(owner) +
                           ", whose first packet is lost");
        return {{"images", saved_}, {"carried", carried}, {"lost", lost}};
    }

    std::string firstLoss() const
    {
        Json const lost = report()["lost"];
        return lost.empty() ? "" : ": " + lost.front().get<std::string>();
    }

    bool savedAnything() const { return !saved_.empty() || !carried_.empty(); }

private:
    // The pixels of an image are saved with it.
    void takeParcel(Packet const& packet)
    {
        auto const owner = ValueReader(packet.values).readReference().id;
        if (!addresses_.contains(owner))
            ++parcelsLost_[owner];
    }

    void takeImage(PacketImage const& stored)
    {
        if (stored.missing > 0 && stored.missing == stored.elements) {
            lost_.push_back(stored.name() + ": all of its values are lost");
            return;
        }
        koImage::packetFile::writeImage(out_, stored.image.get());
        addresses_[stored.id] = stored.image.get();
        saved_.push_back({{"image", "image-" + std::to_string(addresses_.size())},
                          {"was", stored.name()},
                          {"type", typeName(stored.image->pixelType())},
                          {"width", stored.image->width()},
                          {"height", stored.image->height()},
                          {"values", stored.elements},
                          {"missing", stored.missing}});
    }

    /// Whether it is the first packet of an image that could not be made. One of doubles is no more than that
    /// packet.
    static bool isLostImage(Packet const& packet)
    {
        if (packet.typeId == koPacketFile::typeIdOf("ko.lb.bitmap"))
            return true;
        auto const pixelType = ValueReader(packet.values).readInt();
        return packet.typeId == koPacketFile::typeIdOf("ko.lb.image") && pixelType >= 0 &&
               pixelType < static_cast<int>(koImage::PixelTypeId::Double3);
    }

    void carry(Packet const& packet, std::string const& name)
    {
        void const* const tag = packet.id != 0 ? &tags_.emplace_back() : nullptr;
        out_.startPacket(typeNameOf(packet).c_str(), tag);
        ValueReader values(packet.values);
        copyValues(values, out_, [&](std::uint64_t id) -> void const* {
            auto const known = addresses_.find(id);
            if (known != addresses_.end())
                return known->second;
            lost_.push_back(name + ": refers to object #" + std::to_string(id) +
                            ", which is not there; now to nothing");
            return nullptr;
        });
        out_.endPacket();
        if (tag != nullptr)
            addresses_[packet.id] = tag;
        ++carried_[typeNameOf(packet)];
    }

    ioWriteContext& out_;
    std::map<std::uint64_t, PacketImage> images_;
    std::map<std::uint64_t, void const*> addresses_;  // of objects in the new file, by their old numbers
    std::deque<char> tags_;                           // of those that are no images

    Json saved_ = Json::array();
    std::map<std::string, std::uint64_t> carried_;
    std::vector<std::string> lost_;
    std::map<std::uint64_t, std::uint64_t> parcelsLost_;
};

Bytes readWhole(Recover& recover)
{
    Bytes bytes;
    auto const source = recover.files.source(recover.input);
    Bytes block(std::size_t{1} << 20);
    for (;;) {
        auto const got = source->read(block);
        if (got < 0)
            throw Failure(inputName(recover.input) + ": cannot be read: " + std::strerror(errno));
        if (got == 0)
            return bytes;
        bytes.insert(bytes.end(), block.begin(), block.begin() + got);
    }
}

void print(Json const& about, std::vector<std::string> const& damage)
{
    auto const number = [](Json const& value) { return std::to_string(value.get<std::int64_t>()); };
    std::cout << printable(about["output"]) << '\n';
    for (Json const& image : about["images"]) {
        std::string line = image["image"].get<std::string>() + ": " + image["type"].get<std::string>() + " " +
                           number(image["width"]) + " x " + number(image["height"]);
        if (image["was"] != image["image"])
            line += ", was " + image["was"].get<std::string>();
        if (image["missing"] != 0)
            line +=
                ", " + number(image["missing"]) + " of " + number(image["values"]) + " values lost, 0 now";
        std::cout << "  " << printable(line) << '\n';
    }
    for (Json const& type : about["carried"])
        std::cout << "  " << printable(type["type"]) << ": " << number(type["packets"])
                  << (type["packets"] == 1 ? " packet" : " packets") << '\n';

    if (damage.empty() && about["lost"].empty()) {
        std::cout << "nothing was lost\n";
        return;
    }
    std::cout << "damage found in " << printable(inputName(about["file"])) << '\n';
    for (std::string const& line : damage)
        std::cout << "  " << printable(line) << '\n';
    if (!about["lost"].empty())
        std::cout << "lost\n";
    for (Json const& line : about["lost"])
        std::cout << "  " << printable(line) << '\n';
}

void run(Recover& recover)
{
    std::string const file = inputName(recover.input);
    std::error_code notThere;
    if (std::filesystem::equivalent(recover.input, recover.output, notThere))
        throw Failure(recover.output + ": is the damaged file, which stays as it is; name another");

    recover.files.work("reading " + file);
    Bytes bytes = readWhole(recover);
    koPacketFile::ReadOptions const options{.policy = Policy::Recover, .missingBytes = recover.missing << 20};
    auto const readAll = [&] {
        MemorySource source(bytes);
        return readPacketFile(source, options);
    };
    PacketFile packets = readAll();
    auto const atFirst = packets.report.first();
    bool const headerDamaged =
        atFirst.problem == Problem::NotAPacketFile || atFirst.problem == Problem::DamagedFileHeader;
    bool const headerRepaired = headerDamaged && repairFileHeader(bytes);
    if (headerRepaired)
        packets = readAll();
    demandPacketFile(packets.report, file);

    Json about = {{"file", recover.input}, {"output", recover.output}};
    recover.files.work("writing " + recover.output);
    writePacketFile(recover.output, [&](ioWriteContext& out) {
        MemorySource source(bytes);
        Report again;
        PacketReader reader(source, Policy::Recover, again);
        Recovery recovery(packets, out);
        if (reader.start())
            for (Packet packet; reader.next(packet);)
                recovery.take(packet, reader.place().offset);
        if (!recovery.savedAnything())
            throw Failure(file + ": there is nothing in it that can be saved" + recovery.firstLoss());
        about.update(recovery.report());
    });
    recover.files.endLine();

    auto damage = damageLines(packets.report);
    if (headerRepaired)
        damage.insert(damage.begin(), "file header damaged: restored");
    if (recover.json) {
        about["fileHeaderRestored"] = headerRepaired;
        about.update(jsonOf(packets.report));
        std::cout << jsonText(about) << '\n';
    } else {
        print(about, damage);
    }
}

void add(CLI::App& command)
{
    auto const recover = std::make_shared<Recover>();
    command.add_option("FILE", recover->input, "The damaged packet file, - for standard input")->required();
    command.add_option("-o,--output", recover->output, "The packet file to write, another one")->required();
    command
        .add_option("--missing", recover->missing,
                    "MiB of images that a file may lack, as one does that was cut off; without it 1024")
        ->check(CLI::Range(0, 1 << 20));
    recover->files.addQuiet(command);
    command.add_flag("--json", recover->json,
                     "Tell on standard output as JSON what was saved and what was lost");
    command.callback([recover] {
        if (recover->output == "-")
            throw CLI::ValidationError("-o", "standard output takes the report already");
        run(*recover);
    });
}

}  // namespace

Verb const packetRecoverVerb = {"recover", "Everything undamaged of a file, saved into a new one",
                                "koimage packet recover damaged.packets -o saved.packets\n"
                                "koimage packet recover damaged.packets -o saved.packets --json",
                                add};

}  // namespace koTool
