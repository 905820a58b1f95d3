#include "koBase/thread_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>

#include <pthread.h>
#include <sched.h>

namespace koUtil {

namespace {

template <class Work>
struct Parts : ThreadedAlg {
    explicit Parts(Work const& work) : work_(work) {}
    void work(int threadIndex, int threadCount) override { work_(threadIndex, threadCount); }

private:
    Work const& work_;
};

template <class Work>
void runParts(ThreadPool& pool, Work const& work)
{
    Parts<Work> alg(work);
    pool.run(alg);
}

constexpr int poolSizes[] = {1, 2, 7};

// Parts of no time at all are mostly done by the caller before another thread wakes: every other one takes
// some.
void takeTime(int index)
{
    if (index % 2 == 0)
        std::this_thread::sleep_for(std::chrono::microseconds(1));
}

// How often each part was done. Plain integers: parts write different ones, and the thread sanitizer sees
// whether the caller may read them after the run.
std::vector<int> callsOfARun(ThreadPool& pool)
{
    std::vector<int> calls(static_cast<std::size_t>(pool.threadCount()));
    runParts(pool, [&](int index, int) {
        takeTime(index);
        ++calls.at(static_cast<std::size_t>(index));
    });
    return calls;
}

std::vector<int> onceEach(ThreadPool const& pool)
{
    return std::vector<int>(static_cast<std::size_t>(pool.threadCount()), 1);
}

[[noreturn]] void printThreadCountAndExit()
{
    std::fprintf(stderr, "threads=%d;", ThreadPool::get().threadCount());
    std::exit(0);
}

}  // namespace

TEST(ThreadPool, HasAsManyThreadsAsAskedForAndAtLeastOne)
{
    for (int const size : poolSizes)
        EXPECT_EQ(ThreadPool(size).threadCount(), size);
    for (int const size : {0, -1, std::numeric_limits<int>::min()})
        EXPECT_EQ(ThreadPool(size).threadCount(), 1);
}

TEST(ThreadPool, DoesEveryPartExactlyOnce)
{
    for (int const size : poolSizes) {
        ThreadPool pool(size);
        EXPECT_EQ(callsOfARun(pool), onceEach(pool));
    }
}

TEST(ThreadPool, TellsEachPartHowManyThereAre)
{
    for (int const size : poolSizes) {
        ThreadPool pool(size);
        std::atomic<int> wrong = 0;
        runParts(pool, [&](int index, int count) {
            takeTime(index);
            wrong += count != size;
        });
        EXPECT_EQ(wrong, 0);
    }
}

TEST(ThreadPool, DoesRunAfterRun)
{
    for (int const size : poolSizes) {
        ThreadPool pool(size);
        for (int i = 0; i < 1000; ++i)
            ASSERT_EQ(callsOfARun(pool), onceEach(pool)) << "run " << i;
    }
}

TEST(ThreadPool, EndsWithOrWithoutRuns)
{
    for (int i = 0; i < 50; ++i) {
        ThreadPool const idle(7);
        ThreadPool busy(7);
        EXPECT_EQ(callsOfARun(busy), onceEach(busy));
    }
}

TEST(ThreadPool, OfOneThreadRunsOnTheCaller)
{
    ThreadPool pool(1);
    std::thread::id thread;
    runParts(pool, [&](int, int) { thread = std::this_thread::get_id(); });
    EXPECT_EQ(thread, std::this_thread::get_id());
}

// The parts wait for each other, which parts must not do: here it shows that each has a thread of its own.
TEST(ThreadPool, DoesItsPartsAtTheSameTimeTheCallerAmongThem)
{
    ThreadPool pool(3);
    for (int round = 0; round < 3; ++round) {
        std::mutex mutex;
        std::condition_variable arrived;
        std::vector<std::thread::id> threads;
        bool together = true;
        runParts(pool, [&](int, int) {
            std::unique_lock lock(mutex);
            threads.push_back(std::this_thread::get_id());
            arrived.notify_all();
            together = together &&
                       arrived.wait_for(lock, std::chrono::seconds(60), [&] { return threads.size() == 3; });
        });
        EXPECT_TRUE(together);
        EXPECT_EQ(std::count(threads.begin(), threads.end(), std::this_thread::get_id()), 1);

        // The threads of the first round may still have been on their way; those of the next ones sleep.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

TEST(ThreadPool, ReturnsOnlyAfterEveryPart)
{
    ThreadPool pool(7);
    std::atomic<int> returned = 0;
    runParts(pool, [&](int index, int) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5 * index));
        ++returned;
    });
    EXPECT_EQ(returned, 7);
}

