#include "tool/testing/command.h"

#include <gmock/gmock.h>

namespace koTool::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

TEST(Rotations, WritesAFileThatItsOwnCheckAccepts)
{
    Folder const folder;
    auto outcome = koimage({"rotations", "-o", folder / "r.txt"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(outcome.err, IsEmpty());
    EXPECT_THAT(folder.names(), ElementsAre("r.txt"));
    EXPECT_LT(readFile(folder / "r.txt").size(), 15'000'000u);

    outcome = koimage({"rotations", "--check", folder / "r.txt"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(folder / "r.txt" + ": complete and right\n", outcome.out);
}

TEST(Rotations, TellsTheLineOfADamagedFile)
{
    Folder const folder;
    ASSERT_EQ(0, koimage({"rotations", "-o", folder / "r.txt"}).exitCode);
    std::string file = readFile(folder / "r.txt");

    writeFile(folder / "short.txt", file.substr(0, file.size() / 2));
    auto outcome = koimage({"rotations", "--check", folder / "short.txt"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(outcome.err, StartsWith("koimage: " + folder / "short.txt"));
    EXPECT_THAT(outcome.err, HasSubstr("line "));

    file[file.find('\n', file.size() / 3) + 1] = 'x';
    writeFile(folder / "damaged.txt", file);
    outcome = koimage({"rotations", "--check", folder / "damaged.txt"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("line "));
}

TEST(Rotations, FailWithTheFileThatCannotBeReadOrWritten)
{
    Folder const folder;
    auto outcome = koimage({"rotations", "--check", folder / "none"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr(folder / "none"));
    outcome = koimage({"rotations", "-o", folder / "none/r.txt"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr(folder / "none/r.txt"));
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST(Rotations, AreEitherWrittenOrChecked)
{
    for (std::vector<std::string> const& arguments : std::vector<std::vector<std::string>>{
             {"rotations"}, {"rotations", "-o", "a", "--check", "a"}, {"rotations", "a"}})
        EXPECT_EQ(2, koimage(arguments).exitCode) << ::testing::PrintToString(arguments);
}

}  // namespace
}  // namespace koTool::testing
