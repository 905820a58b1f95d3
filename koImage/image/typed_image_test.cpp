#include "koImage/image/typed_image.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>
