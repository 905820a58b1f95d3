// Work divided among threads.
#pragma once

#include "koBase/export.h"

#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace koUtil {

/// A piece of work that can be done in any number of parts.
class KOBASE_EXPORT ThreadedAlg {
public:
    virtual ~ThreadedAlg();

    /// Does part `threadIndex` of `threadCount`; called from several threads at once, for different parts.
    /// More parts than there is work for is normal: the surplus ones return.
    ///
    /// A part must not wait for another part, nor for a run of another thread: either may begin only after
    /// this part has returned.
    virtual void work(int threadIndex, int threadCount) = 0;
};

/// Threads that sleep until there is work.
///
///   cost      a run without work takes under a microsecond; waking the threads takes tens of them, so parts
///             are worth dividing when they take longer than that
///   threads   any thread may call run; runs on one pool follow one another
///   fork      a forked child has none of these threads: it must not run work
class KOBASE_EXPORT ThreadPool {
public:
    /// The pool of the process, made on first use, of as many threads as there are processors that the
    /// process may use; the environment variable KO_THREADS, if it is a number from 1 to 1024, sets another
    /// count. Lives until the process ends.
    static ThreadPool& get();

    /// A pool of its own, of at least one thread: the one that calls run. Has fewer threads than asked for
    /// where the system refuses them.
    explicit ThreadPool(int threadCount);

    /// Ends its threads. The caller's duty: no run is in progress.
    ~ThreadPool();

    ThreadPool(ThreadPool const&) = delete;
    ThreadPool& operator=(ThreadPool const&) = delete;

    /// The calling thread included.
    int threadCount() const { return static_cast<int>(workers_.size()) + 1; }

    /// Calls alg.work(i, threadCount()) once for each i from 0 to threadCount() - 1 and returns when all have
    /// returned. The calling thread takes part. What the parts wrote is visible to it afterwards.
    ///
    /// Called from inside a part, of any pool, it does its parts one after the other on that thread.
    ///
    ///   failure   the exception of a part is thrown again here, after all parts have returned; of several,
    ///             that of the lowest index, as if the parts had been done in order
    void run(ThreadedAlg& alg);

private:
    void workUntilStopped();
    void doParts(std::unique_lock<std::mutex>& lock);

    std::vector<std::thread> workers_;
    std::mutex oneRun_;  // held during a run

    std::mutex mutex_;  // guards what follows
    std::condition_variable wake_;
    std::condition_variable done_;
    bool stopping_ = false;

    // The run in progress.
    ThreadedAlg* alg_ = nullptr;
    int unclaimed_ = 0;  // parts that no thread has begun
    int unfinished_ = 0;
    int failedIndex_ = 0;
    std::exception_ptr failure_;
};

}  // namespace koUtil
