// The containers of the interfaces: those of the standard library, under the names that callers use.
#pragma once

#include <list>
#include <vector>

namespace ko {

using std::list;
using std::vector;

}  // namespace ko
