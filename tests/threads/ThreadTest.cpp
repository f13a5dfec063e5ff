#include "base/LDeadline.h"
#include "threads/LDetachedThread.h"
#include "threads/LProcessRun.h"
#include "threads/LThread.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

int Rounds(int nShort) {
    return std::getenv("LFOUNDATION_TORTURE") != nullptr ? 10000 : nShort;
}

// Sends SIGUSR1 to the calling thread again and again until the result is destroyed.
std::jthread SignalStorm() {
    signal(SIGUSR1, [](int) {});
    return std::jthread([target = pthread_self()](const std::stop_token& end) {
        for (; !end.stop_requested(); usleep(2000))
            pthread_kill(target, SIGUSR1);
    });
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
        if (bWait)
            this->ProcessWait(LNoTimeLimit);
    }
    void Wait() const { LSignalObjectRef(this->GetFinishedSignal()).WaitSignal(LNoTimeLimit); }
    static inline std::atomic<int> nAlive{0};
    const bool bWait;
    int nRuns = 0;
};

TEST(LThreadTest, StartsAgainAndSurvivesDestructionInEveryState) {
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
    signal.Signal();
    for (int i = 0; i < 10000; ++i) // a storm does not hide what is set
        ASSERT_EQ(self.ProcessWaitSignal(signal, LNoTimeLimit), LProcessWaitSignaled);
}

TEST(LDetachedThreadTest, DeletesItselfOrIsStoppedByItsOwner) {
    using Detached = Worker<LDetachedThread>;
    for (int i = 0; i < Rounds(200); ++i) {
        LDetachedThreadsOwner owner;
        for (int j = 0; j < 3; ++j) {
            auto* pThread = new Detached((i + j) % 2 == 0);
            owner.Add(pThread);
            pThread->StartDetached(owner, 31);
        }
        if (i % 2 != 0)
            continue; // the owner's destructor does it
        owner.StopThreadsNow();
        EXPECT_EQ(Detached::nAlive.load(), 0) << "round " << i;
    }
    EXPECT_EQ(Detached::nAlive.load(), 0);
}

// What reaches the outermost interface.
struct Recorder : LProcessInterfaceVoid {
    std::string sLast;
    void SetStatus(const char* szText, int nLine) override { sLast = std::to_string(nLine) + " " + szText; }
    void SetProgress(double dFraction) override { sLast = std::to_string(dFraction); }
};

TEST(LProcessInterfaceTest, StepsMapProgressAndStatusThroughEveryLevel) {
    Recorder whole;
    LProcessInterfaceSubProcess half(whole, 0.5, 0.5);
    LProcessInterfaceSubProcess quarter(half, 0.5, 0.5);
    quarter.SetProgress(0.5);
    EXPECT_EQ(whole.sLast, "0.875000");
    quarter.SetStatusF(1, "%lld%s", 5000000000LL, std::string(9000, 'x').c_str());
    EXPECT_EQ(whole.sLast, "3 5000000000" + std::string(LProcessTextSize - 11, 'x'));
}

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
    EXPECT_EQ(ProcessRunCommand(process, "sleep 1", nExitCode), LProcessStopped);
    EXPECT_EQ(nExitCode, -1);
}

} // namespace
