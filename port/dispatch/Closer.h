// Closes what other processes have sent, on threads of its own: closing a descriptor may last as long as its
// sender likes (a socket that lingers, a file whose system is the sender's). There is a thread only while there is
// something to close, and one more for each that is stuck, up to kMostThreads.
//
// Thread-safety: every function may be called from any thread. None waits, but where the system has no thread
// left or kMostWaiting descriptors wait already: then the caller closes.
#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <port/UniqueFd.h>

namespace port {

class Closer {
public:
    static constexpr unsigned kMostThreads = 16;
    static constexpr std::size_t kMostWaiting = 4096;

    static Closer& shared();

    // One that was in use.
    void close(UniqueFd descriptor);
    // One that nobody wanted: what a socket still has to send is not waited for.
    void drop(UniqueFd descriptor);
    // Ends a connection to another process, and drops the descriptors that lie unread in it. `quiet`: nothing more
    // comes, the other side has ended or is trusted not to send at this very moment, and need not be kept from it.
    void end(UniqueFd socket, bool quiet = false);

private:
    enum class Manner { Close, Drop, End };
    struct Item {
        int descriptor;
        Manner manner;
    };

    Closer() = default;
    void take(UniqueFd descriptor, Manner manner);
    static void* threadMain(void* closer);
    void work();

    std::mutex mutex_;
    std::array<Item, kMostWaiting> waiting_;
    std::size_t count_ = 0;
    unsigned threads_ = 0;
};

} // namespace port
