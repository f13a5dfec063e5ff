// The descriptors that travel beside a dictionary: those passed by the caller, and memory files that hold
// values too large for the frame.
//
// Thread-safety: building belongs to one thread; the const functions may be called from many threads once
// building has ended.
#pragma once

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

    // False, with the descriptor closed, when kMaxDescriptors are held or memory is short.
    bool append(UniqueFd descriptor);
    // Puts another descriptor in a place, for a value of `valueBytes` bytes (0: for itself).
    void replaceAt(std::size_t index, UniqueFd descriptor, std::size_t valueBytes);
    void removeAt(std::size_t index);
    // True when the descriptor is a memory file of exactly `bytes` bytes that nobody can change any more; it
    // can be mapped from then on.
    bool acceptValue(std::size_t index, std::size_t bytes);

    // Borrowed.
    int descriptor(std::size_t index) const { return slots_->slot[index].fd.get(); }
    // The value in an accepted memory file, mapped at the first call, valid until it is replaced or removed;
    // null when mapping fails.
    const void* map(std::size_t index) const;

private:
    struct Slot {
        UniqueFd fd;
        std::atomic<void*> mapping{nullptr};
        std::size_t valueBytes = 0; // 0: no value, never mapped

        Slot() = default;
        Slot& operator=(Slot&& other) noexcept;
        ~Slot() { unmap(); }
        void unmap();
    };
    struct Slots {
        std::array<Slot, kMaxDescriptors> slot;
        std::size_t used = 0;
    };

    std::unique_ptr<Slots> slots_; // none for the many dictionaries without descriptors
};

} // namespace port
