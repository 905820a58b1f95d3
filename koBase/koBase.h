// The whole base library.
#pragma once

#include "koBase/array_n.h"
#include "koBase/containers.h"
#include "koBase/error.h"
#include "koBase/filename.h"
#include "koBase/int_range2d.h"
#include "koBase/linear.h"
#include "koBase/output_file.h"
#include "koBase/pack.h"
#include "koBase/progress.h"
#include "koBase/reference_count.h"
#include "koBase/thread_pool.h"
