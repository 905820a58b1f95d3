#include "peers.h"

#include "koImage/image/typed_image.h"
#include "koImage/testing/side_by_side.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace koImage::peers {

namespace {

using testing::medianOf;
using testing::secondsOf;

constexpr char const* usage = R"(usage: peers [--help] [TEXT...]

Runs koImage and other libraries in turn on the same images, each on one thread, and prints the median time
of each per pixel of the result. Without a TEXT all cases are run, else those whose name contains one of them.

  ratio    peer / ours: above 1 koImage is faster
  memcpy   a copy that reads and writes as many bytes as the operation, in the same run
)";

constexpr int rounds = 11;

// Short calls are repeated until a round takes this long.
constexpr double roundSeconds = 2e-3;

/// Median times of one call, in nanoseconds per pixel.
struct Outcome {
    double ours;
    double theirs;
    double copy;
};

Outcome run(Race const& race)
{
    // Half of the bytes are read, half are written.
    TypedImage<unsigned char> from;
    TypedImage<unsigned char> to;
    from.resize(static_cast<int>(race.bytes / 2), 1);
    to.resize(static_cast<int>(race.bytes / 2), 1);
    std::memset(from.pixels(), 1, static_cast<std::size_t>(race.bytes / 2));
    auto const copy = [&] {
        std::memcpy(to.pixels(), from.pixels(), static_cast<std::size_t>(race.bytes / 2));
    };

    // The first calls touch the memory of their results; the second tell how often to repeat.
    race.ours();
    race.theirs();
    copy();
    double const shortest = std::min({secondsOf(race.ours), secondsOf(race.theirs), secondsOf(copy)});
    int const calls = std::clamp(static_cast<int>(roundSeconds / shortest), 1, 1000);
    auto const repeated = [calls](auto const& work) {
        return secondsOf([&] {
            for (int i = 0; i < calls; ++i)
                work();
        });
    };

    std::vector<double> ours;
    std::vector<double> theirs;
    std::vector<double> copies;
    for (int round = 0; round < rounds; ++round) {
        ours.push_back(repeated(race.ours));
        theirs.push_back(repeated(race.theirs));
        copies.push_back(repeated(copy));
    }
    double const perPixel = 1e9 / (static_cast<double>(race.pixels) * calls);
    return {medianOf(ours) * perPixel, medianOf(theirs) * perPixel, medianOf(copies) * perPixel};
}

Cases allCases()
{
    Cases cases;
    addArithmetic(cases);
    addAverages(cases);
    addBlur(cases);
    addResize(cases);
    addRemap(cases);
    addEdits(cases);
    addConversions(cases);
    addBoundaries(cases);
#if KO_PEER_OPENEXR
    addFiles(cases);
#endif
#if KO_PEER_OPENIMAGEIO
    addOpenImageIO(cases);
#endif
    return cases;
}

bool isChosen(Case const& one, std::vector<std::string_view> const& texts)
{
    auto const inName = [&](std::string_view text) { return one.name.find(text) != std::string::npos; };
    return texts.empty() || std::any_of(texts.begin(), texts.end(), inName);
}

int runChosen(std::vector<std::string_view> const& texts)
{
    cv::setNumThreads(1);

    std::printf("ns per pixel\n%-46s %8s %8s %7s %8s  %s\n", "case", "ours", "peer", "ratio", "memcpy",
                "peer");
    bool any = false;
    for (Case const& one : allCases()) {
        if (!isChosen(one, texts))
            continue;
        Outcome const outcome = run(one.prepare());
        std::printf("%-46s %8.3f %8.3f %7.2f %8.3f  %s\n", one.name.c_str(), outcome.ours, outcome.theirs,
                    outcome.theirs / outcome.ours, outcome.copy, one.peer.c_str());
        std::fflush(stdout);
        any = true;
    }
    if (!any)
        std::fprintf(stderr, "peers: no case has such a name\n");
    return any ? 0 : 1;
}

}  // namespace

}  // namespace koImage::peers

int main(int count, char** arguments)
{
    std::vector<std::string_view> const texts(arguments + 1, arguments + count);
    for (std::string_view const text : texts) {
        if (text == "--help") {
            std::fputs(koImage::peers::usage, stdout);
            return 0;
        }
        if (text.substr(0, 1) == "-") {
            std::fputs(koImage::peers::usage, stderr);
            return 2;
        }
    }
    return koImage::peers::runChosen(texts);
}
