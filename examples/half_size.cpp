// Reads a picture of any format, makes it half as wide and high, and writes it.
//
//   half_size <picture> <picture to write>

#include "koImage/koImage.h"
#include "koImageIO/koImageIO.h"

#include <algorithm>
#include <cstdio>

using namespace koImage;

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::puts("half_size <picture> <picture to write>");
        return 2;
    }

    // Light, whatever the file holds: levels must not be averaged.
    koImageIO::Picture picture;
    if (koUtil::Error const error =
            koImageIO::readPicture(argv[1], picture, {.pixelType = PixelTypeId::Float3})) {
        std::puts(error.message().c_str());
        return 1;
    }

    Image const& image = *picture.image;
    ko::Reference<Image> const half(
        resize(image, std::max(image.width() / 2, 1), std::max(image.height() / 2, 1), true));

    koImageIO::Misfits misfits;
    if (koUtil::Error const error = koImageIO::writePicture(argv[2], *half, misfits)) {
        std::puts(error.message().c_str());
        return 1;
    }
    if (misfits.any())
        std::puts("Some values did not fit the file and were clamped.");
    return 0;
}
