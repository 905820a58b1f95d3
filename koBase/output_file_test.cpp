#include "koBase/output_file.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <string>
#include <vector>

// The program's functions stand before those of the C library: a test lets them fail.
namespace {

std::map<std::string, int> failures;  // of a function: the error number that it gives

template <class F>
F* original(char const* name)
{
    return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}

bool failing(char const* name)
{
    auto const it = failures.find(name);
    if (it == failures.end())
        return false;
    errno = it->second;
    return true;
}

}  // namespace

extern "C" int openat(int folder, char const* path, int flags, ...)
{
    if ((flags & O_WRONLY) != 0 && failing("openat"))
        return -1;
    if ((flags & O_TMPFILE) == O_TMPFILE && failing("O_TMPFILE"))
        return -1;
    va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return original<int(int, char const*, int, ...)>("openat")(folder, path, flags, mode);
}

extern "C" int fsync(int file)
{
    return failing("fsync") ? -1 : original<int(int)>("fsync")(file);
}

// Closed it is, whatever the file system has to say.
extern "C" int close(int file)
{
    int const result = original<int(int)>("close")(file);
    return failing("close") ? -1 : result;
}

extern "C" int linkat(int from, char const* path, int to, char const* name, int flags)
{
    return failing("linkat") ? -1
                             : original<int(int, char const*, int, char const*, int)>("linkat")(
                                   from, path, to, name, flags);
}

extern "C" int renameat(int from, char const* path, int to, char const* name) noexcept
{
    return failing("renameat")
               ? -1
               : original<int(int, char const*, int, char const*)>("renameat")(from, path, to, name);
}

namespace koOS {

namespace {

namespace fs = std::filesystem;

std::span<std::byte const> bytesOf(std::string const& text)
{
    return std::as_bytes(std::span(text));
}

// Both ways of gathering the bytes: in a file without a name, and, where the system has none, under another.
enum class Gathering { NoName, AnotherName };

void PrintTo(Gathering gathering, std::ostream* out)
{
    *out << (gathering == Gathering::NoName ? "NoName" : "AnotherName");
}

class OutputFileOf : public ::testing::TestWithParam<Gathering> {
protected:
    OutputFileOf()
    {
        std::string name = (fs::temp_directory_path() / "ko-XXXXXX").string();
        folder_ = mkdtemp(name.data());
        if (GetParam() == Gathering::AnotherName)
            failures["O_TMPFILE"] = EOPNOTSUPP;
    }
    ~OutputFileOf() override
    {
        failures.clear();
        fs::remove_all(folder_);
    }

    std::string path(std::string const& name) const { return folder_ + "/" + name; }

