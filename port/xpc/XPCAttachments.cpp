#include "xpc/XPCAttachments.h"

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
    unmap();
    fd = std::move(other.fd);
    mapping.store(other.mapping.exchange(nullptr, std::memory_order_relaxed), std::memory_order_relaxed);
    valueBytes = std::exchange(other.valueBytes, 0);
    return *this;
}

void XPCAttachments::Slot::unmap() {
    void* const place = mapping.exchange(nullptr, std::memory_order_acquire);
    if (place != nullptr)
        ::munmap(place, valueBytes);
}

bool XPCAttachments::append(UniqueFd descriptor) {
    if (slots_ == nullptr)
        slots_.reset(new (std::nothrow) Slots);
    if (slots_ == nullptr || slots_->used == kMaxDescriptors)
        return false;
    slots_->slot[slots_->used++].fd = std::move(descriptor);
    return true;
}

void XPCAttachments::replaceAt(std::size_t index, UniqueFd descriptor, std::size_t valueBytes) {
    Slot& slot = slots_->slot[index];
    slot = Slot();
    slot.fd = std::move(descriptor);
    slot.valueBytes = valueBytes;
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
    if (::fstat(slot.fd.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    const int seals = ::fcntl(slot.fd.get(), F_GET_SEALS);
    if (seals == -1 || (seals & kSeals) != kSeals || static_cast<std::size_t>(status.st_size) != bytes)
        return false;
    slot.valueBytes = bytes;
    return true;
}

const void* XPCAttachments::map(std::size_t index) const {
    Slot& slot = slots_->slot[index];
    void* known = slot.mapping.load(std::memory_order_acquire);
    if (known != nullptr)
        return known;
    void* const fresh = ::mmap(nullptr, slot.valueBytes, PROT_READ, MAP_PRIVATE, slot.fd.get(), 0);
    if (fresh == MAP_FAILED)
        return nullptr;
    // Two readers may map at the same time; the first one's mapping stays.
    if (!slot.mapping.compare_exchange_strong(known, fresh, std::memory_order_acq_rel)) {
        ::munmap(fresh, slot.valueBytes);
        return known;
    }
    return fresh;
}

} // namespace port
