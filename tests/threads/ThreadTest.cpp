#include "threads/LDetachedThread.h"
#include "threads/LProcessRun.h"
#include "threads/LThread.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {

int Rounds(int nShort) {
    return std::getenv("LFOUNDATION_TORTURE") != nullptr ? 10000 : nShort;
}

long MillisecondsSince(std::chrono::steady_clock::time_point start) {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now() - start).count();
}

// Works until it is stopped, or ends at once.
struct Worker : LThread {
    explicit Worker(bool bUntilStopped) : bWait(bUntilStopped) {}
    ~Worker() override { _StopAndWait(); }
    void ThreadFunction() override {
        ++nRuns;
        if (bWait)
            ProcessWait(LNoTimeLimit);
    }
    void Wait() const {
        while (!LSignalObjectRef(GetFinishedSignal()).WaitSignal(LNoTimeLimit)) {
        }
    }
    const bool bWait;
    int nRuns = 0;
};

TEST(LThreadTest, StartsStopsAndStartsAgain) {
    Worker worker(true);
    for (int i = 1; i <= 50; ++i) {
        worker.Start(i % 2 == 0 ? 91 : 31);
        worker.Start(31); // runs already
        EXPECT_TRUE(worker.IsRunning());
        worker.StopThreadSoon();
        worker.Wait();
        EXPECT_EQ(worker.nRuns, i);
        EXPECT_TRUE(worker.IsToStop());
    }
}

TEST(LThreadTest, SurvivesDestructionInEveryState) {
    for (int i = 0; i < Rounds(500); ++i) {
        Worker worker(i % 2 == 0);
        if (i % 5 != 0)
            worker.Start(31);
        if (i % 3 == 0)
            worker.StopThreadSoon();
        if (i % 7 == 0 && i % 5 != 0 && !worker.bWait) {
            worker.Wait();
            worker.Start(31);
        }
    }
}

TEST(LThreadTest, WaitsTellWhatEndedThem) {
    Worker self(false); // used as a process interface from here
    LSignalObject signal, foreign;
    EXPECT_EQ(self.ProcessWaitSignal(signal, 0), LProcessWaitFailed);
    signal.Signal();
    EXPECT_EQ(self.ProcessWaitSignal(signal, LNoTimeLimit), LProcessWaitSignaled);
    LSignalObjectGroup group;
    group.Add(foreign);
    EXPECT_EQ(self.ProcessWaitSignalObjectGroup(group, 0), LProcessWaitFailed);
    foreign.Signal();
    EXPECT_EQ(self.ProcessWaitSignalObjectGroup(group, 1000), LProcessWaitSignaled);
    EXPECT_EQ(group.GetCount(), 3);
    for (int i = 0; i < LSignalObjectGroupMaximum; ++i)
        group.Add(foreign);
    self.StopThreadSoon();
    EXPECT_EQ(self.ProcessWaitSignalObjectGroup(group, LNoTimeLimit), LProcessWaitStopped);
    EXPECT_EQ(self.ProcessWaitSignal(signal, LNoTimeLimit), LProcessWaitStopped);
    EXPECT_TRUE(self.ProcessWait(LNoTimeLimit));
}

TEST(LThreadTest, PosixSignalsDoNotShortenAWait) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    const pthread_t waiting = pthread_self();
    std::thread storm([waiting] {
        for (int i = 0; i < 100; ++i) {
            pthread_kill(waiting, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    Worker self(false);
    LProcessInterfaceVoid plain;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(self.ProcessWait(100));
    EXPECT_GE(MillisecondsSince(start), 99);
    EXPECT_FALSE(plain.ProcessWait(60));
    EXPECT_GE(MillisecondsSince(start), 158);
    storm.join();
}

struct Detached : LDetachedThread {
    Detached(std::atomic<int>& nCount, bool bUntilStopped) : nAlive(nCount), bWait(bUntilStopped) {
        ++nAlive;
    }
    ~Detached() override {
        _StopAndWait();
        --nAlive;
    }
    void ThreadFunction() override {
        if (bWait)
            ProcessWait(LNoTimeLimit);
    }
    std::atomic<int>& nAlive;
    const bool bWait;
};

TEST(LDetachedThreadTest, DeletesItselfOrIsStoppedByItsOwner) {
    std::atomic<int> nAlive{0};
    for (int i = 0; i < Rounds(200); ++i) {
        LDetachedThreadsOwner owner;
        for (int j = 0; j < 3; ++j) {
            auto* pThread = new Detached(nAlive, (i + j) % 2 == 0);
            owner.Add(pThread);
            pThread->StartDetached(owner, 31);
        }
        if (i % 2 != 0)
            continue; // the owner's destructor does it
        owner.StopThreadsNow();
        EXPECT_EQ(nAlive.load(), 0) << "round " << i;
    }
    EXPECT_EQ(nAlive.load(), 0);
}

// What reaches the outermost interface.
struct Recorder : LProcessInterfaceVoid {
    std::string sLast;
    void SetError(const char* szText) override { sLast = std::string("error ") + szText; }
    void SetStatus(const char* szText, int nLine) override { sLast = std::to_string(nLine) + " " + szText; }
    void SetProgress(double dFraction) override { sLast = std::to_string(dFraction); }
};

TEST(LProcessInterfaceTest, StepsMapProgressAndStatusThroughEveryLevel) {
    Recorder whole;
    LProcessInterfaceSubProcess half(whole, 0.5, 0.5);
    LProcessInterfaceSubProcess quarter(half, 0.5, 0.5);
    quarter.SetProgress(0.5);
    EXPECT_EQ(whole.sLast, "0.875000");
    quarter.SetStatusF(1, "%s %lld", "bytes", 5000000000LL);
    EXPECT_EQ(whole.sLast, "3 bytes 5000000000");
    quarter.SetErrorF("%s", std::string(9000, 'x').c_str());
    EXPECT_EQ(whole.sLast, "error " + std::string(LProcessTextSize - 1, 'x'));
    EXPECT_FALSE(quarter.IsToStop());
}

TEST(LProcessRunTest, TellsHowACommandEnded) {
    LProcessInterfaceVoid process;
    const struct {
        const char* szCommand;
        int nResult, nExitCode;
    } rows[] = {
        {"exit 3", LProcessFinished, 3},
        {"true", LProcessFinished, 0},
        {"", LProcessFinished, 0},
        {"kill -9 $$", LProcessFinished, -1},
        {"no-such-command-here 2>/dev/null", LProcessFinished, 127},
        {"cat >/dev/null", LProcessFinished, 0}, // its input has ended
    };
    for (const auto& row : rows) {
        int nExitCode = 99;
        EXPECT_EQ(ProcessRunCommand(process, row.szCommand, nExitCode), row.nResult) << row.szCommand;
        EXPECT_EQ(nExitCode, row.nExitCode) << row.szCommand;
    }
    Worker stopped(false);
    stopped.StopThreadSoon();
    int nExitCode = 99;
    EXPECT_EQ(ProcessRunCommand(stopped, "sleep 1", nExitCode), LProcessStopped);
    EXPECT_EQ(nExitCode, -1);
}

} // namespace
