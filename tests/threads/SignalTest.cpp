#include "threads/LSignalObject.h"
#include "threads/LSignalObjectNamed.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

long MillisecondsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Sends SIGUSR1 to a thread again and again while it lives.
class SignalStorm {
public:
    explicit SignalStorm(pthread_t target)
        : thread([this, target] {
              while (!bEnd.load()) {
                  pthread_kill(target, SIGUSR1);
                  std::this_thread::sleep_for(std::chrono::milliseconds(2));
              }
          }) {}
    ~SignalStorm() {
        bEnd.store(true);
        thread.join();
    }

private:
    std::atomic<bool> bEnd{false};
    std::thread thread;
};

class SignalTest : public testing::Test {
protected:
    void SetUp() override {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
    }
};

TEST_F(SignalTest, StaysSetUntilItIsReset) {
    LSignalObject signal;
    EXPECT_FALSE(signal.IsSignaled());
    // More settings than a pipe holds bytes: the surplus must neither block nor be lost sight of.
    for (int i = 0; i < 70000; ++i)
        signal.Signal();
    EXPECT_TRUE(signal.WaitSignal(LNoTimeLimit));
    EXPECT_TRUE(signal.IsSignaled());
    signal.Reset();
    EXPECT_FALSE(signal.IsSignaled());
}

TEST_F(SignalTest, WaitsForTheFirstOfSeveral) {
    LSignalObject signals[3];
    const LSignalObjectRef first = signals[0], second = signals[1], third = signals[2];
    EXPECT_FALSE(first.WaitSignalDual(second, 0));
    EXPECT_FALSE(first.WaitSignalTriple(second, third, 0));
    for (const LSignalObject& signal : signals) {
        signal.Signal();
        EXPECT_TRUE(first.WaitSignalTriple(second, third, 0));
        EXPECT_TRUE(third.WaitSignalTriple(first, second, 0));
        EXPECT_EQ(first.WaitSignalDual(second, 0), &signal != &signals[2]);
        signal.Reset();
    }
}

TEST_F(SignalTest, TimesOutOnTimeAndWakesAtOnce) {
    LSignalObject signal;
    auto start = Clock::now();
    EXPECT_FALSE(signal.WaitSignal(120));
    EXPECT_GE(MillisecondsSince(start), 119);
    int seen = 0;
    std::thread setter([&] {
        seen = 42;
        signal.Signal();
    });
    EXPECT_TRUE(signal.WaitSignal(LNoTimeLimit));
    EXPECT_EQ(seen, 42); // the wait orders memory: the thread sanitizer looks at this line
    setter.join();
}

TEST_F(SignalTest, AnInterruptionLooksSetToASignalAndNotToAGroup) {
    LSignalObject signal;
    LSignalObjectGroup group;
    group.Add(signal);
    const SignalStorm storm(pthread_self());
    const auto start = Clock::now();
    EXPECT_TRUE(signal.WaitSignal(20000));
    EXPECT_FALSE(group.Select(20000));
    EXPECT_LT(MillisecondsSince(start), 10000);
    EXPECT_FALSE(signal.IsSignaled());
}

TEST_F(SignalTest, GroupsCountAdditionsUpTo256) {
    LSignalObject signal, other, last;
    LSignalObjectGroup group, empty;
    group.Add(empty);
    EXPECT_EQ(group.GetCount(), 0);
    for (int i = 0; i < LSignalObjectGroupMaximum - 1; ++i)
        group.Add(signal);
    LSignalObjectGroup two;
    two.Add(other);
    two.Add(last);
    group.Add(two); // only the lower descriptor still fits
    EXPECT_EQ(group.GetCount(), LSignalObjectGroupMaximum);
    last.Signal();
    EXPECT_FALSE(group.IsSignaled());
    other.Signal();
    EXPECT_TRUE(group.Select(1000));
    EXPECT_TRUE(group.IsSignaled());
}

TEST_F(SignalTest, DescriptorsThatFitNoSelectAreRefused) {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit wanted{2048, limit.rlim_max};
    if (limit.rlim_max < 2048 || setrlimit(RLIMIT_NOFILE, &wanted) != 0)
        GTEST_SKIP() << "no descriptors above 1023 to be had";
    const int nHigh = fcntl(0, F_DUPFD_CLOEXEC, 1024);
    ASSERT_GE(nHigh, 1024);
    LSignalObject normal;
    for (const int nDescriptor : {nHigh, -1}) {
        const LSignalObjectRef refused(nDescriptor, nDescriptor);
        EXPECT_FALSE(refused.WaitSignal(0));
        EXPECT_FALSE(LSignalObjectRef(normal).WaitSignalDual(refused, 0));
        LSignalObjectGroup group;
        group.Add(refused);
        EXPECT_EQ(group.GetCount(), 0);
    }
    close(nHigh);
    setrlimit(RLIMIT_NOFILE, &limit);
}

// Both ends in processes of their own, in a private home.
TEST_F(SignalTest, NamedSignalsReachAnotherProcess) {
    char name[] = "/tmp/signals-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    setenv("XDG_DATA_HOME", name, 1);
    const std::string sSocket = std::string(name) + "/event";
    {
        LSignalObjectNamed waiting("event");
        EXPECT_FALSE(waiting.WaitSignal(30)); // nobody signals
        EXPECT_FALSE(waiting.WaitSignal(5000)) << "the socket of the wait that timed out is in the way";
        unlink(sSocket.c_str());
        const pid_t child = fork();
        if (child == 0) {
            for (int i = 0; i < 200 && access(sSocket.c_str(), F_OK) != 0; ++i)
                usleep(10000);
            usleep(10000);
            LSignalObjectNamed("event").Signal();
            _exit(0);
        }
        EXPECT_TRUE(waiting.WaitSignal(LNoTimeLimit));
        waiting.Reset(); // ends, because the signaller has closed its end
        waitpid(child, nullptr, 0);
    }
    EXPECT_NE(access(sSocket.c_str(), F_OK), 0);
    LSignalObjectNamed("nobody").Signal();
    LSignalObjectNamed tooLong(std::string(200, 'n').c_str());
    EXPECT_FALSE(tooLong.WaitSignal(5000));
    rmdir(name);
}

} // namespace
