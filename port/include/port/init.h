// The order in which a program's statics are made.
#pragma once

#pragma GCC visibility push(default)

// Before those of all files that do not say so; within a file in the order in which they stand. 101 is the first
// priority that a program may use.
#define PORT_MADE_FIRST [[gnu::init_priority(101)]]

#pragma GCC visibility pop
