// An owned Core Foundation string, with conversions from and to the library's texts.
//
// Thread-safety: as a plain value. Nothing blocks.
// Sizes count the buffer's own characters, terminator included; outputs are always terminated, and an empty
// wrapper gives the empty text. A size of 0 writes nothing. A conversion does not change what is held.
#pragma once

#include "platform/LCFRef.h"
#include "strings/LString.h"

#pragma GCC visibility push(default)

class LCFString {
public:
    LCFString() = default;
    // Holds what SetString would make of the text.
    explicit LCFString(const char* szText);
    // Holds a string of somebody else's, with a reference of its own; null for none.
    explicit LCFString(CFStringRef pString);

    // Null when empty. The wrapper keeps owning it.
    CFStringRef Get() const { return pHeld.Get(); }
    explicit operator bool() const { return static_cast<bool>(pHeld); }

    // Replaces the string by UTF-8 text; of text with an invalid sequence the valid part before it is taken.
    void SetString(const char* szText);

    // UTF-8, never cut inside a character. A string with a lone surrogate gives the empty text.
    void GetString(char* szOut, unsigned long dwSize) const;
    // UTF-8; the output gets a capacity of at least 6 bytes a UTF-16 unit and one.
    void GetString(LStringLongTemplate<char>& lsOut) const;

    // UTF-32, cut to fit; each UTF-16 unit becomes one value, so a surrogate pair stays two.
    void GetString(wchar_t* szOut, unsigned long dwSize) const;
    void GetString(LStringLongTemplate<wchar_t>& lsOut) const;

private:
    LCFRef<CFStringRef> pHeld;
};

#pragma GCC visibility pop
