#include "threads/LSignalObject.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <port/internal/thread_order.h>
#include <port/pipe.h>
#include <unistd.h>

#include "base/LSleep.h"

namespace {

constexpr int kNoDescriptor = -1;
constexpr unsigned int kPollMilliseconds = 1;

} // namespace

void LSignalObjectRef::Signal() const {
    const char byte = 1;
    // A full pipe means that the signal is set already.
    [[maybe_unused]] const ssize_t nWritten = port_order_write(nRead, nWrite, &byte, 1);
}

// Who resets a signal and then looks at what it announces loses nothing: what is set later is a new byte.
void LSignalObjectRef::Reset() const {
    char bytes[64];
    ssize_t nGot;
    // A short read has emptied the pipe; only a full one can have left something behind. An end of file sets
    // no errno, so it ends the loop by its length.
    do
        nGot = read(nRead, bytes, sizeof bytes);
    while (nGot == static_cast<ssize_t>(sizeof bytes) || (nGot < 0 && errno == EINTR));
}

// Even a look that does not wait is interrupted by a POSIX signal that is about to be delivered. The waits
// take that for a success, and their callers ask here what it was. Long work asks here between its units:
// for one descriptor `poll` takes a third of the time of `select`.
bool LSignalObjectRef::IsSignaled() const {
    if (!FitsSelect(nRead))
        return false;
    pollfd look{nRead, POLLIN, 0};
    while (poll(&look, 1, 0) < 0 && errno == EINTR) {
    }
    if (look.revents == 0 || (look.revents & POLLNVAL) != 0)
        return false;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(nRead, &set);
    port_order_acquire(set, nRead);
    return true;
}

bool LSignalObjectRef::WaitSignal(unsigned int timeout) const {
    if (!FitsSelect(nRead))
        return false;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(nRead, &set);
    return Select(nRead, set, timeout);
}

bool LSignalObjectRef::WaitSignalDual(LSignalObjectRef other, unsigned int timeout) const {
    if (!FitsSelect(nRead) || !FitsSelect(other.nRead))
        return false;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(nRead, &set);
    FD_SET(other.nRead, &set);
    return Select(std::max(nRead, other.nRead), set, timeout);
}

bool LSignalObjectRef::WaitSignalTriple(LSignalObjectRef second, LSignalObjectRef third,
                                        unsigned int timeout) const {
    if (!FitsSelect(nRead) || !FitsSelect(second.nRead) || !FitsSelect(third.nRead))
        return false;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(nRead, &set);
    FD_SET(second.nRead, &set);
    FD_SET(third.nRead, &set);
    return Select(std::max({nRead, second.nRead, third.nRead}), set, timeout);
}

// The time-out is rebuilt for each call because `select` may change it.
int LSignalObjectRef::SelectReadable(int nHighest, fd_set& set, unsigned int timeout) {
    timeval limit{static_cast<time_t>(timeout / 1000), static_cast<suseconds_t>(timeout % 1000 * 1000)};
    const int nReady =
        select(nHighest + 1, &set, nullptr, nullptr, timeout == LNoTimeLimit ? nullptr : &limit);
    if (nReady > 0)
        port_order_acquire(set, nHighest);
    return nReady;
}

bool LSignalObjectRef::Select(int nHighest, fd_set& set, unsigned int timeout) {
    const int nReady = SelectReadable(nHighest, set, timeout);
    return nReady > 0 || (nReady < 0 && errno == EINTR);
}

LSignalObject::LSignalObject() {
    int ends[2];
    if (port_pipe(ends, O_NONBLOCK) != 0)
        return;
    nRead = ends[0];
    nWrite = ends[1];
}

LSignalObject::~LSignalObject() {
    if (nRead != kNoDescriptor)
        port_close_pipe(nRead, nWrite);
}

// A signal without a pipe, or one above what `select` takes, cannot be waited on: the caller's loop then looks
// every millisecond instead of spinning.
bool LSignalObject::WaitInLoop() const {
    if (IsUsable()) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(nRead, &set);
        const int nReady = LSignalObjectRef::SelectReadable(nRead, set, LNoTimeLimit);
        if (nReady > 0 || errno == EINTR)
            return nReady > 0;
    }
    LSleepMilliseconds(kPollMilliseconds);
    return false;
}

LSignalObjectGroup::LSignalObjectGroup() {
    FD_ZERO(&set);
}

bool LSignalObjectGroup::_Add(int nDescriptor) {
    if (nCount >= LSignalObjectGroupMaximum || !LSignalObjectRef::FitsSelect(nDescriptor))
        return false;
    FD_SET(nDescriptor, &set);
    nHighest = std::max(nHighest, nDescriptor);
    ++nCount;
    return true;
}

void LSignalObjectGroup::Add(LSignalObjectRef signal) {
    _Add(signal.GetReadDescriptor());
}

void LSignalObjectGroup::Add(LSignalObjectGroup& other) {
    for (int nDescriptor = 0; nDescriptor <= other.nHighest; ++nDescriptor)
        if (FD_ISSET(nDescriptor, &other.set) && !_Add(nDescriptor))
            return;
}

// `select` writes into its set; the group is to be used again.
bool LSignalObjectGroup::Select(unsigned int timeout) const {
    fd_set copy = set;
    return LSignalObjectRef::SelectReadable(nHighest, copy, timeout) > 0;
}
