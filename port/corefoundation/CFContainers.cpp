#include "corefoundation/CFContainers.h"

#include "corefoundation/CFString.h"

#include <algorithm>
#include <iterator>
#include <mutex>

struct CFArrayCallBacks {};
struct CFDictionaryKeyCallBacks {};
struct CFDictionaryValueCallBacks {};
const CFArrayCallBacks kCFTypeArrayCallBacks;
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

namespace {

using Entry = __CFDictionary::Entry;
using Entries = __CFDictionary::Entries;

constexpr std::size_t kMostAdded = 64; // wait to be sorted, of a small dictionary
constexpr std::size_t kFewAdded = 8;   // are inserted rather than merged

bool isBefore(const Entry& entry, CFStringRef key) {
    return port::compareByCodePoint(entry.key.get(), key) < 0;
}

// The place of the key: its entry, or the one to insert it before.
template <typename Sorted>
auto placeOf(Sorted& entries, CFStringRef key) {
    return std::lower_bound(entries.begin(), entries.end(), key, isBefore);
}

template <typename Sorted, typename Place>
bool holds(const Sorted& entries, Place place, CFStringRef key) {
    return place != entries.end() && place->key.get()->equals(*key);
}

} // namespace

bool __CFArray::equals(const CFObject& other) const {
    const auto& array = static_cast<const __CFArray&>(other);
    return std::equal(values.begin(), values.end(), array.values.begin(), array.values.end(),
                      [](const auto& one, const auto& two) { return CFEqual(one.get(), two.get()); });
}

void __CFDictionary::setAll(Entries changes) {
    settle();
    merge(std::move(changes));
}

// The changes are sorted by themselves and then merged, each once, whatever their number.
void __CFDictionary::merge(Entries changes) const {
    const auto isBeforeOther = [](const Entry& one, const Entry& two) {
        return isBefore(one, two.key.get());
    };
    if (!std::is_sorted(changes.begin(), changes.end(), isBeforeOther))
        std::stable_sort(changes.begin(), changes.end(), isBeforeOther);
    const auto size = static_cast<std::ptrdiff_t>(entries_.size());
    entries_.insert(entries_.end(), std::make_move_iterator(changes.begin()),
                    std::make_move_iterator(changes.end()));
    std::inplace_merge(entries_.begin(), entries_.begin() + size, entries_.end(), isBeforeOther);
    // From behind, so that the last of equal keys is the one that stays.
    const auto kept = std::unique(entries_.rbegin(), entries_.rend(), [](const Entry& one, const Entry& two) {
        return one.key.get()->equals(*two.key.get());
    });
    entries_.erase(entries_.begin(), kept.base());
    std::erase_if(entries_, [](const Entry& entry) { return !entry.value; });
}

CFTypeRef __CFDictionary::find(CFStringRef key) const {
    const auto place = placeOf(entries(), key);
    return holds(entries_, place, key) ? place->value.get() : nullptr;
}

// No more may wait than are there already: one key that is set again and again takes no more room.
void __CFDictionary::set(CFStringRef key, CFTypeRef value) {
    const std::size_t sorted = std::min(added_.load(std::memory_order_relaxed), entries_.size());
    added_.store(sorted, std::memory_order_relaxed);
    entries_.push_back({port::CFRef<CFStringRef>::retained(key), port::CFRef<CFTypeRef>::retained(value)});
    if (entries_.size() - sorted > std::max(sorted, kMostAdded))
        settle();
}

// On whatever thread asks first; nobody changes the dictionary meanwhile, but others may ask as well.
void __CFDictionary::settle() const {
    static constinit std::mutex settling;
    const std::lock_guard lock(settling);
    const std::size_t sorted = added_.load(std::memory_order_relaxed);
    if (sorted == kNone)
        return;
    const auto first = entries_.begin() + static_cast<std::ptrdiff_t>(sorted);
    Entries added(std::make_move_iterator(first), std::make_move_iterator(entries_.end()));
    entries_.erase(first, entries_.end());
    if (added.size() > kFewAdded)
        merge(std::move(added));
    else
        for (Entry& entry : added)
            insert(std::move(entry));
    added_.store(kNone, std::memory_order_release);
}

void __CFDictionary::insert(Entry change) const {
    const auto place = placeOf(entries_, change.key.get());
    if (holds(entries_, place, change.key.get()))
        place->value = std::move(change.value);
    else
        entries_.insert(place, std::move(change));
}

void __CFDictionary::remove(CFStringRef key) {
    settle();
    const auto place = placeOf(entries_, key);
    if (holds(entries_, place, key))
        entries_.erase(place);
}

bool __CFDictionary::equals(const CFObject& other) const {
    const auto& dictionary = static_cast<const __CFDictionary&>(other);
    return std::equal(entries().begin(), entries().end(), dictionary.entries().begin(),
                      dictionary.entries().end(), [](const Entry& one, const Entry& two) {
                          return one.key.get()->equals(*two.key.get()) &&
                                 CFEqual(one.value.get(), two.value.get());
                      });
}

CFTypeID CFArrayGetTypeID() {
    return static_cast<CFTypeID>(port::CFKind::Array);
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex count, const CFArrayCallBacks*) {
    __CFArray::Values elements;
    elements.reserve(static_cast<std::size_t>(count));
    for (CFIndex i = 0; i < count; ++i)
        elements.push_back(port::CFRef<CFTypeRef>::retained(values[i]));
    return new __CFArray(std::move(elements));
}

CFIndex CFArrayGetCount(CFArrayRef array) {
    return static_cast<CFIndex>(array->values.size());
}

CFTypeRef CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
    return index >= 0 && index < CFArrayGetCount(array) ? array->values[static_cast<std::size_t>(index)].get()
                                                        : nullptr;
}

CFTypeID CFDictionaryGetTypeID() {
    return static_cast<CFTypeID>(port::CFKind::Dictionary);
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values, CFIndex count,
                                   const CFDictionaryKeyCallBacks*, const CFDictionaryValueCallBacks*) {
    Entries entries;
    entries.reserve(static_cast<std::size_t>(count));
    for (CFIndex i = 0; i < count; ++i)
        entries.push_back({port::CFRef<CFStringRef>::retained(static_cast<CFStringRef>(keys[i])),
                           port::CFRef<CFTypeRef>::retained(values[i])});
    return new __CFDictionary(std::move(entries));
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
    return static_cast<CFIndex>(dictionary->entries().size());
}

CFTypeRef CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
    return dictionary->find(static_cast<CFStringRef>(key));
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex, const CFDictionaryKeyCallBacks*,
                                                 const CFDictionaryValueCallBacks*) {
    return new __CFDictionary(Entries());
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
    dictionary->set(static_cast<CFStringRef>(key), value);
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key) {
    dictionary->remove(static_cast<CFStringRef>(key));
}
