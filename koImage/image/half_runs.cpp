#include "koImage/image/half_runs.h"

#include "koImage/image/half_runs_v3.h"
#include "koImage/image/streaming.h"

namespace koImage {

namespace {

template <class From, class To>
void convertRun(From const* from, To* to, std::size_t count)
{
    std::size_t i = 0;
#if KO_SIMD_V3
    i = v3::convertSixteens(from, to, count);
#endif
    for (; i < count; ++i)
        to[i] = from[i];
}

template <class From, class To>
void convert(From const* from, To* to, std::size_t count)
{
    writeRuns(to, count, false, [from](To* run, std::size_t first, std::size_t length) {
        convertRun(from + first, run, length);
    });
}

}  // namespace

void halvesToFloats(half const* halves, float* floats, std::size_t count)
{
    convert(halves, floats, count);
}

void floatsToHalves(float const* floats, half* halves, std::size_t count)
{
    convert(floats, halves, count);
}

}  // namespace koImage
