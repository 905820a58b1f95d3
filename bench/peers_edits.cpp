// Fills, flips, the exchange of red and blue, and both alpha edits.

#include "peers.h"
#include "peers_opencv.h"

#include "koImage/image/alpha.h"
#include "koImage/image/fill.h"
#include "koImage/image/flip.h"
#include "koImage/image/swap_red_blue.h"

#include <opencv2/imgproc.hpp>

#include <type_traits>

namespace koImage::peers {

namespace {

template <class Pixel>
constexpr std::int64_t bytesOfLarge = pixelCount(largeSize) * std::int64_t{sizeof(Pixel)};

template <class Pixel>
void addFill(Cases& cases, bool white)
{
    cases.push_back({caseName<Pixel>(white ? "fill white" : "fill black", largeSize), openCV, [white] {
                         auto const ours = imageOf<Pixel>(largeSize);
                         auto const theirs = imageOf<Pixel>(largeSize);
                         constexpr bool isByte =
                             std::is_same_v<Pixel, unsigned char> || std::is_same_v<Pixel, Byte4>;
                         auto const value = cv::Scalar::all(!white ? 0 : isByte ? 255 : 1);
                         return Race{pixelCount(largeSize), bytesOfLarge<Pixel>,
                                     [=] { white ? fillWhite(*ours) : fillBlack(*ours); },
                                     [=] { matOf(*theirs).setTo(value); }};
                     }});
}

/// Both in place.
template <class Pixel>
void addFlip(Cases& cases, bool vertical)
{
    cases.push_back(
        {caseName<Pixel>(vertical ? "flip vertical" : "flip horizontal", largeSize), openCV, [vertical] {
             auto const ours = randomImage<Pixel>(largeSize, 1);
             auto const theirs = randomImage<Pixel>(largeSize, 1);
             return Race{pixelCount(largeSize), 2 * bytesOfLarge<Pixel>,
                         [=] { vertical ? imageFlipVertical(*ours) : imageFlipHorizontal(*ours); },
                         [=] {
                             cv::Mat image = matOf(*theirs);
                             cv::flip(image, image, vertical ? 0 : 1);
                         }};
         }});
}

/// Ours in place; OpenCV from one image to another, as it is at its best, or in place where the name says
/// so.
void addColourCode(Cases& cases, std::string const& name, std::function<void(TypedImage<Byte4>&)> const& ours,
                   int code, bool inPlace = false)
{
    cases.push_back({caseName<Byte4>(name, largeSize), openCV, [=] {
                         auto const image = randomImage<Byte4>(largeSize, 1);
                         auto const source = randomImage<Byte4>(largeSize, 1);
                         auto const result = inPlace ? source : imageOf<Byte4>(largeSize);
                         return Race{pixelCount(largeSize), 2 * bytesOfLarge<Byte4>, [=] { ours(*image); },
                                     [=] {
                                         cv::Mat converted = matOf(*result);
                                         cv::cvtColor(matOf(*source), converted, code);
                                     }};
                     }});
}

unsigned char* bytesOf(TypedImage<Byte4>& image)
{
    return reinterpret_cast<unsigned char*>(image.pixels());
}

}  // namespace

void addEdits(Cases& cases)
{
    for (bool const white : {false, true}) {
        addFill<unsigned char>(cases, white);
        addFill<Byte4>(cases, white);
        addFill<Float3>(cases, white);
        addFill<Float4>(cases, white);
    }
    for (bool const vertical : {true, false}) {
        addFlip<unsigned char>(cases, vertical);
        addFlip<Byte4>(cases, vertical);
        addFlip<Half4>(cases, vertical);
        addFlip<Float3>(cases, vertical);
        addFlip<Float4>(cases, vertical);
    }

    auto const swapRedBlue = [](TypedImage<Byte4>& image) { imageSwapRedBlue(image); };
    addColourCode(cases, "swap red/blue", swapRedBlue, cv::COLOR_RGBA2BGRA);
    addColourCode(cases, "swap red/blue both in place", swapRedBlue, cv::COLOR_RGBA2BGRA, true);
    addColourCode(
        cases, "premultiply",
        [](TypedImage<Byte4>& image) {
            convert2PreMultipliedAlpha(bytesOf(image), image.width(), image.height(), 4);
        },
        cv::COLOR_RGBA2mRGBA);
    addColourCode(
        cases, "unpremultiply",
        [](TypedImage<Byte4>& image) {
            convert2NonPreMultipliedAlpha(bytesOf(image), image.width(), image.height(), 4);
        },
        cv::COLOR_mRGBA2RGBA);
}

}  // namespace koImage::peers
