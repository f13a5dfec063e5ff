// A signal between processes of one user, by name: a Unix-domain socket in the user's data folder.
//
// Thread-safety: an object belongs to one thread.
//
// One process waits, another signals. The socket file, mode 0600 whatever the process's mask, exists from the first
// wait until the destruction of an object that was signalled; a file left behind by a process that ended, or by a
// wait that timed out, makes waits on that name fail until somebody removes it. A name whose path has more than 103
// bytes is refused: waits fail and signalling does nothing.
#pragma once

#include <port/UniqueFd.h>

#pragma GCC visibility push(default)

constexpr unsigned long LSignalPathSize = 104; // of the platform's socket address, terminator included

class LSignalObjectNamed {
public:
    // Touches nothing on disk.
    explicit LSignalObjectNamed(const char* szName);
    LSignalObjectNamed(const LSignalObjectNamed&) = delete;
    LSignalObjectNamed& operator=(const LSignalObjectNamed&) = delete;
    ~LSignalObjectNamed();

    // Without effect when nobody waits. Does not block.
    void Signal() const;

    // Waits for a signal, milliseconds or LNoTimeLimit; POSIX signals do not end the wait. False when the time
    // has passed, and at once when the socket cannot be made.
    bool WaitSignal(unsigned int timeout);

    // Takes what the signaller sent.
    void Reset() const;

private:
    char szPath[LSignalPathSize];
    port::UniqueFd connection; // of the last successful wait
};

#pragma GCC visibility pop
