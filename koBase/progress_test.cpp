#include "koBase/progress.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace koUtil {

namespace {

struct RecordedProgress : Progress {
    explicit RecordedProgress(bool& ended) : ended_(ended) {}
    ~RecordedProgress() override { ended_ = true; }

    void set(double fraction) override { fractions.push_back(fraction); }

    std::vector<double> fractions;

private:
    bool& ended_;
};

}  // namespace

TEST(Progress, IgnoresWhatItIsTold)
{
    Progress progress;
    EXPECT_NO_THROW(progress.set(0.5));
}

TEST(Progress, TellsTheClassDerivedFromIt)
{
    bool ended = false;
    RecordedProgress recorded(ended);
    Progress& progress = recorded;
    progress.set(0.25);
    progress.set(1.0);
    EXPECT_EQ(recorded.fractions, (std::vector{0.25, 1.0}));
}

TEST(Progress, IsDestroyedThroughItsBase)
{
    bool ended = false;
    std::unique_ptr<Progress> progress = std::make_unique<RecordedProgress>(ended);
    progress.reset();
    EXPECT_TRUE(ended);
}

TEST(SetProgress, TellsAProgressAndToleratesNone)
{
    bool ended = false;
    RecordedProgress recorded(ended);
    setProgress(&recorded, 0.75);
    setProgress(nullptr, 0.8);
    EXPECT_EQ(recorded.fractions, std::vector{0.75});
}

}  // namespace koUtil
