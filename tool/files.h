// The picture files of one run: read and written as the options say, and the user told what became of them.
//
// "-" is standard input or output. Errors name the file; values that had to be clamped are counted and said
// on standard error, unless --quiet.
//
// Where a picture file goes, a packet file may go too: known by its first bytes when it is read, and by the
// extension .packets when it is written.
#pragma once

#include "koImageIO/picture.h"
#include "tool/packet_file.h"
#include "tool/progress_line.h"
#include "tool/verb.h"

#include <nlohmann/json_fwd.hpp>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace koTool {

class Files {
public:
    // What a verb takes of these options it adds to its own:

    /// --quiet
    void addQuiet(CLI::App& command);

    /// --type, --layer, --raw
    void addInput(CLI::App& command);

    /// The same without --type: for verbs that choose the pixels themselves
    void addSource(CLI::App& command);

    /// --layer alone: for verbs that look at levels
    void addLayer(CLI::App& command);

    /// OUT, or what it is called instead; --format, --bits, --compression, --raw, --quiet, --json
    void addOutput(CLI::App& command, std::string const& names = "OUT");

    /// The same without --json: for verbs that have more to tell
    void addTarget(CLI::App& command, std::string const& names);

    /// Reads a picture; standard input as often as it is asked for. Of a packet file, the image that --layer
    /// names, or the first.
    ///
    ///   takes   whether the work is defined for a pixel type. Where it is not for the type of the file, and
    ///           no type was asked for, the picture is read as floats, in linear light: Float where it is
    ///           grey bytes, Float4 where bytes or halves have alpha that is not full everywhere, Float3
    ///           otherwise, and where those are not taken either
    koImageIO::Picture read(std::string const& file, bool (*takes)(koImage::PixelTypeId) = anyType);

    /// One image of a packet file in the same way.
    koImageIO::Picture read(PacketImage const& stored, std::string const& file,
                            bool (*takes)(koImage::PixelTypeId) = anyType);

    /// What a packet file holds, which must be whole; none where the file is a picture.
    std::optional<PacketFile> readPackets(std::string const& file);

    /// The image that --layer names; without it, all of them.
    std::vector<PacketImage> chosen(PacketFile const& packets, std::string const& file) const;

    /// Whether --layer names a part of the file: then it is that part alone that is meant.
    bool namesPart() const { return !layer_.empty(); }

    /// The bytes of a file, for as long as they are needed.
    std::unique_ptr<koPacketFile::ByteSource> source(std::string const& file);

    /// The same as read() as pixels of that type.
    koImageIO::Picture readAs(std::string const& file, koImage::PixelTypeId type);

    /// The same with the levels of PNG, PPM and PGM as they are stored, and whatever pixels that makes.
    koImageIO::Picture readLevels(std::string const& file);

    /// Writes the picture that the verb makes: its one output.
    ///
    ///   levels  whether the values are levels of a screen: files of bytes take them as they are
    void write(koImage::Image const& image, koImageIO::Metadata const& metadata, bool levels = false);

    /// Writes one of several pictures, in the format and bits that the options name.
    void save(std::string const& file, koImage::Image const& image, koImageIO::WriteOptions options);

    /// Writes a text file, whole or not at all; "-" is standard output.
    void saveText(std::string const& file, std::string const& text);

    /// The file that the verb writes.
    std::string const& output() const { return output_; }

    /// Names the work between reading and writing, for the progress line, which is told how far it is; null
    /// where nothing is shown.
    koUtil::Progress* work(std::string step);

    /// A remark on standard error, unless --quiet.
    void remark(std::string const& text);

    /// Takes the progress line away, before something is printed.
    void endLine();

private:
    static bool anyType(koImage::PixelTypeId) { return true; }

    template <class ReadWith>
    koImageIO::Picture readAccepted(std::string const& file, bool (*takes)(koImage::PixelTypeId),
                                    ReadWith const& readWith);
    bool goesIntoPackets(std::string const& file, koImageIO::WriteOptions const& options) const;
    void addRaw(CLI::App& command);
    koImageIO::Misfits writePicture(std::string const& file, koImage::Image const& image,
                                    koImageIO::WriteOptions options);
    void tellMisfits(std::string const& file, koImageIO::Misfits const& misfits);
    std::vector<std::byte> const& streamed(std::string const& file);

    bool quiet_ = false;
    bool json_ = false;
    bool raw_ = false;
    std::optional<koImage::PixelTypeId> type_;
    std::optional<koImageIO::PictureFormat> format_;
    bool packets_ = false;  // the format is that of packet files
    std::string layer_;
    std::string compression_;
    std::string output_;
    int bits_ = 0;
    std::map<std::string, std::vector<std::byte>> streams_;  // what can be read but once
    std::unique_ptr<ProgressLine> line_;
};

/// The names that the options and the output use.
char const* typeName(koImage::PixelTypeId type);
char const* formatName(koImageIO::PictureFormat format);

/// What messages call a file that is read.
std::string inputName(std::string const& file);

/// An option that takes one of a few names, each for a value.
template <class Value, class Set>
CLI::Option* addChoice(CLI::App& command, std::string const& option,
                       std::vector<std::pair<std::string, Value>> const& choices, Set set,
                       std::string const& help)
{
    std::vector<std::string> names;
    names.reserve(choices.size());
    for (auto const& choice : choices)
        names.push_back(choice.first);
    auto const take = [choices, set](std::string const& name) {
        for (auto const& choice : choices)
            if (choice.first == name)
                set(choice.second);
    };
    return command.add_option_function<std::string>(option, take, help)->check(CLI::IsMember(names));
}

/// Takes the numbers from `least` to `most`; NaN is none.
CLI::Validator numberBetween(double least, double most);

/// The type of floats that holds all that a picture says: Float3 where its alpha is full everywhere.
koImage::PixelTypeId floatsFor(koImage::Image const& image);

/// JSON on one line, or indented; bytes that are no UTF-8 are replaced.
std::string jsonText(nlohmann::ordered_json const& json, int indent = -1);

/// Throws where two pictures that belong together differ in size.
void requireSameSize(std::string const& file, koImage::Image const& image, std::string const& otherFile,
                     koImage::Image const& other);

/// Text of a file fit for a terminal: control characters, which could steer it, become question marks.
std::string printable(std::string text);

/// Metadata without the entries of that name, in small letters or capitals.
koImageIO::Metadata without(koImageIO::Metadata metadata, std::string const& name);

}  // namespace koTool
