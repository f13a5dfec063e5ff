// Things with a descriptor, told when it is ready, and the table through which an event of the kernel finds
// the thing that it is about, or finds that it is gone.
//
// Thread-safety: the table may be used from any thread.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace port {

// What a source did when it was told that it is ready.
enum class SourceResult {
    Done,
    MoreIsNear, // what came belongs to a stream whose next part may come within microseconds
    UserCalled, // user code ran, which only a source of the main loop runs
};

class Source {
public:
    // Takes a reference unless the last one is already gone. Called under the table's lock.
    virtual bool pin() noexcept = 0;
    virtual void unpin() noexcept = 0;
    // `events` as epoll reports them. Must not run user code on a worker: a source reads, and puts what it
    // has read in line.
    virtual SourceResult ready(std::uint32_t events) = 0;
    // The time that was asked for has come.
    virtual void expired() {}

protected:
    ~Source() = default;
};

// Names a source for as long as it is in the table, and no other ever after.
using SourceKey = std::uint64_t;
constexpr SourceKey kNoSource = 0;

class SourceTable {
public:
    static SourceTable& shared();

    SourceKey add(Source& source);
    // From here on no event reaches the source, but for one that is being delivered. kNoSource is allowed.
    void remove(SourceKey key);
    // The source, pinned; null when it is gone.
    Source* pin(SourceKey key);

private:
    struct Slot {
        Source* source = nullptr;
        std::uint32_t generation = 1;
    };

    SourceTable() = default;
    Slot* find(SourceKey key);

    std::mutex mutex_;
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_;
};

} // namespace port
