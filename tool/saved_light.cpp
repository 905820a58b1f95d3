#include "tool/saved_light.h"

#include <array>
#include <cmath>
#include <cstdint>

namespace koTool {

using koImage::Image;
using koPacketFile::Problem;

namespace {

// A file may say anything: texts and lists beyond what a run of the command makes are no such file's.
constexpr std::uint64_t mostLetters = 4096;
constexpr int mostEntries = 10000;
constexpr double mostMilliseconds = 1e12;

void writeText(ioWriteContext& out, std::string const& text)
{
    out.writeBytes(reinterpret_cast<std::uint8_t const*>(text.data()), text.size());
}

std::string readText(ioReadContext& in)
{
    std::uint64_t const letters = in.peekCount();
    if (letters > mostLetters) {
        in.fail(Problem::InvalidValue);
        return {};
    }
    std::string text(static_cast<std::size_t>(letters), '\0');
    in.readBytes(reinterpret_cast<std::uint8_t*>(text.data()), text.size());
    return text;
}

template <std::size_t count>
std::array<double, count> readNumbers(ioReadContext& in, double most)
{
    std::array<double, count> numbers{};
    in.readDoubles(numbers.data(), count);
    for (double const number : numbers)
        if (!(number >= 0.0 && number <= most))
            in.fail(Problem::InvalidValue);
    return numbers;
}

/// Reads a list whose entries are sub-packets.
template <class ReadEntry>
void readList(ioReadContext& in, ReadEntry const& readEntry)
{
    int const count = in.readInt();
    if (count < 0 || count > mostEntries)
        in.fail(Problem::InvalidValue);
    for (int i = 0; i < count && !in.packetFailed(); ++i) {
        in.startSubPacket();
        readEntry();
        in.endSubPacket();
    }
}

}  // namespace

void SavedLight::write(ioWriteContext& out) const
{
    out.startPacket(packetType, nullptr);
    lighting.writeSubPacket(out);
    writeText(out, probe);

    out.writeInt(static_cast<int>(lobes.size()));
    for (SavedLobe const& lobe : lobes) {
        out.startSubPacket();
        writeText(out, lobe.name);
        out.writeInt(lobe.key);
        out.writeReference(lobe.map.get());
        out.writeInt(lobe.analysis.lightOrder.value_or(-1));
        std::array const numbers{lobe.analysis.energy, lobe.analysis.captured, lobe.milliseconds};
        out.writeDoubles(numbers.data(), numbers.size());
        out.endSubPacket();
    }

    out.writeInt(static_cast<int>(stages.size()));
    for (Stopwatch::Stage const& stage : stages) {
        out.startSubPacket();
        writeText(out, stage.name);
        out.writeDoubles(&stage.milliseconds, 1);
        out.endSubPacket();
    }
    out.endPacket();
}

void SavedLight::read(ioReadContext& in)
{
    lighting.readSubPacket(in);
    probe = readText(in);

    readList(in, [&] {
        SavedLobe lobe;
        lobe.name = readText(in);
        lobe.key = in.readInt();
        lobe.map = in.readReference<Image>();
        if (int const order = in.readInt(); order >= 0)
            lobe.analysis.lightOrder = order;
        auto const [energy, captured, milliseconds] = readNumbers<3>(in, mostMilliseconds);
        lobe.analysis.energy = energy;
        lobe.analysis.captured = captured;
        lobe.milliseconds = milliseconds;
        if (!in.packetFailed())
            lobes.push_back(std::move(lobe));
    });
    readList(in, [&] {
        std::string name = readText(in);
        auto const [milliseconds] = readNumbers<1>(in, mostMilliseconds);
        if (!in.packetFailed())
            stages.push_back({std::move(name), milliseconds});
    });
}

}  // namespace koTool
