// Digests of every operation on fixed inputs, one line for each.
//
//   same_bits                 prints the lines
//   same_bits <file>          compares them with the file; names the lines that differ
//
// The file in the tree was made once. Every compiler, library variant and processor must reproduce it: a
// change of a digest is a change of results that callers and stored files would see.

#include "koImage/koImage.h"
#include "koImage/testing/loaded_rotations.h"
#include "koImage/testing/test_images.h"

#include <cmath>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>

using namespace koImage;
using namespace koImage::testing;

namespace {

/// FNV-1a over the sizes and channels of an image. Every NaN counts alike: its sign and payload are not
/// defined.
class Digest {
public:
    explicit Digest(Image const& image)
    {
        add(image.width());
        add(image.height());
        dispatchPixel(image.pixelType(), StoredPixels{}, [&](auto tag) {
            using Pixel = typename decltype(tag)::type;
            using Channel = typename ChannelOf<Pixel>::type;
            std::array<Channel, sizeof(Pixel) / sizeof(Channel)> channels;
            for (Pixel const& pixel : pixelsOf<Pixel>(image)) {
                std::memcpy(static_cast<void*>(channels.data()), &pixel, sizeof(Pixel));
                for (Channel const channel : channels)
                    add(channel);
            }
        });
    }

    std::uint64_t value() const { return value_; }

private:
    template <class Channel>
    void add(Channel channel)
    {
        if constexpr (std::is_same_v<Channel, half>)
            channel = std::isnan(static_cast<float>(channel)) ? half::fromBits(0x7E00) : channel;
        else if constexpr (std::is_floating_point_v<Channel>)
            channel = std::isnan(channel) ? std::numeric_limits<Channel>::quiet_NaN() : channel;

        std::array<unsigned char, sizeof(Channel)> bytes;
        std::memcpy(bytes.data(), &channel, sizeof(Channel));
        for (unsigned char const byte : bytes)
            value_ = (value_ ^ byte) * 0x100000001B3u;
    }

    std::uint64_t value_ = 0xCBF29CE484222325u;
};

class Report {
public:
    void line(std::string const& name, Image const& result)
    {
        text_ << name << ' ' << std::hex << Digest(result).value() << '\n';
    }

    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
};

/// One line for an ordinary and one for a hostile input: work(make) returns the image to be digested, where
/// make(size, seed) makes an input.
template <class Pixel, class MakeResult>
void eachInput(Report& report, std::string const& name, MakeResult const& work)
{
    std::string const typed = name + '.' + std::to_string(static_cast<int>(pixelTypeIdOf<Pixel>));
    report.line(typed + ".ordinary", *work(randomImage<Pixel>));
    report.line(typed + ".hostile", *work(hostileImage<Pixel>));
}

/// Calls visit(PixelTag<P>{}) for each P of a list.
template <class... Pixels, class Visit>
void eachPixel(PixelList<Pixels...>, Visit const& visit)
{
    (visit(PixelTag<Pixels>{}), ...);
}

constexpr Size size = {131, 67};

void reportEdits(Report& report)
{
    eachPixel(StoredPixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        using Edit = void (*)(Image&);
        for (auto const& [name, edit] :
             std::initializer_list<std::pair<char const*, Edit>>{{"fillWhite", fillWhite},
                                                                 {"fillBlack", fillBlack},
                                                                 {"imageFlipVertical", imageFlipVertical},
                                                                 {"imageFlipHorizontal", imageFlipHorizontal},
                                                                 {"imageSwapRedBlue", imageSwapRedBlue}}) {
            eachInput<Pixel>(report, name, [edit = edit](auto make) {
                auto image = make(size, 1);
                edit(*image);
                return image;
            });
        }
    });

    using AlphaEdit = void (*)(unsigned char*, int, int, int);
    for (auto const& [name, edit] : std::initializer_list<std::pair<char const*, AlphaEdit>>{
             {"convert2PreMultipliedAlpha", convert2PreMultipliedAlpha},
             {"convert2NonPreMultipliedAlpha", convert2NonPreMultipliedAlpha}}) {
        eachInput<Byte4>(report, name, [edit = edit](auto make) {
            auto image = make(size, 1);
            edit(static_cast<unsigned char*>(image->data()), image->width(), image->height(), 4);
            return image;
        });
    }
}

