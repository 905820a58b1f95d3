#include "koBase/thread_pool.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

#ifdef __linux__
#include <sched.h>
#endif

namespace koUtil {

namespace {

// True while this thread does a part. One flag for all pools: with one for each, parts of two pools that run
// each other could wait for each other for ever.
thread_local bool insidePart = false;

std::exception_ptr doPart(ThreadedAlg& alg, int index, int count)
{
    bool const outer = std::exchange(insidePart, true);
    std::exception_ptr failure;
    try {
        alg.work(index, count);
    } catch (...) {
        failure = std::current_exception();
    }
    insidePart = outer;
    return failure;
}

int usableProcessors()
{
#ifdef __linux__
    // Fewer than the machine has in a container or under taskset. Fails where the machine has more than the
    // set has room for.
    cpu_set_t processors;
    if (sched_getaffinity(0, sizeof processors, &processors) == 0)
        return CPU_COUNT(&processors);
#endif
    return static_cast<int>(std::thread::hardware_concurrency());
}

int defaultThreadCount()
{
    char const* const variable = std::getenv("KO_THREADS");
    std::string_view const text = variable != nullptr ? variable : "";
    int count = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    bool const isNumber = error == std::errc() && end == text.data() + text.size();
    return isNumber && count >= 1 && count <= 1024 ? count : usableProcessors();
}

}  // namespace

ThreadedAlg::~ThreadedAlg() = default;

ThreadPool& ThreadPool::get()
{
    // Never destroyed: other static objects may still run work when the process ends, and a forked child
    // would wait for threads that it does not have.
    static ThreadPool& pool = *new ThreadPool(defaultThreadCount());
    return pool;
}

ThreadPool::ThreadPool(int threadCount)
{
    auto const workers = static_cast<std::size_t>(std::max(threadCount, 1) - 1);
    workers_.reserve(workers);
    try {
        while (workers_.size() < workers)
            workers_.emplace_back([this] { workUntilStopped(); });
    } catch (std::exception const&) {
        // No thread or no memory is left: those that have started do all the work.
    }
}

ThreadPool::~ThreadPool()
{
    {
        std::lock_guard const lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (std::thread& worker : workers_)
        worker.join();
}

void ThreadPool::run(ThreadedAlg& alg)
{
    int const count = threadCount();
    std::exception_ptr failure;

    if (insidePart) {
        for (int index = 0; index < count; ++index) {
            std::exception_ptr const partFailure = doPart(alg, index, count);
            if (!failure)
                failure = partFailure;
        }
    } else {
        std::lock_guard const oneRun(oneRun_);
        std::unique_lock lock(mutex_);
        alg_ = &alg;
        unclaimed_ = unfinished_ = failedIndex_ = count;
        wake_.notify_all();
        doParts(lock);
        done_.wait(lock, [this] { return unfinished_ == 0; });
        failure = std::exchange(failure_, nullptr);
    }

    if (failure)
        std::rethrow_exception(failure);
}

void ThreadPool::workUntilStopped()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || unclaimed_ > 0; });
        if (stopping_)
            return;
        doParts(lock);
    }
}

// Takes parts, in order, until none is left. The lock is held on entry and on return, not during a part.
void ThreadPool::doParts(std::unique_lock<std::mutex>& lock)
{
    int const count = threadCount();
    while (unclaimed_ > 0) {
        int const index = count - unclaimed_--;
        ThreadedAlg& alg = *alg_;

        lock.unlock();
        std::exception_ptr failure = doPart(alg, index, count);
        lock.lock();

        if (failure && index < failedIndex_) {
            failedIndex_ = index;
            failure_ = std::move(failure);
        }
        if (--unfinished_ == 0)
            done_.notify_one();
    }
}

}  // namespace koUtil
