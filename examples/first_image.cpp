// Makes an image, draws into it, and writes it as a picture.
//
//   first_image <file.ppm>

#include "koImage/koImage.h"

#include <cstdio>
#include <fstream>
#include <memory>

using namespace koImage;

namespace {

// A sun over a plain, brighter than 1 around the sun.
void draw(TypedImage<Float3>& image)
{
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            float const u = (static_cast<float>(x) + 0.5f) * image.invWidth();
            float const v = (static_cast<float>(y) + 0.5f) * image.invHeight();
            float const away = (u - 0.7f) * (u - 0.7f) * 4.0f + (v - 0.75f) * (v - 0.75f);
            float const sun = 0.02f / (away + 0.002f);
            image.pixels()[pixelOffset(x, y, image.width())] =
                v < 0.4f ? Float3{0.25f, 0.22f, 0.12f}
                         : Float3{0.2f + sun, 0.35f + sun * 0.9f, 0.7f + sun * 0.6f};
        }
    }
}

bool writePpm(TypedImage<Float3> const& image, char const* path)
{
    std::ofstream file(path, std::ios::binary);
    file << "P6\n" << image.width() << ' ' << image.height() << "\n255\n";
    // Row 0 is the bottom of a picture; a file begins at the top.
    for (int y = image.height() - 1; y >= 0; --y) {
        for (int x = 0; x < image.width(); ++x) {
            Float3 const& pixel = image.pixels()[pixelOffset(x, y, image.width())];
            for (float const channel : {pixel.r, pixel.g, pixel.b})
                file.put(static_cast<char>(channel < 1.0f ? channel * 255.0f : 255.0f));
        }
    }
    return file.flush().good();
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fputs("usage: first_image <file.ppm>\n", stderr);
        return 2;
    }

    ko::Reference<TypedImage<Float3>> image(new TypedImage<Float3>);
    image->resize(512, 256);
    draw(*image);

    if (!writePpm(*image, argv[1])) {
        std::fprintf(stderr, "first_image: cannot write %s\n", argv[1]);
        return 1;
    }
    std::printf("%s: %d x %d pixels, libkoImage %s\n", argv[1], image->width(), image->height(),
                libraryVariant());
}