void reportConversions(Report& report)
{
    auto const convert = [&]<class From, class To>(From, To) {
        eachInput<From>(report, "imageConvert.to" + std::to_string(static_cast<int>(pixelTypeIdOf<To>)),
                        [](auto make) {
                            auto image = imageOf<To>({0, 0});
                            imageConvert(*make(size, 1), *image);
                            return image;
                        });
    };
    convert(0.0f, static_cast<unsigned char>(0));
    convert(Byte4{}, Float3{});
    convert(Byte4{}, Float4{});
    convert(Float3{}, Float4{});

    eachInput<float>(report, "floatsToHalves", [](auto make) {
        auto const image = make({size.width * 4, size.height}, 1);
        auto halves = imageOf<Half4>(size);
        floatsToHalves(image->pixels(), &halves->pixels()->r, static_cast<std::size_t>(image->pixelCount()));
        return halves;
    });
    eachInput<Half4>(report, "halvesToFloats", [](auto make) {
        auto const image = make(size, 1);
        auto floats = imageOf<Float4>(size);
        halvesToFloats(&image->pixels()->r, &floats->pixels()->r,
                       static_cast<std::size_t>(image->pixelCount()) * 4);
        return floats;
    });
}

void reportArithmetic(Report& report)
{
    using Operation = void (*)(Image const&, Image const&, Image&);
    for (auto const& [name, operation] :
         std::initializer_list<std::pair<char const*, Operation>>{{"imageAdd", imageAdd},
                                                                  {"imageSub", imageSub},
                                                                  {"imageMult", imageMult},
                                                                  {"imageDiv", imageDiv}}) {
        eachPixel(PixelList<unsigned char, Half4, Float3, Float4>{},
                  [&, name = name, operation = operation](auto tag) {
                      using Pixel = typename decltype(tag)::type;
                      if (!DivPixels::contains(pixelTypeIdOf<Pixel>) ||
                          (operation != imageDiv && !AddPixels::contains(pixelTypeIdOf<Pixel>)))
                          return;
                      eachInput<Pixel>(report, name, [operation](auto make) {
                          auto result = imageOf<Pixel>({0, 0});
                          operation(*make(size, 1), *make(size, 2), *result);
                          return result;
                      });
                  });
    }
    eachPixel(PixelList<unsigned char, Byte4, Half4, float, Float3, Float4>{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        eachInput<Pixel>(report, "imageAverage", [](auto make) {
            auto average = imageOf<Float4>({1, 1});
            average->pixels()[0] = imageAverage(*make(size, 1));
            return average;
        });
    });
}

void reportFilters(Report& report)
{
    eachPixel(BlurPixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        for (int const diameter : {1, 5, 38}) {
            for (bool const wrap : {false, true}) {
                auto const name = "imageBlur." + std::to_string(diameter) + (wrap ? ".wrapped" : ".clamped");
                eachInput<Pixel>(report, name, [=](auto make) {
                    auto result = imageOf<Pixel>({0, 0});
                    imageBlur(*make(size, 1), *result, diameter, wrap, wrap);
                    return result;
                });
            }
        }
    });

    eachInput<unsigned char>(report, "imageInterpolate", [](auto make) {
        auto values = make(size, 1);
        auto mask = make(size, 2);
        for (unsigned char& known : pixelsOf<unsigned char>(*mask))
            known = known % 7 == 0 ? known : 0;
        imageInterpolate(*mask, *values);
        return values;
    });

    eachPixel(PixelList<Byte4, Half4, float, Float3, Float4>{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        for (bool const filter : {false, true}) {
            for (Size const to : {Size{40, 22}, Size{300, 150}}) {
                auto const name = "resize." + std::to_string(to.width) + (filter ? ".bilinear" : ".point");
                eachInput<Pixel>(report, name, [=](auto make) {
                    auto source = make(size, 1);
                    source->setWrap(true, false);
                    return ko::Reference<Image>(resize(*source, to.width, to.height, filter));
                });
            }
        }
    });
}

/// The directions, weights and coordinates of a shape at `count` places, as an image of rows of eight.
ko::Reference<Image> shapeValues(EnvironmentMap const& map, int count)
{
    auto values = imageOf<float>({8, count});
    Random random(1);
    auto const unit = [&random] { return static_cast<float>(random() >> 8) * 0x1p-24f; };
    float* out = values->pixels();
    for (int i = 0; i < count; ++i, out += 8) {
        float const u = unit();
        float const v = unit();
        koLinear::VectorFlt dir;
        float weight = -1;
        bool const valid = map.coordToDir(u, v, dir, weight, true);
        // In braces: from left to right with every compiler.
        koLinear::VectorFlt other{2 * unit() - 1, 2 * unit() - 1, 2 * unit() - 1};
        other.normalize();
        float otherU = 0;
        float otherV = 0;
        map.dirToCoord(other, otherU, otherV);
        float const row[] = {valid ? 1.0f : 0.0f,
                             dir.x,
                             dir.y,
                             dir.z,
                             weight,
                             otherU,
                             otherV,
                             map.isValidCoord(u, v) ? 1.0f : 0.0f};
        std::copy(std::begin(row), std::end(row), out);
    }
    return values;
}

