// Events on pipes: a flag that one thread sets and others wait for, alone or together with other signals.
//
// A signal is manual-reset: once set it stays set, and every wait on it returns at once, until somebody
// resets it. Waiting never consumes it. What a thread did before it set a signal is visible to a thread whose
// wait saw it.
//
// Thread-safety: setting, resetting and waiting may happen at the same time on any threads; a reset that
// races with a setting leaves either state. A group is filled and waited on by one thread at a time.
//
// Time-outs are milliseconds; LNoTimeLimit waits without end. A wait blocks in one `select` and polls
// nothing. Descriptors outside 0 to 1023 fit no `select`: waits on them fail and a group refuses them.
#pragma once

#include <sys/select.h>

#pragma GCC visibility push(default)

constexpr unsigned int LNoTimeLimit = 0xFFFFFFFFU;

// A handle to a signal, freely copied, owning nothing; it must not outlive the signal.
class LSignalObjectRef {
public:
    LSignalObjectRef() = default;
    LSignalObjectRef(int nReadDescriptor, int nWriteDescriptor)
        : nRead(nReadDescriptor), nWrite(nWriteDescriptor) {}

    void Signal() const;
    void Reset() const;
    // Exact: true only when the signal is set, whatever POSIX signals arrive meanwhile. Never blocks.
    bool IsSignaled() const;

    // True when one of the signals waited for is set, which one is not told; true as well when a POSIX signal
    // interrupted the wait, so a caller to whom that matters asks `IsSignaled` afterwards. False when the
    // time has passed or the wait failed.
    bool WaitSignal(unsigned int timeout) const;
    bool WaitSignalDual(LSignalObjectRef other, unsigned int timeout) const;
    bool WaitSignalTriple(LSignalObjectRef second, LSignalObjectRef third, unsigned int timeout) const;

    // `select` for reading on the descriptors 0 to `nHighest` of the set, with the results of the waits
    // above. After a success that no POSIX signal made, the set holds the readable descriptors.
    static bool Select(int nHighest, fd_set& set, unsigned int timeout);
    // The same with the result of `select` itself: the number of readable descriptors, 0 when the time has
    // passed, -1 with errno.
    static int SelectReadable(int nHighest, fd_set& set, unsigned int timeout);
    // Whether `select` can watch the descriptor.
    static bool FitsSelect(int nDescriptor) { return nDescriptor >= 0 && nDescriptor < FD_SETSIZE; }

    int GetReadDescriptor() const { return nRead; }

private:
    int nRead = -1;
    int nWrite = -1;
};

// The signal itself; it owns the two ends of a pipe, close-on-exec, and starts reset. When no pipe can be
// had, waits fail and setting does nothing.
class LSignalObject {
public:
    LSignalObject();
    LSignalObject(const LSignalObject&) = delete;
    LSignalObject& operator=(const LSignalObject&) = delete;
    ~LSignalObject();

    operator LSignalObjectRef() const { return {nRead, nWrite}; }

    // False when there is no pipe, or none whose end fits a `select`: it cannot be waited on.
    bool IsUsable() const { return LSignalObjectRef::FitsSelect(nRead); }

    void Signal() const { LSignalObjectRef(*this).Signal(); }
    void Reset() const { LSignalObjectRef(*this).Reset(); }
    bool IsSignaled() const { return LSignalObjectRef(*this).IsSignaled(); }
    bool WaitSignal(unsigned int timeout) const { return LSignalObjectRef(*this).WaitSignal(timeout); }
    // For a loop that looks at its condition after each wait: true when the signal is set; false when a POSIX
    // signal came, and after a millisecond when it is not usable.
    bool WaitInLoop() const;
    // Whatever POSIX signals come; without end when it is not usable.
    void WaitUntilSet() const {
        while (!WaitInLoop()) {
        }
    }

private:
    int nRead = -1;
    int nWrite = -1;
};

// Up to 256 additions of signals that are waited for together.
class LSignalObjectGroup {
public:
    LSignalObjectGroup();

    // An addition past the 256th, or of a descriptor that fits no `select`, does nothing. A signal that is
    // added twice counts twice.
    void Add(LSignalObjectRef signal);
    // Adds the other group's descriptors in ascending order; the other group stays as it is.
    void Add(LSignalObjectGroup& other);

    // True only when a member is set: a wait that a POSIX signal interrupts gives false here. The group is
    // not changed and can be waited on again.
    bool Select(unsigned int timeout) const;
    bool IsSignaled() const { return Select(0); }

    int GetCount() const { return nCount; }
    // The descriptors of the members, from 0 to the highest one, -1 when there is none.
    int GetHighest() const { return nHighest; }
    bool Contains(int nDescriptor) const { return FD_ISSET(nDescriptor, &set); }

private:
    friend class LThread;
    bool _Add(int nDescriptor);

    fd_set set;
    int nHighest = -1;
    int nCount = 0;
};

constexpr int LSignalObjectGroupMaximum = 256;

#pragma GCC visibility pop
