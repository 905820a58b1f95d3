#include "tool/packet_report.h"

#include "koPacketFile/encoding.h"
#include "tool/saved_light.h"
#include "tool/verb.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <map>

namespace koTool {

using Json = nlohmann::ordered_json;
using koPacketFile::Finding;
using koPacketFile::Packet;
using koPacketFile::Problem;
using koPacketFile::Report;

namespace {

constexpr char const* parcelNames[] = {"ko.lb.image.parcel", "ko.lb.bitmap.parcel"};

Json jsonOf(Finding const& finding)
{
    Json json = {{"problem", nameOf(finding.problem)},
                 {"byte", finding.place.offset},
                 {"record", finding.place.record}};
    if (!finding.place.packetType.empty())
        json["type"] = finding.place.packetType;
    if (finding.place.objectId != 0)
        json["object"] = finding.place.objectId;
    if (finding.amount != 0)
        json["amount"] = finding.amount;
    return json;
}

/// In a file of images alone nothing refers to them: that is how it should be.
bool isWorthTelling(Finding const& finding)
{
    return finding.problem != Problem::UnclaimedObject;
}

}  // namespace

std::string typeNameOf(Packet const& packet)
{
    if (!packet.typeName.empty())
        return std::string(packet.typeName);
    // The record with the name may be lost.
    for (char const* const name :
         {"ko.lb.image", parcelNames[0], "ko.lb.bitmap", parcelNames[1], SavedLight::packetType})
        if (koPacketFile::typeIdOf(name) == packet.typeId)
            return name;
    char text[32];
    std::snprintf(text, sizeof text, "unknown %016llx", static_cast<unsigned long long>(packet.typeId));
    return text;
}

bool isParcel(Packet const& packet)
{
    return packet.typeId == koPacketFile::typeIdOf(parcelNames[0]) ||
           packet.typeId == koPacketFile::typeIdOf(parcelNames[1]);
}

void demandPacketFile(Report const& report, std::string const& file)
{
    switch (report.first().problem) {
    case Problem::CannotRead:
    case Problem::NotAPacketFile:
    case Problem::WrongByteOrder:
    case Problem::NewerVersion:
    case Problem::UnknownFeature:
        throw Failure(file + ": " + nameOf(report.first().problem));
    default:
        return;
    }
}

std::vector<std::string> damageLines(Report const& report)
{
    std::vector<std::string> lines;
    lines.reserve(report.damage().size() + 1);
    for (Finding const& finding : report.damage())
        lines.push_back(finding.message());
    if (report.damageCount() > lines.size())
        lines.push_back("and " + std::to_string(report.damageCount() - lines.size()) + " more");
    return lines;
}

std::vector<std::string> informationLines(Report const& report)
{
    std::map<std::string, std::uint64_t> counts;
    for (Finding const& finding : report.information())
        if (isWorthTelling(finding))
            ++counts[std::string(nameOf(finding.problem)) +
                     (finding.place.packetType.empty() ? "" : ", packet " + finding.place.packetType)];
    std::vector<std::string> lines;
    lines.reserve(counts.size() + 1);
    for (auto const& [text, count] : counts)
        lines.push_back(text + (count > 1 ? " (" + std::to_string(count) + " times)" : ""));
    if (!lines.empty() && report.informationCount() > report.information().size())
        lines.emplace_back("and more of the kind");
    return lines;
}

Json jsonOf(Report const& report)
{
    Json damage = Json::array();
    for (Finding const& finding : report.damage())
        damage.push_back(jsonOf(finding));
    Json information = Json::array();
    for (Finding const& finding : report.information())
        if (isWorthTelling(finding))
            information.push_back(jsonOf(finding));
    return {{"records", report.records},
            {"packets", report.packets},
            {"damageCount", report.damageCount()},
            {"damage", damage},
            {"information", information}};
}

std::string joined(std::vector<std::string> const& names)
{
    std::string text;
    for (std::string const& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

}  // namespace koTool
