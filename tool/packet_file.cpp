#include "tool/packet_file.h"

#include "koImage/packet/image_packet.h"
#include "koImageIO/rows.h"
#include "koPacketFile/encoding.h"
#include "tool/files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <unistd.h>

namespace koTool {

using koImageIO::Picture;

namespace {

/// Reads the packets that `koimage light` writes.
class SavedLightPacket : public ioPacketType {
public:
    explicit SavedLightPacket(std::vector<std::unique_ptr<SavedLight>>& lights)
        : ioPacketType(SavedLight::packetType),
          lights_(lights)
    {
    }

    void read(ioReadContext& context, ioClientReadContext*) override
    {
        auto light = std::make_unique<SavedLight>();
        light->read(context);
        if (!context.packetFailed())
            lights_.push_back(std::move(light));
    }

private:
    std::vector<std::unique_ptr<SavedLight>>& lights_;
};

class StandardOutput : public koPacketFile::ByteSink {
public:
    bool write(std::span<std::byte const> bytes) override
    {
        if (reason_ == 0)
            reason_ = koOS::writeAll(STDOUT_FILENO, bytes);
        return reason_ == 0;
    }

    bool commit() override { return reason_ == 0; }

    std::string message() const
    {
        return std::string("standard output: ") + std::strerror(reason_ != 0 ? reason_ : EIO);
    }

private:
    int reason_ = 0;
};

}  // namespace

bool namedAsPacketFile(std::string const& file)
{
    constexpr std::string_view extension = ".packets";
    auto const sameLetter = [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b; };
    return file.size() > extension.size() &&
           std::equal(extension.begin(), extension.end(), file.end() - std::ptrdiff_t{extension.size()},
                      [&](char wanted, char found) { return sameLetter(found, wanted); });
}

bool beginsAsPacketFile(std::span<std::byte const> file)
{
    auto const& magic = koPacketFile::fileMagic;
    return file.size() >= magic.size() && std::memcmp(file.data(), magic.data(), magic.size()) == 0;
}

bool PacketImage::isCalled(std::string const& called) const
{
    std::string const number = std::to_string(id);
    return called == name() || called == number || called == "#" + number;
}

void PacketFile::demandWhole(std::string const& file) const
{
    if (whole())
        return;
    auto const found = report.first();
    std::string text = file + ": " + found.message();
    if (report.damageCount() > 1)
        text += ", and more";
    throw Failure(text + "; koimage packet recover saves what is sound");
}

PacketFile readPacketFile(koPacketFile::ByteSource& source, koPacketFile::ReadOptions const& options)
{
    PacketFile packets;
    ioReadContext in(source, options);
    koImage::packetFile::ReadInterface reader(in);
    ioPacketRegistry registry;
    koImage::packetFile::registerTypes(&registry, &reader);
    registry.supportedType(new SavedLightPacket(packets.lights));
    in.readAll(registry);

    for (auto const& found : in.foundObjects())
        if (auto* const image = dynamic_cast<koImage::Image*>(found.object);
            image != nullptr && found.id != 0)
            packets.images.push_back({found.id, image, found.elements, found.missing});
    packets.report = in.report();
    return packets;
}

PacketImage const& imageCalled(PacketFile const& packets, std::string const& called, std::string const& file)
{
    if (packets.images.empty())
        throw Failure(file + ": holds no image");
    if (called.empty())
        return packets.images.front();

    auto const found = std::find_if(packets.images.begin(), packets.images.end(),
                                    [&](PacketImage const& image) { return image.isCalled(called); });
    if (found != packets.images.end())
        return *found;
    std::string names;
    constexpr std::size_t mostNames = 20;
    for (std::size_t i = 0; i < std::min(packets.images.size(), mostNames); ++i)
        names += (i == 0 ? "" : ", ") + packets.images[i].name();
    throw Failure(file + ": there is no " + called + "; there is " + names +
                  (packets.images.size() > mostNames ? " and more" : ""));
}

Picture pictureOf(PacketImage const& stored, koImageIO::ReadOptions const& options, std::string const& file)
{
    Picture picture;
    picture.image = stored.image;
    if (!picture.image->holdsItsRows())
        throw Failure(file + ": " + stored.name() + " has no pixels");

    auto const type = picture.image->pixelType();
    if (!options.pixelType || *options.pixelType == type)
        return picture;
    if (!koImageIO::PicturePixels::contains(type))
        throw Failure(file + ": pixels of " + typeName(type) + " cannot be made others");
    koImageIO::convertPicture(picture.image, *options.pixelType, options.transfer, picture.misfits);
    return picture;
}

void writePacketFile(std::string const& file, std::function<void(ioWriteContext&)> const& write)
{
    StandardOutput output;
    koPacketFile::FileSink named{koOS::Filename(file)};
    bool const isStandard = file == "-";
    ioWriteContext out(isStandard ? static_cast<koPacketFile::ByteSink&>(output) : named);
    write(out);
    if (out.commit())
        return;

    if (out.error().problem != koPacketFile::Problem::CannotWrite)
        throw Failure((isStandard ? "standard output" : file) + ": " + out.error().message());
    if (isStandard)
        throw Failure(output.message());
    // A sink that failed to write tells why when it is committed, which has no other effect then.
    if (!named.error())
        static_cast<void>(named.commit());
    throw Failure(named.error().message());
}

}  // namespace koTool
