#include "koImageIO/picture.h"

#include <gtest/gtest.h>
