#include "dispatch/MainLoop.h"
#include "dispatch/WorkerPool.h"

#include <array>
#include <atomic>
#include <chrono>
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>
#include <random>
#include <semaphore>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using port::MainLoop;

template <typename Condition>
bool reached(Condition condition, std::chrono::milliseconds limit = 10s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(1ms);
    return condition();
}

// What one queue has seen: blocks of several producers, each numbered in its own order.
struct Record {
    std::atomic<bool> busy{false};
    std::vector<std::array<int, 2>> seen;

    void note(int producer, int number) {
        EXPECT_FALSE(busy.exchange(true)) << "two blocks at a time";
        seen.push_back({producer, number});
        busy = false;
    }
    void expectAllInOrder(int producers, int each) const {
        std::vector<int> next(static_cast<std::size_t>(producers), 0);
        for (const auto& [producer, number] : seen)
            ASSERT_EQ(number, next[static_cast<std::size_t>(producer)]++) << "producer " << producer;
        EXPECT_EQ(next, std::vector<int>(next.size(), each));
    }
};

// The first queue is the main one, served here.
TEST(Queues, RunBlocksOfManyThreadsInOrderAndOneAtATime) {
    constexpr int kQueues = 6;
    constexpr int kProducers = 4;
    constexpr int kEach = 2000;
    std::array<Record, kQueues> records;
    std::array<dispatch_queue_t, kQueues> queues{dispatch_get_main_queue()};
    for (std::size_t q = 1; q < kQueues; ++q)
        queues[q] = dispatch_queue_create("test", nullptr);
    std::atomic<int> done{0};
    const auto here = std::this_thread::get_id();
    const auto produce = [&](int producer) {
        std::minstd_rand random(static_cast<unsigned>(producer + 1));
        for (int number = 0; number < kEach; ++number) {
            const bool pause = random() % 8 == 0; // suspensions from all sides must balance
            for (std::size_t q = 0; q < kQueues; ++q) {
                if (pause && q != 0)
                    dispatch_suspend(queues[q]);
                dispatch_async(queues[q], [&, q, producer, number] {
                    EXPECT_TRUE(q != 0 || std::this_thread::get_id() == here);
                    records[q].note(producer, number);
                    ++done;
                });
                if (pause && q != 0)
                    dispatch_resume(queues[q]);
            }
        }
    };
    std::vector<std::thread> threads;
    for (int producer = 0; producer < kProducers; ++producer)
        threads.emplace_back(produce, producer);
    while (records[0].seen.size() < kProducers * kEach)
        ASSERT_TRUE(MainLoop::shared().runOnce(10000));
    EXPECT_FALSE(MainLoop::shared().runOnce(0));
    for (auto& thread : threads)
        thread.join();
    ASSERT_TRUE(reached([&] { return done == kQueues * kProducers * kEach; })) << done;
    for (const Record& record : records)
        record.expectAllInOrder(kProducers, kEach);
    for (std::size_t q = 1; q < kQueues; ++q)
        dispatch_release(queues[q]);
}

TEST(SerialQueue, RunsNothingWhileSuspendedAndLivesUntilItsLastBlockHasRun) {
    const dispatch_queue_t queue = dispatch_queue_create("test", nullptr);
    std::atomic<int> ran{0};
    dispatch_suspend(queue);
    dispatch_suspend(queue);
    for (int i = 0; i < 4; ++i) {
        dispatch_async(queue, [&, i] {
            if (i == 1)
                dispatch_suspend(queue); // from inside: the block ends, the next one waits
            if (i == 2)
                std::this_thread::sleep_for(20ms); // the queue is released meanwhile
            ++ran;
        });
    }
    dispatch_resume(queue);
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(ran, 0);
    dispatch_resume(queue);
    EXPECT_TRUE(reached([&] { return ran == 2; }));
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(ran, 2);
    dispatch_resume(queue);
    dispatch_release(queue);
    EXPECT_TRUE(reached([&] { return ran == 4; }));
}

TEST(Workers, LeaveWhenThereIsNoMoreWorkAndComeBackForBlocksThatWait) {
    constexpr int kStuck = 6; // more than the usual number of workers of a small machine
    const dispatch_queue_t global = dispatch_get_global_queue(0, 0);
    static std::counting_semaphore<> release(0); // a block may still be inside of it when the test ends
    for (int round = 0; round < 2; ++round) {
        std::atomic<int> freed{0};
        for (int i = 0; i < kStuck; ++i) {
            dispatch_async(global, [&] {
                release.acquire();
                ++freed;
            });
        }
        dispatch_async(global, [&] { release.release(kStuck); });
        ASSERT_TRUE(reached([&] { return freed == kStuck; })) << freed;
        EXPECT_GT(port::WorkerPool::shared().workerCount(), 0U);
        if (round == 0) {
            EXPECT_TRUE(reached([] { return port::WorkerPool::shared().workerCount() == 0; }, 30s));
        }
    }
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

} // namespace
