// Is the system at least of a given version?
//
// Thread-safety: safe on any thread. The answers are computed at the first call and kept while the process
// runs. Each compares the low bytes of the system's major and minor version, unsigned; a version that the
// system does not tell reads 0 and gives false. Nothing blocks. Templates, so that they yield to a program's own
// functions of these names.
#pragma once

#pragma GCC visibility push(default)

template <typename = void>
[[gnu::visibility("default")]] bool IsOSMacLeopardOrLater(); // 10.5
template <typename = void>
[[gnu::visibility("default")]] bool IsOSMacSnowLeopardOrLater(); // 10.6
template <typename = void>
[[gnu::visibility("default")]] bool IsOSMacLionOrLater(); // 10.7

#pragma GCC visibility pop
