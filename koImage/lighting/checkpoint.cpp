#include "koImage/lighting/checkpoint.h"

#include <atomic>

namespace koImage {

namespace {

std::atomic<CheckpointObserver> currentObserver = nullptr;

}  // namespace

void checkpoint(char const* label)
{
    if (CheckpointObserver const observer = currentObserver)
        observer(label);
}

CheckpointObserver observeCheckpoints(CheckpointObserver observer)
{
    return currentObserver.exchange(observer);
}

}  // namespace koImage
