// The whole library of picture files.
#pragma once

#include "koImageIO/picture.h"
#include "koImageIO/rows.h"
#include "koImageIO/srgb.h"
