#include "koBase/thread_pool.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>

namespace {

struct Nothing : koUtil::ThreadedAlg {
    void work(int, int) override {}
};

// Each part keeps its processor busy for a time.
struct Busy : koUtil::ThreadedAlg {
    explicit Busy(std::int64_t microseconds) : time_(microseconds) {}

    void work(int, int) override
    {
        auto const end = std::chrono::steady_clock::now() + time_;
        while (std::chrono::steady_clock::now() < end)
            ;
    }

private:
    std::chrono::microseconds time_;
};

// What a run costs beside its work.
void BM_emptyRun(benchmark::State& state)
{
    koUtil::ThreadPool pool(static_cast<int>(state.range(0)));
    Nothing alg;
    for (auto _ : state)
        pool.run(alg);
}
BENCHMARK(BM_emptyRun)->ArgName("threads")->Arg(1)->Arg(2)->Arg(8)->UseRealTime();

// The time of a run of parts that each take 100 microseconds: what is above that is lost to waking threads,
// and to sharing processors where there are fewer than threads.
void BM_busyRun(benchmark::State& state)
{
    koUtil::ThreadPool pool(static_cast<int>(state.range(0)));
    Busy alg(100);
    for (auto _ : state)
        pool.run(alg);
}
BENCHMARK(BM_busyRun)->ArgName("threads")->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
