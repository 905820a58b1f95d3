// The whole base library.
#pragma once

#include "koBase/int_range2d.h"
#include "koBase/reference_count.h"
