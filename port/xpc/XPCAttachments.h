// The descriptors that travel beside a dictionary: those passed by the caller, and memory files that hold
// values too large for the frame.
//
// Thread-safety: building belongs to one thread; the const functions may be called from many threads once
// building has ended.
#pragma once

#include "xpc/XPCHold.h"
#include "xpc/XPCLimits.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <port/UniqueFd.h>

namespace port {

// A sealed memory file that holds a copy of the bytes; none when it cannot be made.
UniqueFd makeValueFile(const void* bytes, std::size_t length);

class XPCAttachments {
public:
    XPCAttachments() = default;
    XPCAttachments(XPCAttachments&&) noexcept = default;
    XPCAttachments& operator=(XPCAttachments&&) noexcept = default;
    ~XPCAttachments() = default;

    std::size_t size() const { return slots_ == nullptr ? 0 : slots_->used; }

    // False, with the descriptor closed, when kMaxDescriptors are held or memory is short. One that a peer sent
    // is closed by the closer, always.
    enum class Origin { Here, Peer };
    bool append(UniqueFd descriptor, Origin origin = Origin::Here);
    // Puts another descriptor in a place, for a value of `valueBytes` bytes (0: for itself).
    void replaceAt(std::size_t index, UniqueFd descriptor, std::size_t valueBytes);
    void removeAt(std::size_t index);
    // True when the descriptor is a memory file of exactly `bytes` bytes that nobody can change any more, and there
    // is room for what peers send; it can be mapped from then on.
    bool acceptValue(std::size_t index, std::size_t bytes);

    // Borrowed.
    int descriptor(std::size_t index) const { return slots_->slot[index].fd.get(); }
    // A new one, close-on-exec; -1 with errno when none is left.
    int duplicate(std::size_t index) const;
    // The value in an accepted memory file, mapped at the first call, valid until it is replaced or removed;
    // null when mapping fails.
    const void* map(std::size_t index) const;

private:
    struct Slot {
        UniqueFd fd;
        Origin origin = Origin::Here;
        std::atomic<bool> inUse{false}; // somebody has a duplicate
        std::atomic<void*> mapping{nullptr};
        XPCHold value; // its bytes; 0: no value, never mapped

        Slot() = default;
        Slot& operator=(Slot&& other) noexcept;
        ~Slot() { clear(); }
        void clear();
    };
    struct Slots {
        std::array<Slot, kMaxDescriptors> slot;
        std::size_t used = 0;
    };

    std::unique_ptr<Slots> slots_; // none for the many dictionaries without descriptors
};

} // namespace port
