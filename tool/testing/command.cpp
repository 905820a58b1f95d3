#include "tool/testing/command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace koTool::testing {

namespace {

/// Runs a program with its standard streams in files.
Outcome runProgram(std::string const& program, std::vector<std::string> arguments, std::string const& input)
{
    Folder const folder;
    writeFile(folder / "in", input);

    arguments.insert(arguments.begin(), program);
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    std::string const in = folder / "in";
    std::string const out = folder / "out";
    std::string const err = folder / "err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, in.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT, 0600);
    pid_t process = 0;
    int const failed = posix_spawn(&process, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) {
        ADD_FAILURE() << program << " cannot be run: " << std::strerror(failed);
        return {-1, {}, {}};
    }

    int status = 0;
    ::waitpid(process, &status, 0);
    int const exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return {exitCode, readFile(out), readFile(err)};
}

/// Reads the next number of a PPM header.
int headerNumber(std::istream& file)
{
    int number = 0;
    file >> number;
    return number;
}

std::string rawPixels(std::string const& header, std::vector<int> const& values)
{
    std::string file = header;
    for (int const value : values)
        file.push_back(static_cast<char>(value));
    return file;
}

}  // namespace

Outcome koimage(std::vector<std::string> const& arguments, std::string const& input)
{
    return runProgram(KOIMAGE_COMMAND, arguments, input);
}

Outcome shell(std::string const& line)
{
    std::string const folder = std::filesystem::path(KOIMAGE_COMMAND).parent_path();
    return runProgram("/bin/sh", {"-c", "PATH='" + folder + "':$PATH; " + line}, {});
}

Folder::Folder()
{
    std::string name = (std::filesystem::temp_directory_path() / "koimage-test-XXXXXX").string();
    path_ = ::mkdtemp(name.data());
}

Folder::~Folder()
{
    std::filesystem::remove_all(path_);
}

std::vector<std::string> Folder::names() const
{
    std::vector<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(path_))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string readFile(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(std::string const& path, std::string const& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string ppm(int width, int height, std::vector<int> const& channels)
{
    return rawPixels("P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n", channels);
}

std::string pgm(int width, int height, std::vector<int> const& values)
{
    return rawPixels("P5\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n", values);
}

std::vector<int> ppmChannels(std::string const& file)
{
    std::istringstream stream(file);
    char magic[2] = {};
    stream.read(magic, 2);
    EXPECT_EQ("P6", std::string(magic, 2));
    int const width = headerNumber(stream);
    int const height = headerNumber(stream);
    EXPECT_EQ(255, headerNumber(stream));
    stream.get();

    std::vector<int> channels(3 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    std::generate(channels.begin(), channels.end(), [&stream] { return stream.get(); });
    EXPECT_TRUE(stream.good()) << "the file is shorter than its header says";
    return channels;
}

std::string pfm(int width, int height, std::vector<float> const& channels)
{
    std::string file = "PF\n" + std::to_string(width) + " " + std::to_string(height) + "\n-1.0\n";
    auto const* const bytes = reinterpret_cast<char const*>(channels.data());
    return file.append(bytes, channels.size() * sizeof(float));
}

koImageIO::Picture picture(std::string const& path)
{
    koImageIO::Picture picture;
    auto const error = koImageIO::readPicture(path, picture);
    EXPECT_FALSE(error) << error.message();
    return picture;
}

ko::Reference<koImage::TypedImage<koImage::Float3>> colours(std::string const& path)
{
    koImageIO::Picture picture;
    koImageIO::ReadOptions options;
    options.pixelType = koImage::PixelTypeId::Float3;
    auto const error = koImageIO::readPicture(path, picture, options);
    EXPECT_FALSE(error) << error.message();
    return static_cast<koImage::TypedImage<koImage::Float3>*>(picture.image.get());
}

nlohmann::json info(std::string const& path)
{
    auto const outcome = koimage({"info", "--json", path});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    return nlohmann::json::parse(outcome.out);
}

}  // namespace koTool::testing
