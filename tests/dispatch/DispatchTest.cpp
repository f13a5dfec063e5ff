#include "dispatch/MainLoop.h"
#include "dispatch/WorkerPool.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>
#include <random>
#include <semaphore>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using port::MainLoop;
using port::WorkerPool;

void sleepFor(std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
}

template <typename Condition>
bool reached(Condition condition, std::chrono::milliseconds limit = 10s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition() && std::chrono::steady_clock::now() < end)
        sleepFor(1ms);
    return condition();
}

// What one serial queue has seen: blocks of several producers, each numbered in its own order.
struct Record {
    std::atomic<bool> busy{false};
    std::atomic<bool> overlapped{false};
    std::vector<std::array<int, 2>> seen;

    void note(int producer, int number) {
        if (busy.exchange(true))
            overlapped = true;
        seen.push_back({producer, number});
        busy = false;
    }
    void expectAllInOrder(int producers, int each) const {
        std::vector<int> next(static_cast<std::size_t>(producers), 0);
        for (const auto& [producer, number] : seen)
            ASSERT_EQ(number, next[static_cast<std::size_t>(producer)]++) << "producer " << producer;
        for (const int count : next)
            EXPECT_EQ(count, each);
        EXPECT_FALSE(overlapped);
    }
};

TEST(SerialQueue, RunsBlocksOfManyThreadsInOrderAndOneAtATime) {
    constexpr int kQueues = 5;
    constexpr int kProducers = 4;
    constexpr int kEach = 2000;
    std::array<Record, kQueues> records;
    std::array<dispatch_queue_t, kQueues> queues{};
    for (auto& queue : queues)
        queue = dispatch_queue_create("test", nullptr);
    std::atomic<int> done{0};
    const auto produce = [&](int producer) {
        std::minstd_rand random(static_cast<unsigned>(producer + 1));
        for (int number = 0; number < kEach; ++number) {
            const bool pause = random() % 8 == 0; // suspensions from all sides must balance
            for (std::size_t q = 0; q < kQueues; ++q) {
                if (pause)
                    dispatch_suspend(queues[q]);
                dispatch_async(queues[q], [&, q, producer, number] {
                    records[q].note(producer, number);
                    ++done;
                });
                if (pause)
                    dispatch_resume(queues[q]);
            }
        }
    };
    std::vector<std::thread> threads;
    for (int producer = 0; producer < kProducers; ++producer)
        threads.emplace_back(produce, producer);
    for (auto& thread : threads)
        thread.join();
    ASSERT_TRUE(reached([&] { return done == kQueues * kProducers * kEach; })) << done;
    for (std::size_t q = 0; q < kQueues; ++q) {
        records[q].expectAllInOrder(kProducers, kEach);
        dispatch_release(queues[q]);
    }
}

TEST(SerialQueue, RunsNothingWhileSuspended) {
    const dispatch_queue_t queue = dispatch_queue_create("test", nullptr);
    std::atomic<int> ran{0};
    dispatch_suspend(queue);
    dispatch_suspend(queue);
    for (int i = 0; i < 3; ++i) {
        dispatch_async(queue, [&, i] {
            ++ran;
            if (i == 1)
                dispatch_suspend(queue); // from inside: the block ends, the next one waits
        });
    }
    dispatch_resume(queue);
    sleepFor(30ms);
    EXPECT_EQ(ran, 0);
    dispatch_resume(queue);
    EXPECT_TRUE(reached([&] { return ran == 2; }));
    sleepFor(30ms);
    EXPECT_EQ(ran, 2);
    dispatch_resume(queue);
    EXPECT_TRUE(reached([&] { return ran == 3; }));
    dispatch_release(queue);
}

TEST(SerialQueue, LivesUntilItsLastBlockHasRun) {
    std::atomic<bool> ran{false};
    const dispatch_queue_t queue = dispatch_queue_create("test", nullptr);
    dispatch_async(queue, [] { sleepFor(20ms); });
    dispatch_async(queue, [&] { ran = true; });
    dispatch_release(queue);
    EXPECT_TRUE(reached([&] { return ran.load(); }));
}

