#include "koImage/image/debug_image.h"

namespace koImage {

namespace {

void (*debugImageFunction)(char const*, Image const*) = nullptr;

}  // namespace

void setDebugImageFunction(void (*function)(char const*, Image const*))
{
    debugImageFunction = function;
}

void dumpDebugImage(char const*, Image const&)
{
    // Does not call debugImageFunction, on purpose: algorithms dump wherever they like, at no cost and
    // without an effect.
}

}  // namespace koImage
