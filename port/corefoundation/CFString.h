// The body of a string: ASCII as bytes, anything else as UTF-16, in one block with the object.
//
// Thread-safety: immutable.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "corefoundation/CFObject.h"

struct __CFString final : port::CFObject {
    // A constant; the literal outlives it.
    constexpr explicit __CFString(std::string_view literal)
        : CFObject(port::CFKind::String), length_(literal.size()), ascii_(literal.data()) {}

    // New strings with the count 1. `ascii` holds no byte above 7F; units may be any.
    static CFStringRef makeAscii(std::string_view ascii);
    static CFStringRef make(std::u16string_view units);

    std::size_t length() const { return length_; }
    bool isAscii() const { return ascii_ != nullptr; }
    std::string_view ascii() const { return {ascii_, length_}; }    // only if isAscii()
    std::u16string_view units() const { return {units_, length_}; } // only if not
    char16_t unitAt(std::size_t index) const {
        return ascii_ != nullptr ? static_cast<unsigned char>(ascii_[index]) : units_[index];
    }
    bool equals(const CFObject& other) const override;

    // The block is larger than the object, so it is not given back by the object's size.
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void operator delete(void* block) { ::operator delete(block); }

private:
    __CFString(std::size_t length, const char* ascii, const char16_t* units)
        : CFObject(port::CFKind::String), length_(length), ascii_(ascii), units_(units) {}

    std::size_t length_;
    const char* ascii_ = nullptr; // null when the text is held in units_
    const char16_t* units_ = nullptr;
};

namespace port {

// The string of a UTF-8 text, null when that is ill-formed.
CFRef<CFStringRef> makeString(std::string_view utf8);

// The UTF-8 form of a string. False when it has a lone surrogate; `utf8` is empty then.
bool copyUtf8(CFStringRef string, std::string& utf8);

// Below, at or above 0: the order of the strings by code points.
int compareByCodePoint(CFStringRef first, CFStringRef second);

} // namespace port
