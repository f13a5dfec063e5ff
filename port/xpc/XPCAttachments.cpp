#include "xpc/XPCAttachments.h"

#include "dispatch/Closer.h"
#include "host/SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>
#include <utility>

namespace port {
namespace {

// With these nobody, the sender included, can make a mapped page change or vanish under the reader.
constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

} // namespace

UniqueFd makeValueFile(const void* bytes, std::size_t length) {
    UniqueFd file(::memfd_create("xpc-value", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file || !sys::writeAll(file.get(), bytes, length) || ::fcntl(file.get(), F_ADD_SEALS, kSeals) != 0)
        return UniqueFd();
    return file;
}

XPCAttachments::Slot& XPCAttachments::Slot::operator=(Slot&& other) noexcept {
    clear();
    fd = std::move(other.fd);
    origin = other.origin;
    inUse.store(other.inUse.load(std::memory_order_relaxed), std::memory_order_relaxed);
    mapping.store(other.mapping.exchange(nullptr, std::memory_order_relaxed), std::memory_order_relaxed);
    value = std::move(other.value);
    return *this;
}

// The close of a memory file does not wait for anybody.
void XPCAttachments::Slot::clear() {
    void* const place = mapping.exchange(nullptr, std::memory_order_acquire);
    if (place != nullptr)
        ::munmap(place, value.bytes());
    if (fd && origin == Origin::Peer && value.bytes() == 0)
        inUse.load(std::memory_order_relaxed) ? Closer::shared().close(std::move(fd))
                                              : Closer::shared().drop(std::move(fd));
    fd.reset();
}

bool XPCAttachments::append(UniqueFd descriptor, Origin origin) {
    if (slots_ == nullptr)
        slots_.reset(new (std::nothrow) Slots);
    if (slots_ != nullptr && slots_->used != kMaxDescriptors) {
        Slot& slot = slots_->slot[slots_->used++];
        slot.fd = std::move(descriptor);
        slot.origin = origin;
        return true;
    }
    if (origin == Origin::Peer)
        Closer::shared().drop(std::move(descriptor));
    return false;
}

// Any thread; the flag decides only how the descriptor is closed, so no order is asked of it.
int XPCAttachments::duplicate(std::size_t index) const {
    Slot& slot = slots_->slot[index];
    slot.inUse.store(true, std::memory_order_relaxed);
    return sys::duplicate(slot.fd.get());
}

void XPCAttachments::replaceAt(std::size_t index, UniqueFd descriptor, std::size_t valueBytes) {
    Slot& slot = slots_->slot[index];
    slot = Slot();
    slot.fd = std::move(descriptor);
    slot.value = XPCHold(valueBytes);
}

void XPCAttachments::removeAt(std::size_t index) {
    auto& slot = slots_->slot;
    std::move(slot.begin() + static_cast<std::ptrdiff_t>(index) + 1,
              slot.begin() + static_cast<std::ptrdiff_t>(slots_->used),
              slot.begin() + static_cast<std::ptrdiff_t>(index));
    slot[--slots_->used] = Slot();
}

bool XPCAttachments::acceptValue(std::size_t index, std::size_t bytes) {
    Slot& slot = slots_->slot[index];
    struct stat status {};
    if (slot.origin == Origin::Peer && !XPCHold::hasRoom(bytes))
        return false;
    if (::fstat(slot.fd.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    const int seals = ::fcntl(slot.fd.get(), F_GET_SEALS);
    if (seals == -1 || (seals & kSeals) != kSeals || static_cast<std::size_t>(status.st_size) != bytes)
        return false;
    slot.value = XPCHold(bytes);
    return true;
}

const void* XPCAttachments::map(std::size_t index) const {
    Slot& slot = slots_->slot[index];
    void* known = slot.mapping.load(std::memory_order_acquire);
    if (known != nullptr)
        return known;
    void* const fresh = ::mmap(nullptr, slot.value.bytes(), PROT_READ, MAP_PRIVATE, slot.fd.get(), 0);
    if (fresh == MAP_FAILED)
        return nullptr;
    // Two readers may map at the same time; the first one's mapping stays.
    if (!slot.mapping.compare_exchange_strong(known, fresh, std::memory_order_acq_rel)) {
        ::munmap(fresh, slot.value.bytes());
        return known;
    }
    return fresh;
}

} // namespace port
