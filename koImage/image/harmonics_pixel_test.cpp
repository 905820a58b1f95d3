#include "koImage/image/harmonics_pixel.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>
