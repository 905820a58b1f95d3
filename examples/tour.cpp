// A tour of the image operations, as pictures to look at.
//
//   tour <folder>
//
// Draws a small scene with a sun far brighter than white, takes it through the library, and writes one
// picture (PPM) for each step into the folder, which is made when it is not there.

#include "koImage/koImage.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

using namespace koImage;

namespace {

template <class Pixel>
using ImageRef = ko::Reference<TypedImage<Pixel>>;

template <class Pixel>
ImageRef<Pixel> makeImage(int width, int height)
{
    ImageRef<Pixel> image(new TypedImage<Pixel>);
    image->resize(width, height);
    return image;
}

template <class Pixel>
Pixel& pixelAt(TypedImage<Pixel>& image, int x, int y)
{
    return image.pixels()[pixelOffset(x, y, image.width())];
}

unsigned char displayed(float value)
{
    return lowByte(truncateToInt(std::clamp(value, 0.0f, 1.0f) * 255.0f));
}

void putPixel(std::ofstream& file, Float3 const& pixel)
{
    for (float const channel : {pixel.r, pixel.g, pixel.b})
        file.put(static_cast<char>(displayed(channel)));
}

void putPixel(std::ofstream& file, unsigned char pixel)
{
    for (int channel = 0; channel < 3; ++channel)
        file.put(static_cast<char>(pixel));
}

/// Writes one step of the tour and says what it shows.
class Tour {
public:
    explicit Tour(std::filesystem::path folder) : folder_(std::move(folder))
    {
        std::filesystem::create_directories(folder_);
    }

    template <class Pixel>
    void show(TypedImage<Pixel>& image, std::string const& name, char const* what)
    {
        auto const path = folder_ / (std::to_string(++step_) + "-" + name + ".ppm");
        std::ofstream file(path, std::ios::binary);
        file << "P6\n" << image.width() << ' ' << image.height() << "\n255\n";
        // Row 0 is the bottom of a picture; a file begins at the top.
        for (int y = image.height() - 1; y >= 0; --y)
            for (int x = 0; x < image.width(); ++x)
                putPixel(file, pixelAt(image, x, y));
        if (!file.flush())
            throw std::filesystem::filesystem_error("cannot write", path,
                                                    std::make_error_code(std::errc::io_error));
        std::printf("%-28s %s\n", path.filename().c_str(), what);
    }

private:
    std::filesystem::path folder_;
    int step_ = 0;
};

/// Hills before a sky, a sun of radiance 40, and a chequered floor that shows every pixel of a resampling.
ImageRef<Float3> drawScene(int width, int height)
{
    auto scene = makeImage<Float3>(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            float const u = (static_cast<float>(x) + 0.5f) * scene->invWidth();
            float const v = (static_cast<float>(y) + 0.5f) * scene->invHeight();
            float const hills = 0.42f + 0.06f * std::sin(9.0f * u) + 0.03f * std::sin(23.0f * u + 1.0f);
            float const away = (u - 0.72f) * (u - 0.72f) * 4.0f + (v - 0.78f) * (v - 0.78f);
            bool const dark = (static_cast<int>(u * 32.0f) + static_cast<int>(v * 16.0f)) % 2 != 0;

            Float3& pixel = pixelAt(*scene, x, y);
            if (v < 0.2f)
                pixel = dark ? Float3{0.08f, 0.07f, 0.06f} : Float3{0.55f, 0.5f, 0.42f};
            else if (v < hills)
                pixel = {0.1f + 0.3f * v, 0.16f + 0.4f * v, 0.08f};
            else if (away < 0.003f)
                pixel = {40.0f, 36.0f, 28.0f};
            else
                pixel = {0.18f + 0.4f * (1.0f - v), 0.32f + 0.3f * (1.0f - v), 0.75f};
        }
    }
    return scene;
}

