// Pipes whose descriptors are closed on exec from their first moment.
//
// Thread-safety: reentrant.
#pragma once

#include <port/UniqueFd.h>

#pragma GCC visibility push(default)

// `pipe`, with O_NONBLOCK or nothing as flags for both ends. 0, or -1 with errno and the ends as they were.
int port_pipe(int (&ends)[2], int flags = 0);

// Closes both ends, in one call where that can be.
void port_close_pipe(int read, int write);

namespace port {

// Both ends of one; none until it is opened.
struct Pipe {
    UniqueFd read;
    UniqueFd write;

    // False with errno.
    bool open() {
        int ends[2];
        if (port_pipe(ends) != 0)
            return false;
        read.reset(ends[0]);
        write.reset(ends[1]);
        return true;
    }
};

} // namespace port

#pragma GCC visibility pop
