#include "koImage/image/pixel_array.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>
