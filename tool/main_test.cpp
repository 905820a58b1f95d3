// The command as a whole: help, usage, exit codes, and how it fails.

#include "tool/testing/command.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace koTool::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

std::vector<std::string> const verbs = {
    "info", "convert", "resize",    "blur",       "flip",        "remap",         "face",  "add",
    "sub",  "mult",    "div",       "tonemap",    "premultiply", "unpremultiply", "fill",  "outline",
    "pack", "probe",   "rotations", "irradiance", "light",       "dump",          "packet"};

std::vector<std::string> const packetVerbs = {"list", "verify", "extract", "recover"};

/// The lines of the examples in the help of a verb.
std::vector<std::string> examplesOf(std::string const& verb)
{
    std::istringstream help(shell("koimage " + verb + " --help").out);
    std::vector<std::string> examples;
    bool begun = false;
    for (std::string line; std::getline(help, line);) {
        if (begun && line.starts_with("  "))
            examples.push_back(line.substr(2));
        begun = begun || line == "Examples:";
    }
    return examples;
}

TEST(Command, ListsEveryVerbInItsHelp)
{
    auto const outcome = koimage({"--help"});
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_THAT(outcome.err, IsEmpty());
    for (std::string const& verb : verbs)
        EXPECT_THAT(outcome.out, HasSubstr("\n  " + verb + " "));
    for (std::string const& verb : packetVerbs)
        EXPECT_THAT(koimage({"packet", "--help"}).out, HasSubstr("\n  " + verb + " "));
}

TEST(Command, HelpsWithEveryVerbByExamplesThatItUnderstands)
{
    Folder const folder;
    std::vector<std::string> all = verbs;
    for (std::string const& verb : packetVerbs)
        all.push_back("packet " + verb);
    for (std::string const& verb : all) {
        auto const examples = examplesOf(verb);
        EXPECT_FALSE(examples.empty()) << verb;
        for (std::string const& example : examples) {
            EXPECT_THAT(example, StartsWith("koimage " + verb + " "));
            // The files are not there, so most fail; but with 1: the usage is right.
            auto const outcome = shell("cd '" + folder / "" + "' && " + example);
            EXPECT_LT(outcome.exitCode, 2) << example << "\n" << outcome.err;
        }
    }
}

TEST(Command, TellsItsVersion)
{
    auto const outcome = koimage({"--version"});
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ("koimage " KOIMAGE_VERSION "\n", outcome.out);
}

TEST(Command, AsksForAVerb)
{
    auto const outcome = koimage({});
    EXPECT_EQ(2, outcome.exitCode);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_EQ("koimage: which verb?\nTry: koimage --help\n", outcome.err);
    EXPECT_EQ("koimage: which verb?\nTry: koimage packet --help\n", koimage({"packet"}).err);
}

TEST(Command, NamesTheNearestVerb)
{
    auto const outcome = koimage({"rezise", "a.exr", "b.exr", "50%"});
    EXPECT_EQ(2, outcome.exitCode);
    EXPECT_EQ("koimage: unknown verb rezise; did you mean resize?\nTry: koimage --help\n", outcome.err);
    EXPECT_THAT(koimage({"qqqq"}).err, StartsWith("koimage: unknown verb qqqq\n"));
    EXPECT_EQ("koimage: unknown verb lst; did you mean list?\nTry: koimage packet --help\n",
              koimage({"packet", "lst", "a.packets"}).err);
}

TEST(Command, NamesTheNearestOptionOfTheVerb)
{
    auto const outcome = koimage({"resize", "a.exr", "b.exr", "50%", "--filtre", "point"});
    EXPECT_EQ(2, outcome.exitCode);
    EXPECT_EQ("koimage: unknown option --filtre; did you mean --filter?\nTry: koimage resize --help\n",
              outcome.err);
    EXPECT_THAT(koimage({"info", "a.exr", "--jsno=1"}).err, HasSubstr("--jsno; did you mean --json?"));
    EXPECT_EQ("koimage: unknown option --jsno; did you mean --json?\nTry: koimage packet list --help\n",
              koimage({"packet", "list", "a.packets", "--jsno"}).err);
    EXPECT_THAT(koimage({"--versoin"}).err, HasSubstr("--versoin; did you mean --version?"));
}

