#include "koImage/image/pixel_types.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>
