#include "koBase/int_range2d.h"

#include <gtest/gtest.h>