void reportEnvironmentMaps(Report& report)
{
    struct Shape {
        std::string name;
        Size size;
        EnvironmentMap* (*make)(Size);
    };
    Shape const shapes[] = {
        {"sphere", {64, 64}, [](Size s) -> EnvironmentMap* { return new SphereMap(s.width); }},
        {"latLong", {128, 64}, [](Size s) -> EnvironmentMap* { return new LatLongMap(s.width, s.height); }},
        {"cross", {96, 128}, [](Size s) -> EnvironmentMap* { return new CrossMap(s.width / 3, false); }},
        {"horizontalCross", {128, 96}, [](Size s) -> EnvironmentMap* {
             return new CrossMap(s.height / 3, true);
         }}};
    using MapRef = ko::Reference<EnvironmentMap>;
    for (Shape const& shape : shapes)
        report.line("shape." + shape.name, *shapeValues(*MapRef(shape.make(shape.size)), 5000));

    eachPixel(RemapPixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        for (Shape const& from : shapes)
            for (Shape const& to : shapes)
                eachInput<Pixel>(report, "remap." + from.name + "." + to.name, [&](auto make) {
                    auto source = make(from.size, 1);
                    source->setWrap(true, from.name != "latLong");
                    auto result = imageOf<Pixel>(to.size);
                    MapRef const fromMap(from.make(from.size));
                    MapRef const toMap(to.make(to.size));
                    fromMap->setImage(source.get());
                    toMap->setImage(result.get());
                    remap(*fromMap, *toMap);
                    return ko::Reference<Image>(result);
                });
    });
}

void reportLighting(Report& report)
{
    using MapRef = ko::Reference<EnvironmentMap>;
    for (Size const mapSize : {Size{600, 300}, Size{64, 64}, Size{96, 128}})
        eachPixel(IrradiancePixels{}, [&](auto tag) {
            using Pixel = typename decltype(tag)::type;
            // Ordinary pixels alone: one NaN makes every sum NaN.
            auto const image = randomImage<Pixel>(mapSize, 1);
            MapRef const map = newEnvironmentMap(*image);
            IrradianceAlg alg;
            alg.accumulate(*map);
            auto const coefficients = imageOf<Float3>({9, 1});
            alg.getCoefficients(coefficients->pixels());
            report.line("irradiance." + std::to_string(mapSize.width) + "." +
                            std::to_string(static_cast<int>(pixelTypeIdOf<Pixel>)),
                        *coefficients);
        });

    LoadedRotations const rotations;
    SphericalHarmonics<Double3> light(20);
    computeLightCoeffs(*randomImage<Float3>({200, 100}, 1), light);
    auto const reportMap = [&](std::string const& name, ReflectanceFunction const& lobe) {
        ReflectanceSamples samples(100, 100, 200);
        lobe.sample(samples);
        koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
        computeBrdfCoeffs(samples, brdf, 10);
        auto const reflection = imageOf<HarmonicsPixel>({0, 0});
        computeReflectionCoeffs(light, brdf, 20, 10, *reflection, nullptr);
        auto const map = imageOf<Float3>({0, 0});
        double const alongNormal[3] = {0.0, 0.0, 1.0};
        computeSpecularMap(*reflection, alongNormal, 10, 1.0, *map);
        report.line("specularMap." + name, *map);
    };
    reportMap("lambert", Lambert());
    reportMap("phong", PhongLobe(20.0));
    reportMap("ggx", GgxLobe(0.3));
}

int compare(std::string const& text, char const* path)
{
    std::ifstream file(path);
    std::istringstream actual(text);
    std::string expectedLine;
    std::string actualLine;
    int lines = 0;
    int different = 0;
    while (std::getline(file, expectedLine) && std::getline(actual, actualLine)) {
        ++lines;
        if (expectedLine != actualLine) {
            ++different;
            std::cout << "expected " << expectedLine << "\n     got " << actualLine << '\n';
        }
    }
    bool const sameLength = file.eof() && !std::getline(actual, actualLine);
    std::cout << "libkoImage " << libraryVariant() << ": " << lines << " digests, " << different << " differ"
              << (sameLength ? "" : "; the files differ in length") << '\n';
    return lines > 0 && different == 0 && sameLength ? 0 : 1;
}

}  // namespace

// An exception ends the program, which is a failure that nobody overlooks.
int main(int argc, char** argv)  // NOLINT(bugprone-exception-escape)
{
    Report report;
    reportEdits(report);
    reportConversions(report);
    reportArithmetic(report);
    reportFilters(report);
    reportEnvironmentMaps(report);
    reportLighting(report);

    if (argc == 2)
        return compare(report.text(), argv[1]);
    std::cout << report.text();
}
