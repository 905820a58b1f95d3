// koimage packet: what packet files hold, whether they are whole, and their pictures.

#include "koImage/image/typed_image.h"
#include "koPacketFile/encoding.h"
#include "koPacketFile/packet_reader.h"
#include "koPacketFile/value_reader.h"
#include "tool/files.h"
#include "tool/output_folder.h"
#include "tool/packet_report.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <set>

namespace koTool {

using Json = nlohmann::ordered_json;
using koImage::PixelTypeId;
using koPacketFile::Packet;
using koPacketFile::PacketReader;
using koPacketFile::Policy;
using koPacketFile::Problem;
using koPacketFile::Report;
using koPacketFile::ValueReader;
using koPacketFile::ValueTag;

namespace {

// list

/// Packets that follow each other and differ in their values alone, as the parcels of an image do.
struct Row {
    std::uint64_t offset = 0;
    std::string type;
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;  ///< of values
    std::uint64_t id = 0;
    std::vector<std::uint64_t> references = {};
    std::string about = {};

    bool continues(Row const& before) const
    {
        return type == before.type && references == before.references && id == 0 && before.id == 0;
    }
};

/// The numbers of the objects that these values refer to.
void addReferences(ValueReader& values, std::vector<std::uint64_t>& references)
{
    while (!values.atEnd()) {
        switch (values.hasValues() ? values.peekTag() : ValueTag::NextChunk) {
        case ValueTag::NextChunk:
            values.nextChunk();
            break;
        case ValueTag::Reference:
            references.push_back(values.readReference().id);
            break;
        case ValueTag::SubPacket:
            values.startSubPacket();
            addReferences(values, references);
            values.endSubPacket();
            break;
        default:
            values.skip();
            break;
        }
    }
}

/// Leaves the first of equal numbers.
void withoutRepetitions(std::vector<std::uint64_t>& numbers)
{
    std::set<std::uint64_t> seen;
    std::erase_if(numbers, [&](std::uint64_t number) { return !seen.insert(number).second; });
}

/// What an image's first packet says.
std::string aboutImage(ValueReader values)
{
    auto const type = PixelTypeId{values.readInt()};
    int const width = values.readInt();
    int const height = values.readInt();
    if (values.problem() != Problem::None)
        return {};
    return std::string(typeName(type)) + " " + std::to_string(width) + " x " + std::to_string(height);
}

Row rowOf(Packet const& packet, std::uint64_t offset)
{
    Row row{.offset = offset,
            .type = typeNameOf(packet),
            .packets = 1,
            .bytes = packet.values.size(),
            .id = packet.id};
    ValueReader values(packet.values);
    addReferences(values, row.references);
    withoutRepetitions(row.references);
    if (packet.typeId == koPacketFile::typeIdOf("ko.lb.image"))
        row.about = aboutImage(ValueReader(packet.values));
    return row;
}

std::vector<Row> rowsOf(koPacketFile::ByteSource& source, Report& report)
{
    std::vector<Row> rows;
    PacketReader reader(source, Policy::Recover, report);
    if (!reader.start())
        return rows;
    for (Packet packet; reader.next(packet);) {
        Row row = rowOf(packet, reader.place().offset);
        if (!rows.empty() && row.continues(rows.back())) {
            ++rows.back().packets;
            rows.back().bytes += row.bytes;
        } else {
            rows.push_back(std::move(row));
        }
    }
    return rows;
}

std::string referenceText(std::vector<std::uint64_t> const& references)
{
    constexpr std::size_t most = 8;
    std::string text;
    for (std::size_t i = 0; i < std::min(references.size(), most); ++i)
        text += (i == 0 ? "#" : " #") + std::to_string(references[i]);
    return text + (references.size() > most ? " ..." : "");
}

void printTable(std::string const& file, std::vector<Row> const& rows)
{
    std::vector<std::array<std::string, 6>> cells = {{"byte", "packets", "bytes", "object", "type", "about"}};
    for (Row const& row : rows)
        cells.push_back({std::to_string(row.offset), std::to_string(row.packets), std::to_string(row.bytes),
                         row.id != 0 ? "#" + std::to_string(row.id) : "", row.type,
                         row.about.empty() ? referenceText(row.references) : row.about});

    std::array<std::size_t, 6> widths{};
    for (auto const& line : cells)
        for (std::size_t i = 0; i < line.size(); ++i)
            widths[i] = std::max(widths[i], line[i].size());

    std::cout << printable(file) << '\n';
    for (auto const& line : cells) {
        std::string text;
        for (std::size_t i = 0; i < line.size(); ++i) {
            std::string const gap(widths[i] - line[i].size(), ' ');
            text += "  " + (i < 4 ? gap + line[i] : line[i] + gap);  // numbers end in one column
        }
        text.erase(text.find_last_not_of(' ') + 1);
        std::cout << printable(text) << '\n';
    }
}

Json asJson(std::vector<Row> const& rows)
{
    Json list = Json::array();
    for (Row const& row : rows) {
        list.push_back({{"byte", row.offset},
                        {"type", row.type},
                        {"packets", row.packets},
                        {"bytes", row.bytes},
                        {"object", row.id != 0 ? Json(row.id) : Json()},
                        {"references", row.references}});
        if (!row.about.empty())
            list.back()["image"] = row.about;
    }
    return list;
}

/// What list and verify are asked for.
struct Look {
    Files files;
    std::vector<std::string> names;
    bool json = false;

