#include "base/LDeadline.h"
#include "base/LSleep.h"
#include "platform/LPipe.h"
#include "support/SignalStorm.h"
#include "support/TemporaryFolder.h"
#include "threads/LDetachedThread.h"
#include "threads/LLockFile.h"
#include "threads/LLockObjectShared.h"
#include "threads/LProcessRun.h"
#include "threads/LThread.h"

#include <atomic>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>

namespace {

int Rounds(int nShort) {
    return std::getenv("LFOUNDATION_TORTURE") != nullptr ? 10000 : nShort;
}

// Works until it is stopped, or ends at once.
template <typename Thread>
struct Worker : Thread {
    explicit Worker(bool bUntilStopped) : bWait(bUntilStopped) { ++nAlive; }
    ~Worker() override {
        this->_StopAndWait();
        --nAlive;
    }
    void ThreadFunction() override {
        ++nRuns;
        if (bWait && this->ProcessWait(LNoTimeLimit))
            nUnasked += bAsked ? 0 : 1;
    }
    void Wait() const {
        while (!this->GetFinishedSignal().IsSignaled()) // a POSIX signal ends a wait
            this->GetFinishedSignal().WaitSignal(LNoTimeLimit);
    }
    static inline std::atomic<int> nAlive{0}, nUnasked{0};
    static inline std::atomic<bool> bAsked{false}; // to stop
    const bool bWait;
    int nRuns = 0;
};

TEST(LThreadTest, StartsAgainAndSurvivesDestructionInEveryState) {
    const std::jthread storm = SignalStorm();
    for (int i = 0; i < Rounds(500); ++i) {
        Worker<LThread> worker(i % 2 == 0);
        for (int nRuns = 1; nRuns <= i % 3; ++nRuns) {
            worker.Start(i % 5 == 0 ? 91 : 31);
            if (worker.bWait)
                worker.Start(31); // runs already
            EXPECT_TRUE(worker.IsRunning() || !worker.bWait);
            worker.StopThreadSoon();
            worker.Wait();
            ASSERT_EQ(worker.nRuns, nRuns);
        }
        if (i % 5 != 0)
            worker.Start(31);
        if (i % 7 == 0)
            worker.StopThreadSoon();
    }
}

TEST(LThreadTest, WaitsTellWhatEndedThem) {
    Worker<LThread> self(false); // used as a process interface from here
    LSignalObject signal, foreign;
    LSignalObjectGroup group;
    group.Add(foreign);
    EXPECT_EQ(self.ProcessWaitSignalObjectGroup(group, 0), LProcessWaitFailed);
    foreign.Signal();
    EXPECT_EQ(self.ProcessWaitSignalObjectGroup(group, 1000), LProcessWaitSignaled);
    EXPECT_EQ(group.GetCount(), 3);
    for (int i = 0; i < LSignalObjectGroupMaximum; ++i)
        group.Add(foreign);
    signal.Signal();
    self.StopThreadSoon();
    EXPECT_EQ(self.ProcessWaitSignalObjectGroup(group, LNoTimeLimit), LProcessWaitStopped);
    EXPECT_EQ(self.ProcessWaitSignal(signal, LNoTimeLimit), LProcessWaitStopped);
    EXPECT_TRUE(self.ProcessWait(LNoTimeLimit));
}

TEST(LThreadTest, PosixSignalsEndWaitsForSignalsOnly) {
    const std::jthread storm = SignalStorm();
    Worker<LThread> self(false);
    LProcessInterfaceVoid plain;
    LSignalObject signal;
    LSignalObjectGroup group;
    const LDeadline whole(159), late(10000);
    EXPECT_FALSE(self.ProcessWait(100));
    EXPECT_FALSE(plain.ProcessWait(60));
    EXPECT_TRUE(whole.IsPast());
    EXPECT_EQ(self.ProcessWaitSignal(signal, 20000), LProcessWaitFailed);
    EXPECT_EQ(plain.ProcessWaitSignal(signal, 20000), LProcessWaitSignaled);
    EXPECT_FALSE(group.Select(20000));
    EXPECT_FALSE(late.IsPast());
    for (const LDeadline span(300); !span.IsPast();) // a storm makes nothing look set
        ASSERT_FALSE(signal.IsSignaled());
    signal.Signal();
    for (int i = 0; i < 10000; ++i) // nor does it hide what is
        ASSERT_EQ(self.ProcessWaitSignal(signal, LNoTimeLimit), LProcessWaitSignaled);
}

using Detached = Worker<LDetachedThread>;

// One owner for all rounds, and threads that end by themselves: what is made next often stands at the address of
// one that is just ending. Another thread starts one while the owner stops all.
TEST(LDetachedThreadTest, DeletesItselfOrIsStoppedByItsOwner) {
    const std::jthread storm = SignalStorm();
    LDetachedThreadsOwner owner;
    for (int i = 0; i < Rounds(2000); ++i) {
        Detached::bAsked = false;
        for (int j = 0; j < 3; ++j)
            EXPECT_TRUE((new Detached((i + j) % 3 == 0))->StartDetached(owner, 31));
        Detached::bAsked = true;
        std::jthread starter;
        if (i % 8 == 0)
            starter = std::jthread([&] { (new Detached(i % 16 == 0))->StartDetached(owner, 31); });
        owner.StopThreadsNow();
        if (starter.joinable())
            starter.join();
        else
            ASSERT_EQ(Detached::nAlive.load(), 0) << "round " << i;
    }
    EXPECT_EQ(Detached::nUnasked.load(), 0);
}

// Work that leaves by `pthread_exit`, and a process that a static thread, or one of a static owner, ends.
TEST(LThreadTest, EndsByPthreadExitAndByExit) {
    LThreadOf leaving([](LProcessInterface&) { pthread_exit(nullptr); });
    for (int i = 0; i < 2; ++i) {
        leaving.Start(31);
        ASSERT_TRUE(leaving.GetFinishedSignal().WaitSignal(10000));
        EXPECT_FALSE(leaving.IsRunning());
    }
    static std::atomic<bool> bStarted{false};
    const auto end = [](LProcessInterface&) {
        bStarted.wait(false);
        exit(7);
    };
    for (const bool bDetached : {false, true})
        EXPECT_EXIT(
            {
                alarm(10);
                static LThreadOf thread(end);
                static LDetachedThreadsOwner owner;
                if (bDetached)
                    (new LThreadOf<decltype(end), LDetachedThread>(end))->StartDetached(owner, 31);
                else
                    thread.Start(31);
                bStarted = true;
                bStarted.notify_one();
                pause();
            },
            testing::ExitedWithCode(7), "");
}

TEST(LThreadTest, APriorityIsTakenBackAndNotInherited) {
    const auto look = [] {
        return std::pair(sched_getscheduler(0) & ~SCHED_RESET_ON_FORK,
                         getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())));
    };
    const auto normal = look();
    auto inherited = normal, back = normal;
    LSignalObject raised;
    LThread* pSelf = nullptr;
    LThreadOf thread([&](LProcessInterface& process) {
        process.ProcessWaitSignal(raised, 10000);
        std::thread([&] { inherited = look(); }).join();
        pSelf->SetPriority(31);
        back = look();
    });
    pSelf = &thread;
    thread.Start(91);
    raised.Signal();
    ASSERT_TRUE(thread.GetFinishedSignal().WaitSignal(10000));
    EXPECT_EQ(inherited.first, normal.first);
    EXPECT_GE(inherited.second, 0); // the kernel's own value, where the whole process has a lower one
    EXPECT_EQ(back, normal);
}

