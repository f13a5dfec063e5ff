// The sizes that every module shares.
#pragma once

#pragma GCC visibility push(default)

// Size in bytes of every path, name, key and status buffer: 259 characters and the terminator.
constexpr unsigned long LPathBufferSize = 260;

#pragma GCC visibility pop
