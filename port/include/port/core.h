// What a handler of a fatal signal may do before it ends the process.
//
// Thread-safety: async-signal-safe.
#pragma once

#pragma GCC visibility push(default)

// Lets the system write its core file for the signal, when it is set up to write any: a copy of the process,
// whose only thread is the caller, dies of the signal. Blocks until the copy has ended; does nothing where the
// system makes no further process.
void port_write_core(int signal);

#pragma GCC visibility pop
