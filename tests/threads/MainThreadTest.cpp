#include "base/LDeadline.h"
#include "support/Recorder.h"
#include "threads/LProcessEventsHandler.h"
#include "threads/LThreadNotifyInterface.h"

#include <array>
#include <gtest/gtest.h>
#include <mutex>
#include <random>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

class MainThreadTest : public testing::Test {
protected:
    void SetUp() override {
        for (int i = 0; i < 2; ++i) // the second does nothing
            LThreadRunOnMainThread::Init();
    }
    void TearDown() override {
        LThreadRunOnMainThread::Destroy();
        EXPECT_EQ(GetNumEventsInQueue(GetMainEventQueue()), 0U);
        EXPECT_EQ(nAlive, 0);
    }
    static inline std::atomic<long> nAlive{0}; // units of work
    static inline std::atomic<long> nMade{0};
    static inline long nRun = 0;

    struct Target {
        ~Target() { EXPECT_FALSE(bOpen); }
        void Post(std::function<void()> function = [] {}) {
            runner.RunOnMainThread(new Work(*this, std::move(function)));
        }
        int Close() {
            runner.ThreadRunOnMainThreadDestroy();
            bOpen = false;
            return runner.GetRefCount();
        }
        LThreadRunOnMainThread runner;
        bool bOpen = true;
    };

    struct Work : LThreadRunOnMainThreadData {
        Work(Target& owner, std::function<void()> work) : target(owner), function(std::move(work)) {
            ++nAlive;
            ++nMade;
        }
        ~Work() override { EXPECT_GE(--nAlive, 0); }
        void MainThreadFunction() override {
            EXPECT_TRUE(LIsMainThread() && target.bOpen && target.runner.GetRefCount() >= 1);
            ++nRun;
            function();
        }
        Target& target;
        std::function<void()> function;
    };
};

TEST_F(MainThreadTest, WorkOfManyThreadsIsRunOrDeletedOnceWhileTargetsComeAndGo) {
    constexpr int nThreads = 8, nPosts = 5000, nSlots = 6;
    nRun = nMade = 0;
    std::mutex lock;
    std::array<std::shared_ptr<Target>, nSlots> slots;
    for (auto& slot : slots)
        slot = std::make_shared<Target>();
    LSignalObject done;
    std::atomic<int> nLeft{nThreads};
    const auto post = [&](unsigned int dwSeed) {
        std::minstd_rand random(dwSeed);
        for (int i = 0; i < nPosts; ++i) {
            std::unique_lock scope(lock);
            const std::shared_ptr<Target> pTarget = slots[random() % nSlots];
            scope.unlock();
            pTarget->Post(); // closed meanwhile, perhaps, and destroyed here
        }
        if (--nLeft == 0)
            done.Signal();
    };
    std::vector<std::jthread> threads;
    for (unsigned int i = 0; i < nThreads; ++i)
        threads.emplace_back(post, i + 1);
    std::minstd_rand random(99);
    while (ProcessWaitSignalObjectAndProcessEvents(done, 1) != LProcessWaitSignaled) {
        auto& slot = slots[random() % nSlots];
        EXPECT_EQ(slot->Close(), 0);
        const std::lock_guard scope(lock);
        slot = std::make_shared<Target>();
    }
    threads.clear();
    LProcessClearCurrentEvents();
    EXPECT_EQ(nMade, nThreads * nPosts);
    EXPECT_GT(nRun, 0);
    for (auto& slot : slots)
        EXPECT_EQ(slot->Close(), 0);
}

TEST_F(MainThreadTest, AClosedTargetRunsNothingAndAFunctionMayCloseAndDeleteItsOwn) {
    const auto never = [] { ADD_FAILURE() << "its target is closed"; };
    auto pTarget = std::make_unique<Target>();
    for (int i = 0; i < 3; ++i)
        pTarget->Post(never);
    EXPECT_EQ(pTarget->runner.GetRefCount(), 3);
    for (int i = 0; i < 2; ++i, pTarget->Post(never))
        EXPECT_EQ(pTarget->Close(), 0);
    EXPECT_EQ(nAlive, 0);
    pTarget = std::make_unique<Target>();
    pTarget->Post([&] {
        pTarget->Close();
        pTarget.reset();
        pTarget = std::make_unique<Target>(); // often at the same place
    });
    pTarget->Post(never);
    EXPECT_TRUE(LProcessClearCurrentEvents());
    EXPECT_EQ(pTarget->runner.GetRefCount(), 0);
    LThreadRunOnMainThread::Destroy(); // which has nobody to run the next one
    pTarget->Post(never);
    EXPECT_EQ(pTarget->Close(), 0);
}

