#include "koBase/output_file.h"

#include <gtest/gtest.h>
