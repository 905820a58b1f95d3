#include "koImage/image/pixel_dispatch.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>
