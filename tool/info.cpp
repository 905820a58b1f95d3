// koimage info: what a picture holds.

#include "koImage/image/channels.h"
#include "koImage/image/pixel_dispatch.h"
#include "koImage/image/typed_image.h"
#include "tool/files.h"
#include "tool/shapes.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>

namespace koTool {

using namespace koImage;

namespace {

/// Of one channel; bytes count as 0 to 255.
struct ChannelStatistics {
    double smallest = 0.0;  ///< of the finite values
    double largest = 0.0;   ///< likewise
    double sum = 0.0;       ///< likewise
    std::int64_t finite = 0;
    std::int64_t nan = 0;
    std::int64_t infinite = 0;
    std::int64_t negative = 0;  ///< below zero, minus infinity included

    void add(double value)
    {
        nan += std::isnan(value) ? 1 : 0;
        infinite += std::isinf(value) ? 1 : 0;
        negative += value < 0.0 ? 1 : 0;
        if (!std::isfinite(value))
            return;
        smallest = finite == 0 ? value : std::min(smallest, value);
        largest = finite == 0 ? value : std::max(largest, value);
        sum += value;
        ++finite;
    }
};

using Statistics = std::vector<ChannelStatistics>;

template <class Channel>
void addPixel(Statistics& statistics, std::initializer_list<Channel> channels)
{
    std::size_t i = 0;
    for (Channel const channel : channels)
        statistics[i++].add(static_cast<double>(static_cast<float>(channel)));
}

void addPixel(Statistics& statistics, unsigned char p)
{
    addPixel(statistics, {p});
}
void addPixel(Statistics& statistics, unsigned int p)
{
    statistics[0].add(p);
}
void addPixel(Statistics& statistics, Int4 const& p)
{
    std::size_t i = 0;
    for (int const channel : {p.r, p.g, p.b, p.a})
        statistics[i++].add(channel);
}
void addPixel(Statistics& statistics, float p)
{
    addPixel(statistics, {p});
}
void addPixel(Statistics& statistics, Byte4 const& p)
{
    addPixel(statistics, {p.r, p.g, p.b, p.a});
}
void addPixel(Statistics& statistics, Float3 const& p)
{
    addPixel(statistics, {p.r, p.g, p.b});
}
template <class T>
void addPixel(Statistics& statistics, FloatPixel4<T> const& p)
{
    addPixel(statistics, {p.r, p.g, p.b, p.a});
}

using FilePixels = PixelList<unsigned char, Byte4, unsigned int, Int4, Half4, float, Float3, Float4>;

Statistics statisticsOf(Image const& image)
{
    Statistics statistics(static_cast<std::size_t>(channelCount(image.pixelType())));
    dispatchPixel(image.pixelType(), FilePixels{}, [&](auto tag) {
        for (auto const& pixel : pixelsOf<typename decltype(tag)::type>(image))
            addPixel(statistics, pixel);
    });
    return statistics;
}

/// value(channel) of each channel that has a finite value, null of the others.
template <class Value>
nlohmann::ordered_json finiteValues(Statistics const& statistics, Value value)
{
    auto list = nlohmann::ordered_json::array();
    for (auto const& channel : statistics)
        list.push_back(channel.finite > 0 ? nlohmann::ordered_json(value(channel)) : nullptr);
    return list;
}

std::int64_t total(Statistics const& statistics, std::int64_t ChannelStatistics::*count)
{
    std::int64_t sum = 0;
    for (auto const& channel : statistics)
        sum += channel.*count;
    return sum;
}

/// `source` tells where the picture comes from: the file, its format, and what it is in the file.
nlohmann::ordered_json describe(nlohmann::ordered_json const& source, koImageIO::Picture const& picture)
{
    Image& image = *picture.image;
    Statistics const statistics = statisticsOf(image);
    auto const map = image.holdsItsRows() ? recogniseMap(image) : nullptr;

    nlohmann::ordered_json info = source;
    info["width"] = image.width();
    info["height"] = image.height();
    info["type"] = typeName(image.pixelType());
    info["shape"] = map ? nlohmann::ordered_json(shapeName(*map)) : nullptr;
    info["min"] = finiteValues(statistics, [](auto const& c) { return c.smallest; });
    info["max"] = finiteValues(statistics, [](auto const& c) { return c.largest; });
    info["mean"] =
        finiteValues(statistics, [](auto const& c) { return c.sum / static_cast<double>(c.finite); });
    info["nan"] = total(statistics, &ChannelStatistics::nan);
    info["infinite"] = total(statistics, &ChannelStatistics::infinite);
    info["negative"] = total(statistics, &ChannelStatistics::negative);
    info["metadata"] = nlohmann::ordered_json::object();
    for (auto const& [name, text] : picture.metadata)
        info["metadata"][name] = text;
    return info;
}

/// The name of the packet file's image, or null.
nlohmann::ordered_json nameIn(PacketFile const& packets, Image const* image)
{
    for (PacketImage const& stored : packets.images)
        if (stored.image.get() == image)
            return stored.name();
    return nullptr;
}

nlohmann::ordered_json describe(PacketFile const& packets, SavedLight const& light)
{
    auto const* const probe = light.lighting.getReflectionMap();
    auto lobes = nlohmann::ordered_json::array();
    for (SavedLobe const& lobe : light.lobes)
        lobes.push_back({{"lobe", lobe.name}, {"image", nameIn(packets, lobe.map.get())}});
    return {{"probe", light.probe},
            {"image", probe != nullptr ? nameIn(packets, probe->image()) : nullptr},
            {"usable", light.lighting.haveUsableLightProbe()},
            {"lobes", lobes}};
}

void printLine(std::string const& name, std::string const& text)
{
    std::cout << "  " << printable(name) << std::string(name.size() < 14 ? 14 - name.size() : 1, ' ')
              << printable(text) << '\n';
}

std::string channelText(nlohmann::ordered_json const& channels)
{
    std::string text;
    for (auto const& channel : channels) {
        char number[32] = "-";
        if (!channel.is_null())
            std::snprintf(number, sizeof number, "%.6g", channel.get<double>());
        text += (text.empty() ? "" : "  ") + std::string(number);
    }
    return text;
}

void printText(nlohmann::ordered_json const& info)
{
    std::cout << printable(info["file"]) << '\n';
    printLine("format", info["format"]);
    if (info.contains("image"))
        printLine("image", info["image"]);
    printLine("size",
              std::to_string(info["width"].get<int>()) + " x " + std::to_string(info["height"].get<int>()));
    printLine("type", info["type"]);
    printLine("shape", info["shape"].is_null() ? "none" : info["shape"].get<std::string>());
    for (char const* const name : {"min", "max", "mean"})
        printLine(name, channelText(info[name]));
    for (char const* const name : {"nan", "infinite", "negative"})
        printLine(name, std::to_string(info[name].get<std::int64_t>()));
    if (!info["metadata"].empty())
        std::cout << "  the file says\n";
    for (auto const& [name, text] : info["metadata"].items())
        printLine("  " + name, text);
}

void printLighting(nlohmann::ordered_json const& info)
{
    auto const imageName = [](nlohmann::ordered_json const& image) {
        return image.is_null() ? "lost" : image.get<std::string>();
    };
    auto const& lighting = info["lighting"];
    std::cout << printable(info["file"]) << '\n';
    printLine("format", info["format"]);
    printLine("lighting by", lighting["probe"]);
    printLine("probe", imageName(lighting["image"]) + (lighting["usable"] ? "" : ", not usable"));
    for (auto const& lobe : lighting["lobes"])
        printLine(lobe["lobe"], imageName(lobe["image"]));
}

struct Info {
    Files files;
    std::vector<std::string> names;
    bool json = false;
};

void tell(Info& info, nlohmann::ordered_json const& source, koImageIO::Picture const& picture)
{
    info.files.work("looking at " + source["file"].get<std::string>());
    auto const description = describe(source, picture);
    info.files.endLine();
    if (info.json)
        std::cout << jsonText(description) << '\n';
    else
        printText(description);
}

void tell(Info& info, std::string const& file, PacketFile const& packets)
{
    nlohmann::ordered_json source = {{"file", file}, {"format", "packets"}};
    for (PacketImage const& stored : info.files.chosen(packets, file)) {
        source["image"] = stored.name();
        koImageIO::Picture picture;
        picture.image = stored.image;
        tell(info, source, stored.image->holdsItsRows() ? info.files.read(stored, file) : picture);
    }
    if (info.files.namesPart())
        return;
    source.erase("image");
    info.files.endLine();
    for (auto const& light : packets.lights) {
        source["lighting"] = describe(packets, *light);
        if (info.json)
            std::cout << jsonText(source) << '\n';
        else
            printLighting(source);
    }
}

void run(Info& info)
{
    for (std::string const& name : info.names) {
        if (auto const packets = info.files.readPackets(name)) {
            tell(info, name, *packets);
            continue;
        }
        auto const picture = info.files.read(name);
        tell(info, {{"file", name}, {"format", formatName(picture.format)}}, picture);
    }
}

void add(CLI::App& command)
{
    auto const info = std::make_shared<Info>();
    command.add_option("IN", info->names, "Pictures to look at, - for standard input")->required();
    info->files.addInput(command);
    info->files.addQuiet(command);
    command.add_flag("--json", info->json, "One JSON object for each picture, each on a line");
    command.callback([info] { run(*info); });
}

}  // namespace

Verb const infoVerb = {"info", "Size, type, shape and values of pictures",
                       "koimage info sky.exr\n"
                       "koimage info --json *.hdr",
                       add};

}  // namespace koTool
