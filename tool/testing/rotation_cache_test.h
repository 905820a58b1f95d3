// Tests of verbs that need rotation matrices: computed once for all tests of a suite, in a cache folder of
// their own.
#pragma once

#include "tool/testing/command.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

namespace koTool::testing {

struct RotationCacheTest : ::testing::Test {
    static void SetUpTestSuite()
    {
        cache = std::make_unique<Folder const>();
        ::setenv("XDG_CACHE_HOME", (*cache / "").c_str(), 1);
    }
    static void TearDownTestSuite()
    {
        ::unsetenv("XDG_CACHE_HOME");
        cache.reset();
    }

    inline static std::unique_ptr<Folder const> cache;
    Folder const folder;
};

}  // namespace koTool::testing
