// Worker threads: subclasses implement `ThreadFunction`, which runs on a POSIX thread of its own.
//
// A thread is a process interface: its stop request is what the operations that it runs ask for, so it passes
// itself to them and `StopThreadSoon` from any thread ends them early. Its reports are dropped.
//
// Thread-safety: everything may be called from any thread but where it is told.
//
// Every subclass stops and waits for the thread in its own destructor (`_StopAndWait`), one without members
// too: by the time `~LThread` does, its members and its ThreadFunction are gone. `LThreadOf` is the form in
// which that cannot be forgotten: the work is no thread itself, and what makes it one stops it.
//
// A ThreadFunction may end its thread by `pthread_exit`, and the process by `exit`: a static thread object is
// then destroyed without a wait for the thread that exits.
#pragma once

#include <cstdint>
#include <port/Atomic.h>
#include <pthread.h>
#include <utility>

#include "debug/LDebugSignals.h"
#include "threads/LLockObject.h"
#include "threads/LProcessInterface.h"
#include "threads/LSignalObject.h"

#pragma GCC visibility push(default)

class LThread : public LProcessInterface {
public:
    LThread() = default;
    // The name is not used.
    explicit LThread(const char*) {}
    LThread(const LThread&) = delete;
    LThread& operator=(const LThread&) = delete;

    // Starts the thread, unless it runs: then nothing changes, not even the priority. A thread that has ended
    // may be started again. Returns when the new thread has started, or a stop was requested meanwhile. When no
    // thread can be made, or the object's signals cannot be waited on, the object is left without one:
    // `IsRunning` tells.
    void Start(int nPriority);

    // Of a thread that runs: 91 asks for the time-constraint policy, which children do not inherit; any other
    // brings the thread back to the process's own priority. A system that refuses is not reported.
    void SetPriority(int nNewPriority);

    // Requests the stop and returns at once. A request that arrives while the thread starts is seen by it.
    void StopThreadSoon();

    bool IsRunning() const { return bRunning.load(); }
    LSignalObjectRef GetFinishedSignal() const { return finished; }

    // No system call while nobody has requested a stop.
    bool IsToStop() override { return bAsked.load() && stop.IsSignaled(); }
    // True as soon as a stop is requested; POSIX signals do not shorten the wait. Where the stop signal cannot be
    // waited on the wait just lasts its time.
    bool ProcessWait(unsigned int timeout) override;
    // LProcessWaitStopped when a stop is requested, also when both are set. A POSIX signal ends the wait as
    // LProcessWaitFailed.
    int ProcessWaitSignal(LSignalObjectRef signal, unsigned int timeout) override;
    // As above. The group keeps its members and gains the stop signal, which counts as one addition each
    // time.
    int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeout) override;

    // Requests the stop and waits, without a time-out, until the thread has ended.
    virtual ~LThread();

protected:
    // The work; called on the new thread.
    virtual void ThreadFunction() = 0;

    // Requests the stop and waits for the end of a thread that was started. On the thread itself, as when it
    // calls `exit`, there is no wait.
    void _StopAndWait();
    // Whether a thread was made, so that the finished signal is or will be set.
    bool _IsCreated() const { return bCreated; }

    // What LDetachedThread shares.
    void _Prepare(int nNewPriority);
    bool _Create(void* (*pEntry)(void*), void* pArgument);
    void _WaitStarted(int nNewPriority);
    void ThreadCallback();
    void _SetEnded();
    void _SetFinished() { finished.Signal(); }

private:
    static void* _ThreadCallback(void* pThread);
    int _Wait(int nHighest, fd_set& set, unsigned int timeout) const;

    port::Atomic<pthread_t> thread{}; // set by the thread itself, cleared under the handle lock
    port::Atomic<std::uint32_t> dwMachThread{0xFFFFFFFFU};
    port::Atomic<int> nPriority{0};
    port::Atomic<bool> bRunning{false};
    port::Atomic<bool> bAsked{false}; // set whenever the stop signal is
    LSignalObject stop;
    LSignalObject finished;
    LSignalObject started;
    LLockObject startLock;
    LLockObject handleLock; // a handle is used only while the thread that it names cannot end
    bool bCreated = false;  // there was a thread, and its end is told by the finished signal
    bool bUsed = false;     // a thread may have set the signals
};

// A thread of this kind that calls a function object with itself as process interface:
//   LThreadOf copy([&](LProcessInterface& process) { nResult = Process(process, folders); });
// The function runs once for each `Start`. What it uses outlives the thread, which stops in its destructor.
template <typename TWork, typename TThread = LThread>
class LThreadOf final : public TThread {
public:
    template <typename... TArguments>
    explicit LThreadOf(TWork theWork, TArguments&&... arguments)
        : TThread(std::forward<TArguments>(arguments)...), work(std::move(theWork)) {}
    ~LThreadOf() override { this->_StopAndWait(); }

protected:
    void ThreadFunction() override { work(static_cast<LProcessInterface&>(*this)); }

private:
    TWork work;
};

template <typename TWork>
LThreadOf(TWork) -> LThreadOf<TWork>;

#pragma GCC visibility pop
