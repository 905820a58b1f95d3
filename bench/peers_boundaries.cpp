// Outlines of masks against findContours in list mode: that walks along pixel centres and takes the inside as
// 8-connected; the outlines are about as many and as long.

#include "peers.h"
#include "peers_opencv.h"

#include "koImage/layout/mask_boundaries.h"
#include "koImage/testing/test_masks.h"

#include <opencv2/imgproc.hpp>

#include <memory>

namespace koImage::peers {

namespace {

constexpr Size maskSize{4096, 4096};

Race race(testing::MaskKind const& kind)
{
    auto const mask = testing::maskOfKind(kind, maskSize);

    // That function takes whatever is not 0 as inside.
    auto const theirMask = imageOf<unsigned char>(maskSize);
    cv::threshold(matOf(*mask), matOf(*theirMask), 127, 255, cv::THRESH_BINARY);

    auto const ours = std::make_shared<ko::list<Boundary3d>>();
    auto const theirs = std::make_shared<std::vector<std::vector<cv::Point>>>();
    return {pixelCount(maskSize), pixelCount(maskSize), [=] { computeMaskBoundaries(*mask, *ours); },
            [=] { cv::findContours(matOf(*theirMask), *theirs, cv::RETR_LIST, cv::CHAIN_APPROX_SIMPLE); }};
}

}  // namespace

void addBoundaries(Cases& cases)
{
    for (testing::MaskKind const& kind : testing::maskKinds)
        cases.push_back(
            {std::string("boundaries ") + kind.name + " 4096x4096", openCV, [&kind] { return race(kind); }});
}

}  // namespace koImage::peers