TEST(Workers, ABlockThatWaitsDoesNotStopTheOthers) {
    constexpr int kStuck = 6; // more than the usual number of workers of a small machine
    std::counting_semaphore<> release(0);
    std::atomic<int> freed{0};
    const dispatch_queue_t global = dispatch_get_global_queue(0, 0);
    for (int i = 0; i < kStuck; ++i) {
        dispatch_async(global, [&] {
            release.acquire();
            ++freed;
        });
    }
    dispatch_async(global, [&] { release.release(kStuck); });
    EXPECT_TRUE(reached([&] { return freed == kStuck; })) << freed;
}

TEST(Workers, LeaveWhenThereIsNoMoreWork) {
    std::atomic<bool> ran{false};
    dispatch_async(dispatch_get_global_queue(0, 0), [&] { ran = true; });
    ASSERT_TRUE(reached([&] { return ran.load(); }));
    EXPECT_GT(WorkerPool::shared().workerCount(), 0U);
    EXPECT_TRUE(reached([] { return WorkerPool::shared().workerCount() == 0; }, 30s));
    ran = false; // and come back
    dispatch_async(dispatch_get_global_queue(0, 0), [&] { ran = true; });
    EXPECT_TRUE(reached([&] { return ran.load(); }));
}

TEST(MainQueue, RunsOnTheThreadInsideTheLoopInOrder) {
    constexpr int kProducers = 4;
    constexpr int kEach = 1000;
    Record record;
    std::vector<std::thread> threads;
    std::atomic<bool> elsewhere{false};
    const auto here = std::this_thread::get_id();
    for (int producer = 0; producer < kProducers; ++producer) {
        threads.emplace_back([&, producer] {
            for (int number = 0; number < kEach; ++number) {
                dispatch_async(dispatch_get_main_queue(), [&, producer, number] {
                    elsewhere = elsewhere || std::this_thread::get_id() != here;
                    record.note(producer, number);
                });
            }
        });
    }
    while (record.seen.size() < kProducers * kEach)
        ASSERT_TRUE(MainLoop::shared().runOnce(10000));
    for (auto& thread : threads)
        thread.join();
    record.expectAllInOrder(kProducers, kEach);
    EXPECT_FALSE(elsewhere);
    EXPECT_FALSE(MainLoop::shared().runOnce(0));
}

TEST(MainQueue, ALoopInsideABlockRunsNoOtherBlock) {
    bool second = false;
    dispatch_async(dispatch_get_main_queue(), [&] {
        EXPECT_FALSE(MainLoop::shared().runOnce(20));
        EXPECT_FALSE(second);
    });
    dispatch_async(dispatch_get_main_queue(), [&] { second = true; });
    while (!second)
        ASSERT_TRUE(MainLoop::shared().runOnce(10000));
}

TEST(MainLoop, CallsBackForItsDescriptorsUntilTheyAreRemoved) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    int calls = 0;
    port::SourceKey key = port::kNoSource;
    key = MainLoop::shared().addSource(ends[0], [&] {
        if (++calls == 3)
            MainLoop::shared().removeSource(key, ends[0]);
    });
    ASSERT_EQ(write(ends[1], "x", 1), 1); // never read, so ready for good
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(MainLoop::shared().runOnce(10000));
    EXPECT_FALSE(MainLoop::shared().runOnce(20));
    EXPECT_EQ(calls, 3);
    close(ends[0]);
    close(ends[1]);
}

TEST(MainLoop, IsWokenFromAnotherThread) {
    std::thread waker([] {
        sleepFor(20ms);
        MainLoop::shared().wake();
    });
    EXPECT_FALSE(MainLoop::shared().runOnce(-1));
    waker.join();
}

TEST(ExitDeathTest, FromAWorkerWhileOthersWork) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const dispatch_queue_t global = dispatch_get_global_queue(0, 0);
            for (int i = 0; i < 200; ++i) {
                dispatch_async(global, [i] {
                    if (i == 100)
                        std::exit(7);
                });
                dispatch_async(dispatch_get_main_queue(), [] {});
            }
            dispatch_main();
        },
        testing::ExitedWithCode(7), "");
}

} // namespace
