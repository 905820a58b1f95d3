#include "koImage/lighting/checkpoint.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace koImage {

namespace {

std::vector<std::string> labels;

void remember(char const* label)
{
    labels.emplace_back(label != nullptr ? label : "(null)");
}

}  // namespace

TEST(Checkpoint, DoesNothingWithoutAnObserver)
{
    labels.clear();
    checkpoint("convolution");
    checkpoint(nullptr);
    EXPECT_TRUE(labels.empty());
}

TEST(Checkpoint, HandsEveryLabelToTheObserverInOrder)
{
    labels.clear();
    EXPECT_EQ(observeCheckpoints(remember), nullptr);
    checkpoint("convolution");
    checkpoint(nullptr);
    checkpoint("create shrm");
    EXPECT_EQ(labels, (std::vector<std::string>{"convolution", "(null)", "create shrm"}));

    EXPECT_EQ(observeCheckpoints(nullptr), remember);
    checkpoint("warped shrm");
    EXPECT_EQ(labels.size(), 3u);
}

}  // namespace koImage
