// The whole library.
#pragma once

#include "koImage/image/half.h"
#include "koImage/image/image.h"
#include "koImage/image/library_variant.h"
#include "koImage/image/pixel_dispatch.h"
#include "koImage/image/pixel_types.h"
#include "koImage/image/typed_image.h"
