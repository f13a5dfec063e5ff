// The platform's truth values, for code that is written with them. No other header here includes this one: BOOL,
// YES and NO are names that programs have of their own.
#pragma once

#pragma GCC visibility push(default)

using BOOL = bool;
constexpr BOOL YES = true;
constexpr BOOL NO = false;

#pragma GCC visibility pop
