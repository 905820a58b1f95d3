#include "koBase/reference_count.h"

#include <gtest/gtest.h>
