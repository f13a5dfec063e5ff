#include "xpc/XPCBody.h"

#include "xpc/XPCLimits.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <vector>

namespace port {
namespace {

constexpr std::size_t kWorthKeeping = std::size_t{16} << 10; // bytes
static_assert(2 * kMaxFrameBytes <= kKeptBodyBytes, "any one block may be kept: a growing body doubles");

// The blocks that were given back; the latest, whose bytes are still in the processor's caches, is the last.
class KeptBodies {
public:
    static KeptBodies& shared() {
        static KeptBodies& kept = *new KeptBodies;
        return kept;
    }

    XPCBody take(std::size_t bytes) {
        const std::lock_guard lock(mutex_);
        // Not a much larger one either: what a message costs is reckoned by its own bytes.
        const auto fits = [bytes](const Block& block) {
            return block.capacity >= bytes && block.capacity / 2 <= bytes;
        };
        const auto found = std::find_if(blocks_.rbegin(), blocks_.rend(), fits);
        if (found == blocks_.rend())
            return {};
        XPCBody body(found->bytes, {found->capacity});
        total_ -= found->capacity;
        blocks_.erase(found.base() - 1);
        return body;
    }

    // What is kept longest goes when there is too much.
    void keep(std::byte* bytes, std::size_t capacity) {
        const std::lock_guard lock(mutex_);
        while (total_ + capacity > kKeptBodyBytes) {
            total_ -= blocks_.front().capacity;
            delete[] blocks_.front().bytes;
            blocks_.erase(blocks_.begin());
        }
        blocks_.push_back({bytes, capacity});
        total_ += capacity;
    }

private:
    struct Block {
        std::byte* bytes;
        std::size_t capacity;
    };
    // Never grown, so that giving back does not allocate.
    KeptBodies() { blocks_.reserve(kKeptBodyBytes / kWorthKeeping); }

    std::mutex mutex_;
    std::vector<Block> blocks_;
    std::size_t total_ = 0;
};

} // namespace

void XPCBodyReturn::operator()(std::byte* bytes) const {
    if (capacity >= kWorthKeeping)
        KeptBodies::shared().keep(bytes, capacity);
    else
        delete[] bytes;
}

XPCBody makeXPCBody(std::size_t bytes) {
    if (bytes >= kWorthKeeping) {
        if (XPCBody kept = KeptBodies::shared().take(bytes))
            return kept;
    }
    return XPCBody(new (std::nothrow) std::byte[bytes], {bytes});
}

} // namespace port
