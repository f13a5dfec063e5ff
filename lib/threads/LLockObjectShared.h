// A shared and exclusive lock inside one process, with upgrade and downgrade.
//
// Thread-safety: that is what it is for. Any number of shared holders, or one exclusive holder.
//
// Only one shared holder at a time may upgrade: a second one would wait for the first while the first waits
// for the second to leave. A thread that holds the lock in one way does not lock it anew in the other.
//
// Whoever has left the lock last, and knows that nobody wants it any more, may destroy it.
#pragma once

#include <cstdint>
#include <port/Atomic.h>

#include "threads/LLockObject.h"
#include "threads/LSignalObject.h"

#pragma GCC visibility push(default)

class LLockObjectShared {
public:
    LLockObjectShared() = default;
    LLockObjectShared(const LLockObjectShared&) = delete;
    LLockObjectShared& operator=(const LLockObjectShared&) = delete;
    // Waits the moment that a former holder still needs to tell that it has left.
    ~LLockObjectShared();

    // Blocks while an exclusive holder, or one that waits to be, keeps others out.
    void LockShared();
    // Never blocks.
    void UnlockShared();

    // Blocks until all shared holders have left; new ones may come in while it waits.
    void LockExclusive();
    void UnlockExclusive() { mutex.Unlock(); }

    // A shared holder becomes the exclusive one. Blocks until the other shared holders have left; no new ones
    // come in while it waits.
    void UpgradeLock();
    // The exclusive holder becomes a shared one without letting anybody in between.
    void DowngradeLock();

private:
    static constexpr std::int64_t kOneLeaving = std::int64_t{1} << 32;

    std::int32_t _GetShared() const { return static_cast<std::int32_t>(qwHolders.load()); }
    void _ArmReleased();
    void _LeaveShared();

    LLockObject mutex;
    LSignalObject released;
    port::Atomic<std::int64_t> qwHolders{
        0}; // the shared ones; above 32 bits those that are setting the signal
};

#pragma GCC visibility pop
