// Which build of the library the program runs.
//
// libkoImage is installed twice: for baseline x86-64, and for x86-64-v3 (AVX2, BMI2, F16C) in the folder
// glibc-hwcaps/x86-64-v3 beside it. The dynamic loader takes the second where the processor has those
// instructions. Results are the same to the bit. To choose by hand:
//
//   baseline    GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX2 program
//   v3          LD_LIBRARY_PATH=<library folder>/glibc-hwcaps/x86-64-v3 program
#pragma once

#include "koImage/export.h"

namespace koImage {

/// "x86-64-v3" or "baseline".
KOIMAGE_EXPORT char const* libraryVariant();

}  // namespace koImage
