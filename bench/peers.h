// The races of koImage against other libraries: the same work on the same images, in turn, in one process,
// one thread each.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace koImage::peers {

/// Two pieces of work that come to the same.
struct Race {
    std::int64_t pixels;  // of the result, for one call
    std::int64_t bytes;   // that one call of ours has to read and write
    std::function<void()> ours;
    std::function<void()> theirs;
};

struct Case {
    std::string name;
    std::string peer;
    std::function<Race()> prepare;  // makes the images, only when the case is run
};

using Cases = std::vector<Case>;

// The groups, each in its own peers_<group>.cpp.

void addArithmetic(Cases& cases);
void addAverages(Cases& cases);
void addBlur(Cases& cases);
void addResize(Cases& cases);
void addRemap(Cases& cases);
void addEdits(Cases& cases);
void addConversions(Cases& cases);
void addBoundaries(Cases& cases);

/// Compiled where OpenEXR is installed.
void addFiles(Cases& cases);

/// Compiled where OpenImageIO is installed.
void addOpenImageIO(Cases& cases);

}  // namespace koImage::peers
