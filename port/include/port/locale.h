// The locale of the standard library.
//
// Thread-safety: as the C library's `setlocale`: for the start of a program.
#pragma once

#pragma GCC visibility push(default)

// All categories, for the calls below. The C library's own categories keep their numbers, but for LC_CTYPE,
// which is 0 there and cannot be had by itself.
constexpr int PORT_LC_ALL = 0;

// `setlocale`: sets the category to a locale, or with a null name asks for it. The empty name stands for what
// the environment says. The UTF-8 form of a name goes before the bare name, which here means an 8-bit
// character set. The locale's name, valid until the next change, or null, and nothing is changed, when the
// system does not have it.
const char* port_setlocale(int category, const char* name);

#pragma GCC visibility pop
