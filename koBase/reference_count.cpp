#include "koBase/reference_count.h"

namespace ko {

ReferenceCount::~ReferenceCount() = default;

}  // namespace ko
