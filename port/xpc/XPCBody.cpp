#include "xpc/XPCBody.h"

#include "xpc/XPCLimits.h"

#include <mutex>
#include <new>
#include <vector>

namespace port {
namespace {

constexpr std::size_t kWorthKeeping = std::size_t{16} << 10; // bytes
constexpr std::size_t kMaxKept = kKeptBodyBytes / kWorthKeeping;

// The blocks that were given back, the latest, whose bytes are still in the processor's cache, at the end.
class KeptBodies {
public:
    static KeptBodies& shared() {
        static KeptBodies& kept = *new KeptBodies;
        return kept;
    }

    XPCBody take(std::size_t bytes) {
        const std::lock_guard lock(mutex_);
        for (auto place = bodies_.rbegin(); place != bodies_.rend(); ++place) {
            if (place->get_deleter().capacity < bytes)
                continue;
        }
        return {};
    }

private:
    std::mutex mutex_;
    std::vector<XPCBody> bodies_;
    std::size_t bytes_ = 0;
};

} // namespace
} // namespace port
