// What a terminal shows of a long run. The command waits for its standard input as long as the test likes.

#include "tool/testing/command.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace koTool::testing {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

/// Runs koimage with standard error on a terminal, gives it a picture after a while, and returns what the
/// terminal was sent.
std::string shownOnATerminal(std::vector<std::string> arguments, std::chrono::milliseconds wait,
                             std::string const& picture = ppm(1, 1, {1, 2, 3}), int exitCode = 0)
{
    int const terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_GE(terminal, 0);
    EXPECT_EQ(0, ::grantpt(terminal));
    EXPECT_EQ(0, ::unlockpt(terminal));
    int input[2] = {};
    EXPECT_EQ(0, ::pipe2(input, O_CLOEXEC));

    arguments.insert(arguments.begin(), KOIMAGE_COMMAND);
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, ::ptsname(terminal), O_WRONLY | O_NOCTTY, 0);
    // Held open here, so that what it was sent can still be read when the command has ended.
    int const held = ::open(::ptsname(terminal), O_WRONLY | O_NOCTTY | O_CLOEXEC);
    pid_t process = 0;
    EXPECT_EQ(0, posix_spawn(&process, argv[0], &actions, nullptr, argv.data(), environ));
    posix_spawn_file_actions_destroy(&actions);

    std::this_thread::sleep_for(wait);
    EXPECT_EQ(static_cast<ssize_t>(picture.size()), ::write(input[1], picture.data(), picture.size()));
    ::close(input[1]);
    int status = 0;
    ::waitpid(process, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(exitCode, WEXITSTATUS(status));

    ::fcntl(terminal, F_SETFL, O_NONBLOCK);
    std::string shown;
    char block[4096];
    for (ssize_t got; (got = ::read(terminal, block, sizeof block)) > 0;)
        shown.append(block, static_cast<std::size_t>(got));
    ::close(held);
    ::close(input[0]);
    ::close(terminal);
    return shown;
}

TEST(ProgressLine, ShowsTheStepAfterHalfASecondAndIsGoneAtTheEnd)
{
    auto const shown = shownOnATerminal({"info", "-"}, 900ms);
    EXPECT_THAT(shown, HasSubstr("\r\033[Kkoimage: reading standard input"));
    EXPECT_THAT(shown, EndsWith("\r\033[K"));
}

TEST(ProgressLine, ShowsNothingOfAShortRun)
{
    // A machine under load may make any run a long one: once in a few is enough.
    std::string shown;
    for (int attempt = 0; attempt < 5; ++attempt)
        if ((shown = shownOnATerminal({"info", "-"}, 0ms)).empty())
            break;
    EXPECT_THAT(shown, IsEmpty());
}

TEST(ProgressLine, ShowsNothingWhenQuiet)
{
    EXPECT_THAT(shownOnATerminal({"info", "-", "--quiet"}, 900ms), IsEmpty());
}

TEST(ProgressLine, IsTakenAwayBeforeAMessage)
{
    auto const shown = shownOnATerminal({"info", "-"}, 900ms, "This is no picture.", 1);
    EXPECT_THAT(shown,
                EndsWith("\r\033[Kkoimage: standard input: byte 0: not a picture of a known format\r\n"));
}

TEST(ProgressLine, IsNotWrittenWhereStandardErrorIsNoTerminal)
{
    auto const outcome = shell("(sleep 0.9; printf 'P5 1 1 255 x') | koimage info -");
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_THAT(outcome.err, IsEmpty());
}

}  // namespace
}  // namespace koTool::testing
