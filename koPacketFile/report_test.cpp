#include "koPacketFile/report.h"

#include <gtest/gtest.h>

#include <set>

namespace koPacketFile {
namespace {

TEST(Finding, TellsWhatAndWhere)
{
    Finding const finding{Problem::LostRecords, {4711, 12, "ko.thing", 3}, 2};
    EXPECT_EQ(finding.message(), "records missing (2): byte 4711, record 12, packet ko.thing, object 3");
    EXPECT_EQ(finding.error().code(), static_cast<int>(Problem::LostRecords));
    EXPECT_EQ(finding.error().message(), finding.message());
}

TEST(Finding, OfNothingIsNoError)
{
    EXPECT_FALSE(Finding{});
    EXPECT_FALSE(Finding{}.error());
}

TEST(NameOf, DiffersForEveryProblem)
{
    std::set<std::string> names;
    for (int i = 0; i <= static_cast<int>(Problem::UnclaimedObject); ++i)
        names.insert(nameOf(static_cast<Problem>(i)));
    EXPECT_EQ(names.size(), static_cast<std::size_t>(Problem::UnclaimedObject) + 1);
    EXPECT_EQ(names.count("unknown problem"), 0u);
}

TEST(Report, KeepsTheFirstHundredAndCountsAll)
{
    Report report;
    for (std::uint64_t i = 0; i < 250; ++i) {
        report.add(Problem::DamagedRecord, {.offset = i});
        report.add(Problem::SkippedPacket, {.offset = i});
    }
    EXPECT_EQ(report.damage().size(), 100u);
    EXPECT_EQ(report.damage().back().place.offset, 99u);
    EXPECT_EQ(report.damageCount(), 250u);
    EXPECT_EQ(report.information().size(), 100u);
    EXPECT_EQ(report.informationCount(), 250u);
}

TEST(Report, InformationIsNotDamage)
{
    Report report;
    report.add(Problem::UnresolvedReference, {});
    EXPECT_EQ(report.damageCount(), 0u);
    EXPECT_FALSE(report.first());
    report.add(Problem::Truncated, {});
    EXPECT_EQ(report.first().problem, Problem::Truncated);
}

}  // namespace
}  // namespace koPacketFile
