#include "koImage/image/image.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>