TEST(Command, RefusesWrongUsageWithExitCode2)
{
    for (std::vector<std::string> const& arguments :
         std::vector<std::vector<std::string>>{{"convert"},
                                               {"convert", "a.png"},
                                               {"convert", "a.png", "b.png", "c.png"},
                                               {"convert", "a.png", "b.png", "--type", "Float5"},
                                               {"convert", "a.png", "b.png", "--bits", "12"},
                                               {"convert", "a.png", "b.png", "--format", "gif"},
                                               {"convert", "a.png", "b.exr", "--compression", "zap"},
                                               {"convert", "a.png", "-"},
                                               {"convert", "a.png", "-", "--format", "png", "--json"},
                                               {"info"}}) {
        auto const outcome = koimage(arguments);
        EXPECT_EQ(2, outcome.exitCode) << ::testing::PrintToString(arguments);
        EXPECT_THAT(outcome.out, IsEmpty());
        EXPECT_THAT(outcome.err, StartsWith("koimage: "));
        EXPECT_THAT(outcome.err, EndsWith("\nTry: koimage " + arguments[0] + " --help\n"));
    }
}

TEST(Command, TakesAFileThatIsCalledAsAVerb)
{
    Folder const folder;
    writeFile(folder / "add", ppm(1, 1, {1, 2, 3}));
    auto const outcome = shell("cd '" + folder / "" + "' && koimage info add");
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
}

TEST(Command, TakesAFileWhoseNameBeginsWithADashAfterADoubleDash)
{
    Folder const folder;
    writeFile(folder / "-a.ppm", ppm(1, 1, {1, 2, 3}));
    auto const outcome = shell("cd '" + folder / "" + "' && koimage info -- -a.ppm");
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
}

TEST(Command, FailsWithTheFileAndTheReason)
{
    Folder const folder;
    auto outcome = koimage({"info", folder / "none.png"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "none.png" + ": cannot be read: No such file or directory\n",
              outcome.err);

    writeFile(folder / "noise.png", "This is no picture.");
    outcome = koimage({"info", folder / "noise.png"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "noise.png" + ": byte 0: not a picture of a known format\n",
              outcome.err);
}

TEST(Command, TellsErrorsEvenWhenQuiet)
{
    EXPECT_THAT(koimage({"info", "--quiet", "/none.png"}).err, HasSubstr("/none.png: "));
}

TEST(Command, DoesNotSteerTheTerminalByTheNameOfAFile)
{
    EXPECT_THAT(koimage({"info", "no\033[2Jne"}).err, HasSubstr("no?[2Jne"));
}

TEST(Command, FailsWhenStandardOutputTakesNothing)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(1, 1, {1, 2, 3}));
    for (std::string const& line : {std::string("koimage --help"), "koimage info '" + folder / "a.ppm" + "'",
                                    "koimage convert '" + folder / "a.ppm" + "' - --format png"}) {
        auto const outcome = shell(line + " > /dev/full");
        EXPECT_EQ(1, outcome.exitCode) << line;
        EXPECT_THAT(outcome.err, HasSubstr("No space left on device")) << line;
    }
}

// Ends the command while it waits for the rest of a picture, or writes one.
TEST(Command, LeavesNothingBehindWhenItIsInterrupted)
{
    Folder const folder;
    writeFile(folder / "old.png", "old");
    std::string const out = folder / "old.png";
    for (int const milliseconds : {20, 100, 200, 400, 700}) {
        std::string program = KOIMAGE_COMMAND;
        std::vector<std::string> arguments = {program, "probe", out, "--shape", "latlong", "--size", "8192"};
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        pid_t process = 0;
        ASSERT_EQ(0, posix_spawn(&process, program.c_str(), nullptr, nullptr, argv.data(), environ));
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        ::kill(process, SIGINT);
        int status = 0;
        ::waitpid(process, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "it was done within " << milliseconds << " ms";
        EXPECT_THAT(folder.names(), ElementsAre("old.png")) << milliseconds;
        EXPECT_EQ("old", readFile(out)) << milliseconds;
    }
}

}  // namespace
}  // namespace koTool::testing