    void add(CLI::App& command)
    {
        command.add_option("FILE", names, "Packet files, - for standard input")->required();
        files.addQuiet(command);
        command.add_flag("--json", json, "One JSON object for each file, each on a line");
    }
};

/// Ends the verb where files are damaged: what there is to tell of them has been printed.
void failForDamaged(std::vector<std::string> const& damaged, char const* advice)
{
    if (!damaged.empty())
        throw Failure(joined(damaged) + ": damaged; " + advice);
}

void list(Look& look)
{
    std::vector<std::string> damaged;
    for (std::string const& name : look.names) {
        look.files.work("reading " + inputName(name));
        Report report;
        auto const rows = rowsOf(*look.files.source(name), report);
        look.files.endLine();
        demandPacketFile(report, inputName(name));
        if (look.json)
            std::cout << jsonText({{"file", name},
                                   {"whole", report.damageCount() == 0},
                                   {"packets", asJson(rows)}})
                      << '\n';
        else
            printTable(inputName(name), rows);
        if (report.damageCount() > 0)
            damaged.push_back(inputName(name));
    }
    failForDamaged(damaged, "koimage packet verify tells where");
}

// verify

void verify(Look& look)
{
    std::vector<std::string> damaged;
    for (std::string const& name : look.names) {
        look.files.work("reading " + inputName(name));
        auto const packets = readPacketFile(*look.files.source(name), {.policy = Policy::Recover});
        look.files.endLine();
        Report const& report = packets.report;
        bool const whole = packets.whole();
        if (look.json) {
            Json about = {{"file", name}, {"whole", whole}};
            about.update(jsonOf(report));
            std::cout << jsonText(about) << '\n';
        } else {
            std::cout << printable(inputName(name)) << (whole ? ": whole, " : ": damaged, ") << report.packets
                      << " packets in " << report.records << " records\n";
            for (std::string const& line : damageLines(report))
                std::cout << "  " << printable(line) << '\n';
            for (std::string const& line : informationLines(report))
                std::cout << "  " << printable(line) << '\n';
        }
        if (!whole)
            damaged.push_back(inputName(name));
    }
    failForDamaged(damaged, "koimage packet recover saves what is sound");
}

// extract

struct Extract {
    Files files;
    std::string input;
    std::vector<std::string> names;
    std::string folder;
    bool json = false;
};

/// The extension of a picture file that holds these pixels as they are, or null.
char const* extensionFor(PixelTypeId type)
{
    switch (type) {
    case PixelTypeId::Byte:
    case PixelTypeId::Byte4:
        return ".png";
    case PixelTypeId::Half4:
    case PixelTypeId::Float:
    case PixelTypeId::Float3:
    case PixelTypeId::Float4:
        return ".exr";
    default:
        return nullptr;
    }
}

/// Why an image cannot be taken out; empty where it can.
std::string hindrance(PacketImage const& stored)
{
    if (stored.missing > 0)
        return std::to_string(stored.missing) + " of " + std::to_string(stored.elements) +
               " values are missing; koimage packet recover saves those that are there";
    if (!stored.image->holdsItsRows())
        return "it has no pixels";
    if (extensionFor(stored.image->pixelType()) == nullptr)
        return std::string("no picture file holds pixels of ") + typeName(stored.image->pixelType());
    return {};
}

void extract(Extract& extract)
{
    std::string const file = inputName(extract.input);
    extract.files.work("reading " + file);
    auto packets = readPacketFile(*extract.files.source(extract.input), {.policy = Policy::Recover});
    demandPacketFile(packets.report, file);

    // All names are looked up before anything is written.
    std::vector<PacketImage> wanted;
    for (std::string const& name : extract.names)
        wanted.push_back(imageCalled(packets, name, file));
    if (extract.names.empty())
        wanted = packets.images;
    OutputFolder folder(extract.folder);

    Json written = Json::array();
    std::vector<std::string> failed;
    for (PacketImage const& stored : wanted) {
        if (std::string const reason = hindrance(stored); !reason.empty()) {
            std::string remark = file;
            remark.append(": ").append(stored.name()).append(": ").append(reason);
            extract.files.remark(remark);
            if (stored.missing > 0 || !extract.names.empty())
                failed.push_back(stored.name());
            continue;
        }
        auto const type = stored.image->pixelType();
        std::string const path = folder.path(stored.name() + extensionFor(type));
        extract.files.save(path, *stored.image, {});
        written.push_back({{"file", path},
                           {"image", stored.name()},
                           {"width", stored.image->width()},
                           {"height", stored.image->height()},
                           {"type", typeName(type)}});
        if (!extract.json)
            std::cout << printable(path) << '\n';
    }
    extract.files.endLine();
    if (extract.json)
        std::cout << jsonText({{"file", extract.input}, {"files", written}}) << '\n';

    if (!failed.empty())
        throw Failure(file + ": not taken out: " + joined(failed));
    packets.demandWhole(file);
}

void addList(CLI::App& command)
{
    auto const look = std::make_shared<Look>();
    look->add(command);
    command.callback([look] { list(*look); });
}

void addVerify(CLI::App& command)
{
    auto const look = std::make_shared<Look>();
    look->add(command);
    command.callback([look] { verify(*look); });
}

void addExtract(CLI::App& command)
{
    auto const task = std::make_shared<Extract>();
    command.add_option("FILE", task->input, "The packet file, - for standard input")->required();
    command.add_option("NAME", task->names,
                       "Images to take out, by the numbers of their objects: 3 or image-3; without it all");
    command.add_option("-o,--output", task->folder, "The folder to write to, made where it is missing")
        ->required();
    task->files.addQuiet(command);
    command.add_flag("--json", task->json, "Tell on standard output as JSON what was written");
    command.callback([task] { extract(*task); });
}

void add(CLI::App& command)
{
    static constexpr Verb const* verbs[] = {&packetListVerb, &packetVerifyVerb, &packetExtractVerb,
                                            &packetRecoverVerb};
    addVerbs(command, verbs);
}

}  // namespace

Verb const packetVerb = {"packet", "What packet files hold, whether they are whole, and what can be saved",
                         "koimage packet list scene.packets\n"
                         "koimage packet verify scene.packets\n"
                         "koimage packet extract scene.packets -o pictures\n"
                         "koimage packet recover damaged.packets -o saved.packets",
                         add};

Verb const packetListVerb = {"list", "The packets of a file: types, sizes, objects, references",
                             "koimage packet list scene.packets\n"
                             "koimage packet list --json scene.packets",
                             addList};

Verb const packetVerifyVerb = {"verify", "Whether files are whole; if not, what is damaged, and where",
                               "koimage packet verify scene.packets\n"
                               "koimage packet verify *.packets --json",
                               addVerify};

Verb const packetExtractVerb = {"extract",
                                "The images of a file as pictures: bytes as PNG, floats as OpenEXR",
                                "koimage packet extract scene.packets -o pictures\n"
                                "koimage packet extract scene.packets image-1 image-4 -o pictures",
                                addExtract};

}  // namespace koTool