TEST(ThreadPool, SleepsWhileItWaits)
{
    ThreadPool pool(4);
    std::clock_t const start = std::clock();  // processor time of all threads
    runParts(pool, [&](int index, int) {
        if (index == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(400));
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 0.2);
}

TEST(ThreadPool, DoesARunFromInsideAPartInOrderOnThatThread)
{
    for (int const size : poolSizes) {
        ThreadPool pool(size);
        auto const parts = static_cast<std::size_t>(size);
        std::vector<std::vector<int>> order(parts);
        std::atomic<int> strangers = 0;
        runParts(pool, [&](int outer, int) {
            auto const thread = std::this_thread::get_id();
            runParts(pool, [&](int inner, int count) {
                strangers += std::this_thread::get_id() != thread || count != size;
                order[static_cast<std::size_t>(outer)].push_back(inner);
            });
        });

        std::vector<int> ascending(parts);
        std::iota(ascending.begin(), ascending.end(), 0);
        EXPECT_EQ(order, std::vector<std::vector<int>>(parts, ascending));
        EXPECT_EQ(strangers, 0);
    }
}

TEST(ThreadPool, DoesRunsInsideRunsAtAnyDepth)
{
    ThreadPool pool(3);
    std::atomic<int> leaves = 0;
    runParts(pool, [&](int, int) {
        runParts(pool, [&](int, int) {
            runParts(pool, [&](int, int) { runParts(pool, [&](int, int) { ++leaves; }); });
        });
    });
    EXPECT_EQ(leaves, 81);
    EXPECT_EQ(callsOfARun(pool), onceEach(pool)) << "afterwards in parallel again";
}

TEST(ThreadPool, DoesNotDeadlockWithAnotherPool)
{
    ThreadPool first(3);
    ThreadPool second(2);
    std::atomic<int> leaves = 0;
    auto const crossed = [&leaves](ThreadPool& one, ThreadPool& other) {
        for (int i = 0; i < 200; ++i)
            runParts(one, [&](int index, int) {
                takeTime(index);
                runParts(other, [&](int, int) { runParts(one, [&](int, int) { ++leaves; }); });
            });
    };
    std::thread opposite([&] { crossed(second, first); });
    crossed(first, second);
    opposite.join();
    EXPECT_EQ(leaves, 200 * (3 * 2 * 3 + 2 * 3 * 2));
}

TEST(ThreadPool, ThrowsTheExceptionOfAPartAfterAllPartsHaveReturned)
{
    for (int const size : poolSizes)
        for (int failing = 0; failing < size; ++failing) {
            ThreadPool pool(size);
            std::atomic<int> returned = 0;
            try {
                runParts(pool, [&](int index, int) {
                    if (index == failing)
                        throw std::runtime_error("part " + std::to_string(index));
                    std::this_thread::sleep_for(std::chrono::milliseconds(2));
                    ++returned;
                });
                ADD_FAILURE() << "no exception";
            } catch (std::runtime_error const& error) {
                EXPECT_EQ(error.what(), "part " + std::to_string(failing));
                EXPECT_EQ(returned, size - 1);
            }
            EXPECT_EQ(callsOfARun(pool), onceEach(pool)) << "as good as before";
        }
}

TEST(ThreadPool, ThrowsTheExceptionOfTheLowestIndexOfSeveral)
{
    ThreadPool pool(7);
    for (int i = 0; i < 50; ++i) {
        try {
            runParts(pool, [&](int index, int) {
                // The lowest one comes last.
                std::this_thread::sleep_for(std::chrono::milliseconds(index == 2 ? 3 : 0));
                if (index >= 2)
                    throw index;
            });
            ADD_FAILURE() << "no exception";
        } catch (int index) {
            EXPECT_EQ(index, 2);
        }
    }
}

TEST(ThreadPool, ThrowsOutOfARunInsideAPartLikewise)
{
    ThreadPool pool(4);
    std::atomic<int> returned = 0;
    std::atomic<int> caught = 0;
    EXPECT_THROW(runParts(pool,
                          [&](int outer, int) {
                              try {
                                  runParts(pool, [&](int inner, int) {
                                      if (inner == 1 || inner == 2)
                                          throw inner;
                                      ++returned;
                                  });
                              } catch (int inner) {
                                  caught += inner == 1;
                                  if (outer == 3)
                                      throw std::logic_error("passed on");
                              }
                          }),
                 std::logic_error);
    EXPECT_EQ(caught, 4);
    EXPECT_EQ(returned, 8);
    EXPECT_EQ(callsOfARun(pool), onceEach(pool));
}

TEST(ThreadPool, DoesTheRunsOfSeveralThreadsOneAfterTheOther)
{
    constexpr int callers = 4;
    constexpr int runs = 200;
    for (int const size : poolSizes) {
        ThreadPool pool(size);
        std::array<std::atomic<int>, callers> active = {};
        std::array<std::atomic<int>, callers> done = {};
        std::atomic<int> overlaps = 0;

        std::vector<std::thread> threads;
        for (std::size_t me = 0; me < callers; ++me)
            threads.emplace_back([&, me] {
                for (int i = 0; i < runs; ++i)
                    runParts(pool, [&](int index, int) {
                        ++active[me];
                        takeTime(index);
                        for (std::size_t other = 0; other < callers; ++other)
                            overlaps += other != me && active[other] > 0;
                        ++done[me];
                        --active[me];
                    });
            });
        for (std::thread& thread : threads)
            thread.join();

        EXPECT_EQ(overlaps, 0);
        for (auto const& count : done)
            EXPECT_EQ(count, runs * size);
    }
}

TEST(ThreadPool, KeepsTheExceptionsOfConcurrentRunsApart)
{
    ThreadPool pool(3);
    std::atomic<int> right = 0;
    auto const caller = [&](int me) {
        for (int i = 0; i < 200; ++i) {
            try {
                runParts(pool, [&](int index, int) {
                    takeTime(index);
                    if (index == i % 3)
                        throw me;
                });
            } catch (int thrown) {
                right += thrown == me;
            }
        }
    };
    std::thread first(caller, 1);
    std::thread second(caller, 2);
    first.join();
    second.join();
    EXPECT_EQ(right, 400);
}

TEST(ThreadPool, WorksOnTheCallerAloneWhenTheSystemRefusesThreads)
{
    // No address space has room for stacks of this size.
    pthread_attr_t normal;
    ASSERT_EQ(pthread_getattr_default_np(&normal), 0);
    pthread_attr_t enormous;
    ASSERT_EQ(pthread_attr_init(&enormous), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&enormous, std::size_t{1} << 47), 0);
    ASSERT_EQ(pthread_setattr_default_np(&enormous), 0);
    ThreadPool pool(4);
    ASSERT_EQ(pthread_setattr_default_np(&normal), 0);
    pthread_attr_destroy(&enormous);
    pthread_attr_destroy(&normal);

    EXPECT_EQ(pool.threadCount(), 1);
    EXPECT_EQ(callsOfARun(pool), onceEach(pool));
}

