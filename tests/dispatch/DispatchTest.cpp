#include "dispatch/MainLoop.h"
#include "dispatch/Queue.h"
#include "dispatch/WorkerPool.h"
#include "host/SystemCalls.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <dispatch/dispatch.h>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <port/UniqueFd.h>
#include <random>
#include <semaphore>
#include <string>
#include <sys/eventfd.h>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using port::MainLoop;
using port::WorkerPool;

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

// A descriptor in the workers' set. Nobody else holds it, so it need not be counted.
struct Input final : port::Source {
    Input() { EXPECT_TRUE(WorkerPool::shared().epoll().add(fd.get(), EPOLLIN | EPOLLET, key)); }
    ~Input() { port::SourceTable::shared().remove(key); }
    bool pin() noexcept override { return true; }
    void unpin() noexcept override { ++told; }
    port::SourceResult ready(std::uint32_t) override { return port::SourceResult::MoreIsNear; }
    void expired() override { due(); }
    void tell() const { ::eventfd_write(fd.get(), 1); }

    const port::UniqueFd fd{::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
    const port::SourceKey key = port::SourceTable::shared().add(*this);
    std::atomic<int> told{0}; // of input, or that its time has come
    std::function<void()> due = [] {};
};

// Blocks that hold a worker each until it ends.
class Stuck {
public:
    explicit Stuck(int count) {
        for (int i = 0; i < count; ++i)
            dispatch_async(dispatch_get_global_queue(0, 0), [this] {
                ++inside_;
                release_.wait(false);
                --inside_;
            });
        EXPECT_TRUE(reached([&] { return inside_ == count; }, 60s)) << inside_;
    }
    ~Stuck() {
        release_ = true;
        release_.notify_all();
        EXPECT_TRUE(reached([&] { return inside_ == 0; }));
    }

private:
    std::atomic<bool> release_{false};
    std::atomic<int> inside_{0};
};

// Long blocks of one queue end its turn: those of another one come between.
TEST(SerialQueue, ATurnEndsAfterSomeMilliseconds) {
    struct Queue final : port::SerialQueue {
        Queue() : SerialQueue(dispatch_get_main_queue()) {}
    } slow, other;
    std::string order;
    for (int n = 0; n < 3; ++n)
        slow.append(port::Task([&] {
            std::this_thread::sleep_for(25ms);
            order += 's';
        }));
    other.append(port::Task([&] { order += 'o'; }));
    while (order.size() < 4)
        MainLoop::shared().runOnce(100);
    EXPECT_EQ(order, "soss");
}

TEST(Workers, GoOnUpToTheirBoundWhileHandlersAreStuck) {
    constexpr int kMost = WorkerPool::kMaxWorkers;
    Input input;
    for (const int count : {1, 2, 100, kMost - 1, 1}) {
        const Stuck stuck(count);
        const int told = input.told;
        std::atomic<bool> ran{false};
        dispatch_async(dispatch_get_global_queue(0, 0), [&] { ran = true; });
        EXPECT_TRUE(reached([&] { return ran.load(); })) << count;
        input.tell();
        EXPECT_TRUE(reached([&] { return input.told > told; })) << count;
        WorkerPool::shared().callAt(WorkerPool::Clock::now() + 20ms,
                                    input.key); // whoever leads sleeps by then
        EXPECT_TRUE(reached([&] { return input.told > told + 1; })) << count;
    }
    static std::binary_semaphore inside{0}, release{0};
    const auto stuck = [] { inside.release(), release.acquire(); };
    // The only work, and it does not come with input.
    input.due = [&] { dispatch_async(dispatch_get_global_queue(0, 0), stuck); };
    WorkerPool::shared().callAt(WorkerPool::Clock::now() + 20ms, input.key);
    inside.acquire();
    const int told = input.told;
    input.tell();
    EXPECT_TRUE(reached([&] { return input.told > told; }));
    release.release();
}

TEST(Workers, LeaveWhenThereIsNoMoreWorkAndComeBackForInputOnceTheyCanBeMade) {
    static std::atomic<int> lastCalls{0};
    static std::atomic<int> attempts{0};
    std::atomic<bool> ran{false};
    Input input;
    WorkerPool::whenLastLeaves([] { ++lastCalls; });
    { const Stuck notForLong(3); }
    EXPECT_GT(WorkerPool::shared().workerCount(), 0U);
    EXPECT_TRUE(reached([] { return lastCalls == 1; }, 30s));
    EXPECT_EQ(WorkerPool::shared().workerCount(), 0U);
    port::sys::setHook([](auto call) {
        return port::sys::Verdict{call == port::sys::Call::Thread && ++attempts != 0 ? EAGAIN : 0};
    });
    input.tell();
    dispatch_async(dispatch_get_global_queue(0, 0), [&] { ran = true; });
    EXPECT_FALSE(MainLoop::shared().runOnce(200));
    EXPECT_TRUE(attempts > 2 && attempts < 20 && !ran) << attempts;
    port::sys::setHook(nullptr);
    EXPECT_TRUE(reached([&] { return MainLoop::shared().runOnce(1) || (ran && input.told != 0); }));
    EXPECT_GT(WorkerPool::shared().workerCount(), 0U);
}

// Each burst forks, and begins when the one before has just been joined, so that workers are on their way to
// rest. A call that is lost shows as a burst that takes seconds.
TEST(Workers, NoCallIsLostInBursts) {
    constexpr int kWidth = 3;
    const int rounds = std::getenv("LFOUNDATION_TORTURE") != nullptr ? 100'000 : 10'000;
    const dispatch_queue_t serial = dispatch_queue_create("test", nullptr);
    Input input;
    for (int round = 1; round <= rounds; ++round) {
        static std::counting_semaphore<> joined(0); // a block may still be inside of it when the test ends
        for (int i = 0; i < kWidth; ++i)
            dispatch_async(i == 0 ? serial : dispatch_get_global_queue(0, 0), [&] {
                dispatch_async(dispatch_get_global_queue(0, 0), [] { joined.release(); });
                joined.release();
            });
        input.tell();
        for (int i = 0; i < 2 * kWidth; ++i)
            ASSERT_TRUE(joined.try_acquire_for(5s)) << "round " << round;
    }
    EXPECT_TRUE(reached([&] { return input.told != 0; }));
    dispatch_release(serial);
}

// What looked while another began to wait may have taken what was to end that wait.
TEST(LeaderWait, IsEndedOnceAndNoLookLosesIt) {
    port::LeaderWait wait;
    std::mutex mutex;
    std::array<epoll_event, 4> events;
    std::unique_lock lock(mutex);
    EXPECT_FALSE(wait.end()) << "nobody waits";
    wait.makeNextShort();
    auto [count, wasShort] = wait.wait(events, -1, lock);
    EXPECT_TRUE(count == 0 && wasShort);
    std::thread leader([&] {
        std::unique_lock own(mutex);
        EXPECT_FALSE(wait.wait(events, -1, own).wasShort);
    });
    for (; !wait.isOn(); lock.lock())
        lock.unlock();
    EXPECT_TRUE(wait.end());
    EXPECT_FALSE(wait.end());
    std::array<epoll_event, 4> seen;
    wait.look(seen, lock);
    lock.unlock();
    leader.join();
}

TEST(Deadlines, AreTakenSoonestFirst) {
    using namespace std::chrono;
    const port::Deadlines::Clock::time_point now{1h};
    port::Deadlines deadlines;
    deadlines.add(now + 1500us, 3);
    deadlines.add(now, 2);
    deadlines.add(now - 1s, 1);
    EXPECT_EQ(deadlines.millisecondsLeft(now), 0);
    EXPECT_EQ(deadlines.takeDue(now), (std::vector<port::SourceKey>{1, 2}));
    EXPECT_EQ(deadlines.millisecondsLeft(now), 2) << "not before its time";
    EXPECT_EQ(deadlines.takeDue(now + 2ms), std::vector<port::SourceKey>{3});
    EXPECT_TRUE(deadlines.isEmpty());
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
