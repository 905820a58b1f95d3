#include "koImage/image/library_variant.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <string>

namespace koImage {

// KO_EXPECT_VARIANT names the variant that a run was forced to. Without it the loader must have taken the
// best one that the processor runs.
TEST(LibraryVariant, IsTheOneThatTheLoaderShouldHaveTaken)
{
    char const* const forced = std::getenv("KO_EXPECT_VARIANT");
#if defined(__x86_64__) && defined(__linux__)
    bool const runsV3 = __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi2") != 0 &&
                        __builtin_cpu_supports("fma") != 0;
#else
    bool const runsV3 = false;
#endif
    std::string const expected = forced != nullptr ? forced : runsV3 ? "x86-64-v3" : "baseline";

    std::cout << "libkoImage: " << libraryVariant() << '\n';
    EXPECT_EQ(libraryVariant(), expected);
}

}  // namespace koImage