// In a process whose next descriptor is past those that a wait can watch, or that can have no more at all.
struct DescriptorsTest : testing::TestWithParam<rlim_t>, TemporaryFolder {
    DescriptorsTest() {
        getrlimit(RLIMIT_NOFILE, &former);
        const rlimit most{4096, former.rlim_max}, limit{GetParam(), former.rlim_max};
        setrlimit(RLIMIT_NOFILE, &most);
        while (taken.empty() || taken.back().get() < FD_SETSIZE)
            taken.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorsTest() override { setrlimit(RLIMIT_NOFILE, &former); }
    const LSignalObject usable;
    rlimit former{};
    std::vector<port::UniqueFd> taken;
};

TEST_P(DescriptorsTest, NothingHangsAndWhatCannotWorkSaysSo) {
    usable.Signal();
    const LSignalObject signal;
    signal.Signal();
    EXPECT_FALSE(signal.WaitSignal(LNoTimeLimit));
    EXPECT_FALSE(LSignalObjectRef(usable).WaitSignalDual(signal, LNoTimeLimit));
    LSignalObjectGroup group;
    group.Add(signal);
    EXPECT_EQ(group.GetCount(), 0);
    Worker<LThread> worker(true);
    worker.Start(31);
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_EQ(worker.ProcessWaitSignal(usable, LNoTimeLimit), LProcessWaitSignaled);
    const LDeadline whole(19);
    EXPECT_FALSE(worker.ProcessWait(20));
    EXPECT_TRUE(whole.IsPast());
    LDetachedThreadsOwner owner;
    auto* const pDetached = new Detached(true);
    EXPECT_FALSE(pDetached->StartDetached(owner, 31));
    owner.StopThreadsNow(); // it is not the owner's
    delete pDetached;
    int nExitCode = 99;
    EXPECT_EQ(ProcessRunCommand(worker, "true", nExitCode), LProcessFailed);
    LLockObjectShared shared;
    shared.LockShared();
    const std::jthread leaver([&] {
        usleep(5000);
        shared.UnlockShared();
    });
    shared.LockExclusive();
    shared.UnlockExclusive();
    if (GetParam() == 0)
        return;
    LLockFile lock, second;
    EXPECT_TRUE(lock.Lock((root / "file").c_str()) && lock.IsHeld());
    EXPECT_FALSE(second.Lock((root / "file").c_str()));
    LPipeInOut pipe;
    ASSERT_TRUE(pipe._Open("read word; test $word = hello", 0, 0));
    EXPECT_EQ(write(pipe.GetWriteDescriptor(), "hello\n", 6), 6);
    EXPECT_EQ(pipe.Close(), 0);
}

INSTANTIATE_TEST_SUITE_P(HighAndNone, DescriptorsTest, testing::Values(4096, 0));

TEST(LProcessRunTest, TellsHowACommandEndedInAStormToo) {
    const std::jthread storm = SignalStorm();
    Worker<LThread> process(false);
    const std::pair<const char*, int> rows[] = {
        {"sleep 0.02; exit 3", 3}, {"kill -9 $$", -1}, {"/no/such 2>/dev/null", 127}, {"cat >/dev/null", 0}};
    int nExitCode = 99;
    for (const auto& [szCommand, nExpected] : rows) {
        EXPECT_EQ(ProcessRunCommand(process, szCommand, nExitCode), LProcessFinished) << szCommand;
        EXPECT_EQ(nExitCode, nExpected) << szCommand;
    }
    process.StopThreadSoon();
    EXPECT_EQ(ProcessRunCommand(process, "sleep 0.1", nExitCode), LProcessStopped);
    EXPECT_EQ(nExitCode, -1);
    LSleepMilliseconds(400); // the worker ends by itself and frees what it was given
}

} // namespace