    std::vector<std::string> names() const
    {
        std::vector<std::string> names;
        for (auto const& entry : fs::directory_iterator(folder_))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string content(std::string const& name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    void put(std::string const& name, std::string const& text) const { std::ofstream(path(name)) << text; }

    koUtil::Error write(std::string const& name, std::string const& text) const
    {
        OutputFile file(path(name));
        file.write(bytesOf(text));
        return file.commit();
    }

    // Fails with this reason, and leaves the folder as it is.
    void expectFailure(std::string const& name, int reason) const
    {
        auto const before = names();
        koUtil::Error const error = write(name, "new");
        EXPECT_TRUE(error);
        EXPECT_EQ(error.message(), path(name) + ": cannot be written: " + std::strerror(reason));
        EXPECT_EQ(names(), before);
    }

    std::string folder_;
};

using Names = std::vector<std::string>;

INSTANTIATE_TEST_SUITE_P(Gathering, OutputFileOf,
                         ::testing::Values(Gathering::NoName, Gathering::AnotherName));

}  // namespace

TEST_P(OutputFileOf, AppearsWithItsBytesWhenCommitted)
{
    OutputFile file(path("a"));
    EXPECT_TRUE(file.write(bytesOf("one ")));
    EXPECT_TRUE(file.write(bytesOf("two")));
    EXPECT_FALSE(fs::exists(path("a")));

    EXPECT_FALSE(file.commit());
    EXPECT_EQ(content("a"), "one two");
    EXPECT_EQ(names(), Names{"a"});
}

TEST_P(OutputFileOf, LeavesNothingWithoutCommit)
{
    put("old", "old");
    for (std::string const name : {"old", "new"}) {
        OutputFile file(path(name));
        file.write(bytesOf("half of it"));
    }
    EXPECT_EQ(names(), Names{"old"});
    EXPECT_EQ(content("old"), "old");
}

TEST_P(OutputFileOf, KeepsTheOldFileUntilCommit)
{
    put("a", "old");
    OutputFile file(path("a"));
    file.write(bytesOf("new"));
    EXPECT_EQ(content("a"), "old");
    EXPECT_FALSE(file.commit());
    EXPECT_EQ(content("a"), "new");
    EXPECT_EQ(names(), Names{"a"});
}

TEST_P(OutputFileOf, MayBeEmpty)
{
    EXPECT_FALSE(write("a", ""));
    EXPECT_EQ(content("a"), "");
    EXPECT_EQ(names(), Names{"a"});
}

TEST_P(OutputFileOf, TakesPiecesOfAnySizeInOrder)
{
    // Around the buffer's 2^18 bytes, larger than it, and empty.
    std::string expected;
    OutputFile file(path("a"));
    char letter = 'a';
    for (std::size_t const size : {std::size_t{1}, std::size_t{262143}, std::size_t{1}, std::size_t{262144},
                                   std::size_t{0}, std::size_t{1000000}, std::size_t{7}}) {
        std::string const piece(size, letter++);
        EXPECT_TRUE(file.write(bytesOf(piece)));
        expected += piece;
    }
    EXPECT_FALSE(file.commit());
    EXPECT_EQ(content("a"), expected);
}

TEST_P(OutputFileOf, KeepsTheModeOfTheFileThatWasThere)
{
    put("a", "old");
    for (mode_t const mode : {mode_t{0640}, mode_t{0755}, mode_t{0400}}) {
        chmod(path("a").c_str(), mode);
        EXPECT_FALSE(write("a", "new"));
        struct stat status = {};
        stat(path("a").c_str(), &status);
        EXPECT_EQ(status.st_mode & 07777u, mode);
    }
}

TEST_P(OutputFileOf, FollowsTheUmaskWhereThereWasNone)
{
    mode_t const before = umask(027);
    EXPECT_FALSE(write("a", "new"));
    umask(before);
    struct stat status = {};
    stat(path("a").c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777u, 0640u);
}

TEST_P(OutputFileOf, ReplacesWhatALinkLeadsTo)
{
    fs::create_directory(path("sub"));
    put("sub/target", "old");
    fs::create_symlink("sub/target", path("relative"));
    fs::create_symlink(path("relative"), path("absolute"));
    EXPECT_FALSE(write("absolute", "new"));
    EXPECT_EQ(content("sub/target"), "new");
    EXPECT_TRUE(fs::is_symlink(path("absolute")));
    EXPECT_TRUE(fs::is_symlink(path("relative")));
}

TEST_P(OutputFileOf, MakesWhatADanglingLinkLeadsTo)
{
    fs::create_symlink("target", path("link"));
    EXPECT_FALSE(write("link", "new"));
    EXPECT_EQ(content("target"), "new");
    EXPECT_TRUE(fs::is_symlink(path("link")));
}

TEST_P(OutputFileOf, TakesNamesInTheCurrentFolder)
{
    fs::path const before = fs::current_path();
    fs::current_path(folder_);
    OutputFile file("here");
    file.write(bytesOf("new"));
    EXPECT_FALSE(file.commit());
    fs::current_path(before);
    EXPECT_EQ(content("here"), "new");
}

TEST_P(OutputFileOf, ReportsNamesThatNoFileCanHave)
{
    fs::create_directory(path("folder"));
    mkfifo(path("pipe").c_str(), 0600);
    put("file", "");
    fs::create_symlink("loop", path("loop"));
    expectFailure("folder", EISDIR);
    expectFailure("pipe", EOPNOTSUPP);
    expectFailure("none/file", ENOENT);
    expectFailure("none/", ENOENT);
    expectFailure("file/below", ENOTDIR);
    expectFailure("loop", ELOOP);
    expectFailure(std::string(300, 'x'), ENAMETOOLONG);

    OutputFile nameless("");
    EXPECT_FALSE(nameless.write(bytesOf(std::string(1 << 20, 'x'))));
    EXPECT_EQ(nameless.commit().message(), std::string(": cannot be written: ") + std::strerror(ENOENT));
}

TEST_P(OutputFileOf, ReportsAFolderThatTakesNoFiles)
{
    put("old", "old");
    for (int const reason : {EROFS, EACCES, EPERM}) {
        failures["openat"] = reason;
        expectFailure("old", reason);
        expectFailure("new", reason);
    }
    EXPECT_EQ(content("old"), "old");
}

TEST_P(OutputFileOf, ReportsAFullDisk)
{
    put("a", "old");
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    auto* const signalBefore = std::signal(SIGXFSZ, SIG_IGN);
    rlimit const small = {1000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);

    OutputFile atOnce(path("a"));
    bool const took = atOnce.write(bytesOf(std::string(1 << 20, 'x')));
    koUtil::Error const errorAtOnce = atOnce.commit();
    OutputFile buffered(path("a"));
    bool const tookBuffered = buffered.write(bytesOf(std::string(2000, 'x')));
    koUtil::Error const errorBuffered = buffered.commit();

    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, signalBefore);
    std::string const message = path("a") + ": cannot be written: " + std::strerror(EFBIG);
    EXPECT_FALSE(took);
    EXPECT_EQ(errorAtOnce.message(), message);
    EXPECT_TRUE(tookBuffered);
    EXPECT_EQ(errorBuffered.message(), message);
    EXPECT_EQ(names(), Names{"a"});
    EXPECT_EQ(content("a"), "old");
}

TEST_P(OutputFileOf, ReportsWhatFailsInTheLastSteps)
{
    put("old", "old");
    for (std::string const call : {"fsync", "close"}) {
        failures[call] = EIO;
        expectFailure("old", EIO);
        expectFailure("new", EIO);
        EXPECT_EQ(content("old"), "old") << call;
        failures.erase(call);
    }

    if (GetParam() == Gathering::NoName) {
        failures["linkat"] = ENOSPC;
        expectFailure("old", ENOSPC);
        expectFailure("new", ENOSPC);
        failures.erase("linkat");
    }

    failures["renameat"] = EXDEV;
    expectFailure("old", EXDEV);
    EXPECT_EQ(content("old"), "old");
}

TEST_P(OutputFileOf, LeavesNoOpenFiles)
{
    auto const openFiles = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    put("a", "");
    auto const before = openFiles();
    EXPECT_FALSE(write("a", "new"));
    expectFailure("none/file", ENOENT);
    {
        OutputFile const dropped(path("b"));
    }
    EXPECT_EQ(openFiles(), before);
}

TEST_P(OutputFileOf, OfAKilledProgramLeavesNothingUnderItsName)
{
    put("old", "old");
    pid_t const child = fork();
    if (child == 0) {
        OutputFile file(path("old"));
        file.write(bytesOf(std::string(1 << 20, 'x')));
        kill(getpid(), SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(content("old"), "old");
    // Under another name it stays; without one it goes.
    EXPECT_EQ(names().size(), GetParam() == Gathering::AnotherName ? 2u : 1u);
}

TEST(WriteAll, WritesEveryByteOrTellsTheReason)
{
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    std::array<std::byte, 3> const sent = {std::byte{1}, std::byte{0}, std::byte{255}};
    EXPECT_EQ(writeAll(ends[1], {}), 0);
    EXPECT_EQ(writeAll(ends[1], sent), 0);
    std::array<std::byte, 4> received{};
    EXPECT_EQ(::read(ends[0], received.data(), received.size()), 3);
    EXPECT_TRUE(std::equal(sent.begin(), sent.end(), received.begin()));
    EXPECT_EQ(writeAll(ends[0], sent), EBADF);
    ::close(ends[0]);
    ::close(ends[1]);
}

}  // namespace koOS
