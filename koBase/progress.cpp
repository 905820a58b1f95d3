#include "koBase/progress.h"

namespace koUtil {

Progress::~Progress() = default;

void Progress::set(double /*fraction*/) {}

}  // namespace koUtil