TEST(ThreadPool, OfTheProcessIsAlwaysTheSame)
{
    ThreadPool& pool = ThreadPool::get();
    EXPECT_EQ(&pool, &ThreadPool::get());
    EXPECT_EQ(callsOfARun(pool), onceEach(pool));
}

// Death tests of the "threadsafe" style start this program anew, so the pool of the process is made under the
// environment of each test.
class ThreadPoolDeathTest : public ::testing::Test {
protected:
    ThreadPoolDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    ~ThreadPoolDeathTest() override
    {
        GTEST_FLAG_SET(death_test_style, style_);
        if (before_.empty())
            unsetenv("KO_THREADS");
        else
            setenv("KO_THREADS", before_.c_str(), 1);
    }

    static std::string usableProcessors()
    {
        cpu_set_t processors;
        EXPECT_EQ(sched_getaffinity(0, sizeof processors, &processors), 0);
        return "threads=" + std::to_string(CPU_COUNT(&processors)) + ";";
    }

private:
    std::string const style_ = GTEST_FLAG_GET(death_test_style);
    char const* const variable_ = std::getenv("KO_THREADS");
    std::string const before_ = variable_ != nullptr ? variable_ : "";
};

TEST_F(ThreadPoolDeathTest, HasAThreadForEachProcessorThatTheProcessMayUse)
{
    unsetenv("KO_THREADS");
    EXPECT_EXIT(printThreadCountAndExit(), ::testing::ExitedWithCode(0), usableProcessors());
}

TEST_F(ThreadPoolDeathTest, HasOneThreadWhereTheProcessMayUseOneProcessor)
{
    unsetenv("KO_THREADS");
    EXPECT_EXIT(
        {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
            if (sched_setaffinity(0, sizeof one, &one) == 0)
                printThreadCountAndExit();
        },
        ::testing::ExitedWithCode(0), "threads=1;");
}

TEST_F(ThreadPoolDeathTest, TakesItsThreadCountFromTheEnvironment)
{
    for (char const* const value : {"1", "37", "064", "1024"}) {
        setenv("KO_THREADS", value, 1);
        EXPECT_EXIT(printThreadCountAndExit(), ::testing::ExitedWithCode(0),
                    "threads=" + std::to_string(std::atoi(value)) + ";");
    }
}

TEST_F(ThreadPoolDeathTest, IgnoresAnythingElseInTheEnvironment)
{
    for (char const* const value : {"", "0", "-1", "1025", "4294967333", "99999999999999999999", "many",
                                    "37x", "37 ", " 37", "+37", "37.0", "0x25"}) {
        SCOPED_TRACE(value);
        setenv("KO_THREADS", value, 1);
        EXPECT_EXIT(printThreadCountAndExit(), ::testing::ExitedWithCode(0), usableProcessors());
    }
}

TEST_F(ThreadPoolDeathTest, LivesUntilTheVeryEndOfTheProcess)
{
    setenv("KO_THREADS", "3", 1);
    EXPECT_EXIT(
        {
            // Registered before the pool is made, so called after the destructors of what is made later.
            std::atexit([] {
                ThreadPool& pool = ThreadPool::get();
                std::fprintf(stderr, "at exit %d;", callsOfARun(pool) == onceEach(pool));
            });
            callsOfARun(ThreadPool::get());
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "at exit 1;");
}

}  // namespace koUtil