TEST_F(MainThreadTest, ReportsOfAThreadArriveAtItsReceiver) {
    const auto report = [](LProcessInterface& process) {
        EXPECT_FALSE(LIsMainThread());
        for (const double dFraction : {0.999, 0.29, 0.57, 0.565, 1.0, -0.5, 1.0 / 0.0})
            process.SetProgress(dFraction);
        process.SetErrorF("%lld%s", 5000000000LL, std::string(9000, 'e').c_str());
        for (int i = 1; i <= 10; ++i)
            process.SetStatusF(0, " line %d", i);
        process.SetStatus(std::string(300, 's').c_str(), 1);
        process.SetStatus("nowhere", 2);
        process.SetProgressIndeterminateOn();
        process.SetProgressIndeterminateOff();
        process.SetProgress(-0.5); // again, since something else came between
        for (int i = 0; i < 1000; ++i)
            process.SetProgress(i % 2 * 0.1);
        process.SetProgressIndeterminateOn();
        for (const double dFraction : {0.3, 0.4}) // too many wait still
            process.SetProgress(dFraction);
    };
    Recorder receiver;
    std::string sExpected =
        "|0.990000|0.280000|0.560000|1.000000|-0.500000|5000000000" + std::string(LProcessTextSize - 11, 'e');
    for (int i = 0; i < 10; ++i)
        sExpected += "|0 line 10";
    sExpected += "|1" + std::string(259, 's') + "|on|off|-0.500000";
    for (int i = 6; i < 128; ++i)
        sExpected += i % 2 == 0 ? "|0.000000" : "|0.100000";
    sExpected += "|on|0.400000"; // in place of the last of so many
    LThreadOf reporter(report, &receiver), dropped(report, &receiver);
    LThreadOf<decltype(report), LThreadNotifyInterface> silent(report, &receiver, false);
    reporter.WaitAndDeliver(); // there is no thread yet
    for (auto* pReporter : std::initializer_list<LThreadNotifyInterface*>{&reporter, &silent}) {
        pReporter->Start(31);
        while (!pReporter->GetFinishedSignal().WaitSignal(LNoTimeLimit)) {
        }
        pReporter->WaitAndDeliver();
    }
    EXPECT_EQ(receiver.sTold, sExpected);
    dropped.Start(31);
}

struct Bare : LThreadQueuedNotify {
    ~Bare() override { ThreadQueuedNotifyDestroy(); }
    void EvQueuedNotify() override { function(); }
    std::function<void()> function;
};

// A wait that polls has many changes of context, one that spins uses the processor.
struct Usage {
    rusage before = Get();
    static rusage Get() {
        rusage now{};
        getrusage(RUSAGE_THREAD, &now);
        return now;
    }
    static long Time(const rusage& usage) { return usage.ru_utime.tv_usec + usage.ru_stime.tv_usec; }
    void ExpectIdle() const {
        EXPECT_LT(Get().ru_nvcsw - before.ru_nvcsw, 12);
        EXPECT_LT((Time(Get()) - Time(before) + 2000000) % 1000000, 20000);
    }
};

std::jthread SetAfter(unsigned int milliseconds, LSignalObjectRef signal) {
    return std::jthread([milliseconds, signal] {
        usleep(milliseconds * 1000);
        signal.Signal();
    });
}

TEST_F(MainThreadTest, WaitsSleepUntilTheSignalOrTheTime) {
    const LDeadline late(15000);
    LSignalObject signal, set, never;
    LSignalObjectGroup group, idle;
    set.Signal();
    idle.Add(never);
    for (const LSignalObject* pMember : {&never, &signal, &signal})
        group.Add(*pMember);
    const Usage plain;
    EXPECT_EQ(ProcessWaitAndProcessEvents(2000), LProcessWaitSignaled);
    plain.ExpectIdle();
    for (const bool bGroup : {false, true}) {
        const Usage usage;
        signal.Reset();
        const std::jthread setter = SetAfter(60, signal);
        EXPECT_EQ(bGroup ? ProcessWaitSignalObjectGroupAndProcessEvents(group, 20000)
                         : ProcessWaitSignalObjectAndProcessEvents(signal, LNoTimeLimit),
                  LProcessWaitSignaled);
        usage.ExpectIdle();
    }
    EXPECT_EQ(ProcessWaitSignalObjectAndProcessEvents(set, 0), LProcessWaitFailed);
    EXPECT_EQ(ProcessWaitSignalObjectAndProcessEvents(set), LProcessWaitSignaled);
    EXPECT_EQ(ProcessWaitSignalObjectGroupAndProcessEvents(idle, 30), LProcessWaitFailed);
    EXPECT_EQ(ProcessWaitSignalObjectAndProcessEvents(LSignalObjectRef(), 30), LProcessWaitFailed);
    EXPECT_FALSE(late.IsPast());
}

