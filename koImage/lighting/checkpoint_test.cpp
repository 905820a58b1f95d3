#include "koImage/lighting/checkpoint.h"

#include "koImage/lighting/image_based_lighting.h"
#include "koImage/lighting/lobes.h"
#include "koImage/testing/loaded_rotations.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace koImage {

namespace {

std::vector<std::string> labels;

void remember(char const* label)
{
    labels.emplace_back(label != nullptr ? label : "(null)");
}

/// Runs the pipeline for two lobes. Whether its labels were right.
bool labelsOfARunAreRight()
{
    observeCheckpoints(remember);
    testing::LoadedRotations const rotations;
    auto const probe = testing::randomImage<Float3>({64, 32}, 1);
    ImageBasedLighting lighting;
    koUtil::Error error;
    lighting.setLightProbe(probe.get(), error);
    for (int key = 0; key < 2; ++key) {
        PhongLobe lobe(10.0);
        lobe.setKey(key);
        if (lighting.getSpecularMap(lobe, nullptr) == nullptr)
            return false;
    }

    std::vector<std::string> expected = {"spherical harmonics setup", "irradiance", "lighting coeffs"};
    for (int key = 0; key < 2; ++key)
        for (char const* const label : {"brdf sampling", "brdf coeffs", "order analysis", "convolution",
                                        "create shrm", "warped shrm", "view-dependent texture"})
            expected.emplace_back(label);
    return labels == expected;
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

// In a process of its own, where nothing is set up yet.
TEST(CheckpointDeathTest, IsReachedOnceInEachStageOfARun)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::_Exit(labelsOfARunAreRight() ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

}  // namespace koImage
