#include "koPacketFile/byte_stream.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace koPacketFile {
namespace {

std::vector<std::byte> bytesOf(std::string const& text)
{
    auto const* const first = reinterpret_cast<std::byte const*>(text.data());
    return {first, first + text.size()};
}

std::string readAll(ByteSource& source)
{
    std::string text;
    std::array<std::byte, 5> buffer;
    for (std::ptrdiff_t count; (count = source.read(buffer)) > 0;)
        text.append(reinterpret_cast<char const*>(buffer.data()), static_cast<std::size_t>(count));
    return text;
}

TEST(MemorySink, HoldsNothingUntilItIsCommitted)
{
    MemorySink sink;
    EXPECT_TRUE(sink.write(bytesOf("one ")));
    EXPECT_TRUE(sink.write(bytesOf("two")));
    EXPECT_TRUE(sink.bytes().empty());
    EXPECT_TRUE(sink.commit());
    EXPECT_EQ(sink.bytes(), bytesOf("one two"));
}

TEST(MemorySource, GivesItsBytesInOrder)
{
    auto const bytes = bytesOf("twelve bytes");
    MemorySource source(bytes);
    EXPECT_EQ(source.size(), 12u);
    EXPECT_EQ(readAll(source), "twelve bytes");
}

TEST(FileSource, GivesTheBytesOfAFile)
{
    auto const name =
        std::filesystem::temp_directory_path() / ("byte_stream_test." + std::to_string(getpid()));
    std::ofstream(name) << "twelve bytes";
    FileSource source(name);
    std::filesystem::remove(name);
    EXPECT_TRUE(source.isOpen());
    EXPECT_EQ(source.size(), 12u);
    EXPECT_EQ(readAll(source), "twelve bytes");
}

TEST(FileSource, DoesNotKnowTheSizeOfAPipe)
{
    std::array<int, 2> ends;
    ASSERT_EQ(pipe(ends.data()), 0);
    ASSERT_EQ(write(ends[1], "piped", 5), 5);
    close(ends[1]);
    FileSource source("/proc/self/fd/" + std::to_string(ends[0]));
    close(ends[0]);
    EXPECT_FALSE(source.size().has_value());
    EXPECT_EQ(readAll(source), "piped");
}

TEST(FileSource, FailsToReadWhatIsNoFile)
{
    std::array<std::byte, 5> buffer;
    FileSource missing("/no such directory/file");
    EXPECT_FALSE(missing.isOpen());
    EXPECT_EQ(missing.read(buffer), -1);
    FileSource directory("/");
    EXPECT_EQ(directory.read(buffer), -1);
    EXPECT_FALSE(directory.size().has_value());
}

}  // namespace
}  // namespace koPacketFile