// The outer wait's signal is set while the inner ones wait: it wakes them once, not for ever.
TEST_F(MainThreadTest, NestedWaitsKeepTheirSignalsApartAndTheirWakeUpsToThemselves) {
    LSignalObject outer, inner;
    int nWakeUps = 0;
    const auto count = [](EventHandlerCallRef, EventRef, void* pCount) -> OSStatus {
        return noErr * ++*static_cast<int*>(pCount);
    };
    const EventTypeSpec wakeUp{0x4C536E63, 0x4C536E6B};
    EventHandlerRef installed = nullptr;
    InstallEventHandler(GetApplicationEventTarget(), count, 1, &wakeUp, &nWakeUps, &installed);
    std::jthread setter;
    Bare notify;
    notify.function = [&] {
        const Usage usage;
        const std::jthread first = SetAfter(10, outer), second = SetAfter(60, inner);
        EXPECT_EQ(ProcessWaitSignalObjectAndProcessEvents(inner, 20000), LProcessWaitSignaled);
        EXPECT_EQ(ProcessWaitSignalObjectAndProcessEvents(outer, 20000), LProcessWaitSignaled);
        EXPECT_EQ(ProcessWaitAndProcessEvents(50), LProcessWaitSignaled);
        usage.ExpectIdle();
        outer.Reset(); // the outer wait is armed anew
        setter = SetAfter(20, outer);
    };
    notify.PostQueueNotify();
    EXPECT_EQ(ProcessWaitSignalObjectAndProcessEvents(outer, 20000), LProcessWaitSignaled);
    outer.Reset();
    notify.function = [&] {
        outer.Signal();
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, 0); // its wake-up is posted and not waited for
    };
    notify.PostQueueNotify();
    EXPECT_EQ(ProcessWaitSignalObjectAndProcessEvents(outer, 20000), LProcessWaitSignaled);
    EXPECT_EQ(GetNumEventsInQueue(GetMainEventQueue()), 0U);
    EXPECT_EQ(nWakeUps, 0);
    RemoveEventHandler(installed);
}

struct StopAfter final : LProcessEventsHandler {
    explicit StopAfter(int nAsked) : nLeft(nAsked) {}
    bool IsProcessEventHandlerToStop() const override { return nLeft-- <= 0; }
    mutable int nLeft;
};

TEST_F(MainThreadTest, WaitsEndWhenTheHandlerSaysStopOrAnEventOfKind3Came) {
    LSignalObject never;
    EXPECT_EQ(StopAfter(3).ProcessWaitAndProcessEvents(LNoTimeLimit), LProcessWaitStopped);
    EXPECT_EQ(StopAfter(3).ProcessWaitSignalForeverAndProcessEvents(never), LProcessWaitStopped);
    EXPECT_EQ(StopAfter(0).ProcessWaitSignalAndProcessEvents(never, 20000), LProcessWaitStopped);
    for (const UInt32 dwKind : {2U, 3U}) {
        EventRef pEvent = nullptr;
        CreateEvent(nullptr, 77, dwKind, 0, kEventAttributeUserEvent, &pEvent);
        PostEventToQueue(GetMainEventQueue(), pEvent, kEventPriorityStandard);
        ReleaseEvent(pEvent);
        EXPECT_EQ(ProcessWaitAndProcessEvents(30), dwKind == 3 ? LProcessWaitStopped : LProcessWaitSignaled);
    }
}

TEST_F(MainThreadTest, ClearingIsBoundedAndNestedClearingKeepsItsPlace) {
    Bare doubling;
    int nCalls = 0;
    doubling.function = [&] {
        ++nCalls;
        doubling.PostQueueNotify();
        doubling.PostQueueNotify();
    };
    doubling.PostQueueNotify();
    EXPECT_TRUE(LProcessClearEventQueue());
    EXPECT_EQ(nCalls, 6); // 2, then the 3 there are then and one more
    doubling.ThreadQueuedNotifyDestroy();
    Bare nesting;
    int nNext = 0;
    nesting.function = [&] {
        if (nNext++ != 0)
            return;
        EXPECT_TRUE(LProcessClearCurrentEvents()); // takes out the mark of the outer call
        nesting.PostQueueNotify();
    };
    nesting.PostQueueNotify();
    nesting.PostQueueNotify();
    for (const int nExpected : {2, 3, 3}) {
        EXPECT_EQ(LProcessClearCurrentEvents(), nNext != nExpected);
        EXPECT_EQ(nNext, nExpected);
    }
}

} // namespace
