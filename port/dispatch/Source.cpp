#include "dispatch/Source.h"

namespace port {

SourceTable& SourceTable::shared() {
    static SourceTable& table = *new SourceTable;
    return table;
}

SourceKey SourceTable::add(Source& source) {
    const std::lock_guard lock(mutex_);
    std::uint32_t index = 0;
    if (free_.empty()) {
        index = static_cast<std::uint32_t>(slots_.size());
        slots_.emplace_back();
        free_.reserve(slots_.size()); // so that giving a slot back never allocates
    } else {
        index = free_.back();
        free_.pop_back();
    }
    slots_[index].source = &source;
    return SourceKey{slots_[index].generation} << 32 | index;
}

SourceTable::Slot* SourceTable::find(SourceKey key) {
    const auto index = static_cast<std::uint32_t>(key);
    const auto generation = static_cast<std::uint32_t>(key >> 32);
    if (index >= slots_.size() || slots_[index].generation != generation)
        return nullptr;
    return &slots_[index];
}

// The destructors of sources call this. Whoever is in `pin` meanwhile holds the lock: it is waited for, and
// has found that the last reference is gone.
void SourceTable::remove(SourceKey key) {
    const std::lock_guard lock(mutex_);
    Slot* slot = find(key);
    if (slot == nullptr)
        return;
    slot->source = nullptr;
    if (++slot->generation == 0)
        slot->generation = 1; // generation 0 would make kNoSource a key
    free_.push_back(static_cast<std::uint32_t>(key));
}

Source* SourceTable::pin(SourceKey key) {
    const std::lock_guard lock(mutex_);
    const Slot* slot = find(key);
    if (slot == nullptr || !slot->source->pin())
        return nullptr;
    return slot->source;
}

} // namespace port
