// The bodies of arrays and dictionaries. A dictionary is a vector sorted by key: small, and written as it
// stands.
//
// Thread-safety: immutable arrays; dictionaries are guarded by their owner while they change.
#pragma once

#include <atomic>
#include <cstddef>
#include <utility>
#include <vector>

#include "corefoundation/CFObject.h"

struct __CFArray final : port::CFObject {
    using Values = std::vector<port::CFRef<CFTypeRef>>;

    explicit __CFArray(Values elements) : CFObject(port::CFKind::Array), values(std::move(elements)) {}
    bool equals(const CFObject& other) const override;

    const Values values;
};

struct __CFDictionary final : port::CFObject {
    struct Entry {
        port::CFRef<CFStringRef> key;
        port::CFRef<CFTypeRef> value;
    };
    using Entries = std::vector<Entry>;

    // In any order; of two equal keys the later entry stays.
    explicit __CFDictionary(Entries entries) : CFObject(port::CFKind::Dictionary) {
        setAll(std::move(entries));
    }

    const Entries& entries() const {
        if (added_.load(std::memory_order_acquire) != kNone)
            settle();
        return entries_;
    }
    CFTypeRef find(CFStringRef key) const;
    // Keys that come one by one, with nothing asked in between, are sorted together when something is.
    void set(CFStringRef key, CFTypeRef value);
    void remove(CFStringRef key);
    // Sets all of them, in any order; the later of two equal keys stays, and one without a value takes its key
    // away.
    void setAll(Entries changes);
    bool equals(const CFObject& other) const override;

private:
    static constexpr std::size_t kNone = ~std::size_t{0};

    void settle() const;
    void insert(Entry change) const;
    void merge(Entries changes) const;

    mutable Entries
        entries_; // ascending by code point of the key, each key once; from `added_` on as they came
    mutable std::atomic<std::size_t> added_{kNone};
};
