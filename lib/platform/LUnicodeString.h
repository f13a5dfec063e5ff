// A view of a terminated UTF-16 text, in the host's byte order, with conversions to the library's texts.
//
// Thread-safety: as a plain pointer. Nothing blocks.
#pragma once

#include "strings/LString.h"

#pragma GCC visibility push(default)

class LUnicodeString {
public:
    // The text stays the caller's and outlives the view. Null reads as empty.
    explicit LUnicodeString(const unsigned short* pText) : pHeld(pText) {}

    // As LCFString::GetString of the same text.
    void GetString(LStringLongTemplate<char>& lsOut) const;
    void GetString(LStringLongTemplate<wchar_t>& lsOut) const;

private:
    const unsigned short* pHeld;
};

#pragma GCC visibility pop
