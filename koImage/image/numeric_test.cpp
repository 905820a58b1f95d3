#include "koImage/image/numeric.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>
