# Installation: libraries with their variants, headers, and the CMake package koImage.
