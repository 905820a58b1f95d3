// Sum, difference, product, quotient, minimum and maximum of two images.

#include "peers.h"
#include "peers_opencv.h"

#include "koImage/ops/arithmetic.h"

namespace koImage::peers {

namespace {

struct Operation {
    char const* name;
    void (*ours)(Image const&, Image const&, Image&);
    void (*theirs)(cv::Mat const&, cv::Mat const&, cv::Mat&);
};

constexpr Operation operations[] = {
    {"add", imageAdd, [](cv::Mat const& a, cv::Mat const& b, cv::Mat& result) { cv::add(a, b, result); }},
    {"sub", imageSub,
     [](cv::Mat const& a, cv::Mat const& b, cv::Mat& result) { cv::subtract(a, b, result); }},
    {"mult", imageMult,
     [](cv::Mat const& a, cv::Mat const& b, cv::Mat& result) { cv::multiply(a, b, result); }},
    {"div", imageDiv, [](cv::Mat const& a, cv::Mat const& b, cv::Mat& result) { cv::divide(a, b, result); }},
};

// Saturates where ours wraps.
constexpr Operation byteDivision{"div", imageDiv, [](cv::Mat const& a, cv::Mat const& b, cv::Mat& result) {
                                     cv::divide(a, b, result, 255);
                                 }};

using ByteImage = TypedImage<unsigned char>;

constexpr Operation byteOperations[] = {
    {"min",
     [](Image const& a, Image const& b, Image& result) {
         imageMin(static_cast<ByteImage const&>(a), static_cast<ByteImage const&>(b),
                  static_cast<ByteImage&>(result));
     },
     [](cv::Mat const& a, cv::Mat const& b, cv::Mat& result) { cv::min(a, b, result); }},
    {"max",
     [](Image const& a, Image const& b, Image& result) {
         imageMax(static_cast<ByteImage const&>(a), static_cast<ByteImage const&>(b),
                  static_cast<ByteImage&>(result));
     },
     [](cv::Mat const& a, cv::Mat const& b, cv::Mat& result) { cv::max(a, b, result); }},
};

template <class Pixel>
Race race(Operation operation, Size size)
{
    auto const a = randomImage<Pixel>(size, 1);
    auto const b = randomImage<Pixel>(size, 2);
    auto const ours = imageOf<Pixel>(size);
    auto const theirs = imageOf<Pixel>(size);
    return {pixelCount(size), 3 * pixelCount(size) * std::int64_t{sizeof(Pixel)},
            [=] { operation.ours(*a, *b, *ours); },
            [=] {
                cv::Mat result = matOf(*theirs);
                operation.theirs(matOf(*a), matOf(*b), result);
            }};
}

/// OpenCV has no half arithmetic: both operands to float, the result back.
Race halfRace(Operation operation, Size size)
{
    auto const a = randomImage<Half4>(size, 1);
    auto const b = randomImage<Half4>(size, 2);
    auto const ours = imageOf<Half4>(size);
    auto const theirs = imageOf<Half4>(size);
    auto const floatA = imageOf<Float4>(size);
    auto const floatB = imageOf<Float4>(size);
    auto const floatResult = imageOf<Float4>(size);
    return {pixelCount(size), 3 * pixelCount(size) * std::int64_t{sizeof(Half4)},
            [=] { operation.ours(*a, *b, *ours); },
            [=] {
                toFloats(*a, *floatA);
                toFloats(*b, *floatB);
                cv::Mat result = matOf(*floatResult);
                operation.theirs(matOf(*floatA), matOf(*floatB), result);
                toHalves(*floatResult, *theirs);
            }};
}

template <class Pixel>
void add(Cases& cases, Operation operation)
{
    for (Size const size : {largeSize, smallSize<Pixel>()})
        cases.push_back(
            {caseName<Pixel>(operation.name, size), openCV, [=] { return race<Pixel>(operation, size); }});
}

void addHalf(Cases& cases, Operation operation)
{
    for (Size const size : {largeSize, smallSize<Half4>()})
        cases.push_back({caseName<Half4>(operation.name, size), openCVThroughFloat,
                         [=] { return halfRace(operation, size); }});
}

}  // namespace

void addArithmetic(Cases& cases)
{
    for (Operation const& operation : operations) {
        add<Float4>(cases, operation);
        add<Float3>(cases, operation);
        addHalf(cases, operation);
    }
    add<unsigned char>(cases, byteDivision);
    for (Operation const& operation : byteOperations)
        add<unsigned char>(cases, operation);
}

}  // namespace koImage::peers