/// What is brighter than white, and nothing else.
ImageRef<Float3> brightPart(TypedImage<Float3> const& scene)
{
    auto const white = makeImage<Float3>(scene.width(), scene.height());
    fillWhite(*white);
    auto bright = makeImage<Float3>(0, 0);
    imageSub(scene, *white, *bright);
    for (Float3& pixel : pixelsOf<Float3>(*bright))
        pixel = mapChannels(pixel, [](float channel) { return std::max(channel, 0.0f); });
    return bright;
}

void takeTour(Tour& tour)
{
    auto const scene = drawScene(512, 256);
    tour.show(*scene, "scene", "a scene with a sun of radiance 40; the file clips it to white");

    // Glare: a sixth of the light beyond white, spread twice over, and added again.
    auto const glare = brightPart(*scene);
    imageBlur(*glare, *glare, 41, false, false);
    imageBlur(*glare, *glare, 61, false, false);
    auto const sixth = makeImage<Float3>(scene->width(), scene->height());
    std::fill_n(sixth->pixels(), sixth->pixelCount(), Float3{1 / 6.0f, 1 / 6.0f, 1 / 6.0f});
    imageMult(*glare, *sixth, *glare);
    imageAdd(*scene, *glare, *glare);
    tour.show(*glare, "glare",
              "imageSub, imageBlur, imageMult, imageAdd: light beyond white, spread and added");

    // The same eighth of the pixels, three ways.
    ko::Reference<Image> const points(resize(*scene, 64, 32, false));
    ko::Reference<Image> const bilinear(resize(*scene, 64, 32, true));
    auto const soft = makeImage<Float3>(0, 0);
    imageBlur(*scene, *soft, suggestFilterDiamater(*scene, 64, 32), true, false);
    ko::Reference<Image> const filtered(resize(*soft, 64, 32, true));
    auto const sheet = makeImage<Float3>(64 * 8, 32 * 8 * 3 + 16);
    fillWhite(*sheet);
    int row = 2 * (32 * 8 + 8);
    for (Image const* const small : {points.get(), bilinear.get(), filtered.get()}) {
        ko::Reference<Image> const large(resize(*small, 64 * 8, 32 * 8, false));
        imageCopyIn(*large, *sheet, 0, row);
        row -= 32 * 8 + 8;
    }
    tour.show(*sheet, "resize", "resize to an eighth: point samples, bilinear, blurred first");

    // Grey, as the red channel of the display values; then most of it lost and filled again.
    auto const grey = makeImage<float>(512, 256);
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 512; ++x)
            pixelAt(*grey, x, y) = std::clamp(pixelAt(*scene, x, y).r, 0.0f, 1.0f);
    auto const values = makeImage<unsigned char>(0, 0);
    imageConvert(*grey, *values);
    auto const mask = makeImage<unsigned char>(512, 256);
    fillBlack(*mask);
    for (unsigned i = 0, at = 1; i < 6000; ++i, at = at * 1664525u + 1013904223u)
        mask->pixels()[at >> 15] = 255;
    auto const kept = makeImage<unsigned char>(0, 0);
    imageMin(*values, *mask, *kept);
    tour.show(*kept, "known", "one pixel in twenty of a grey picture is known");
    imageInterpolate(*mask, *kept);
    tour.show(*kept, "interpolated", "imageInterpolate: the holes filled from their rows and columns");

    imageFlipHorizontal(*scene);
    tour.show(*scene, "mirrored", "imageFlipHorizontal");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2 || argv[1][0] == '-') {
        std::fputs("usage: tour <folder>\n", argc == 2 && std::string(argv[1]) == "--help" ? stdout : stderr);
        return argc == 2 && std::string(argv[1]) == "--help" ? 0 : 2;
    }
    try {
        Tour tour(argv[1]);
        takeTour(tour);
    } catch (std::exception const& problem) {
        std::fprintf(stderr, "tour: %s\n", problem.what());
        return 1;
    }
    std::printf("in %s\n", argv[1]);
}
