#include <port/pipe.h>

#include <fcntl.h>
#include <unistd.h>

int port_pipe(int (&ends)[2], int flags) {
    return ::pipe2(ends, flags | O_CLOEXEC);
}

// The ends stand side by side unless there was a gap when they were made.
void port_close_pipe(int read, int write) {
    if (write == read + 1 && ::close_range(static_cast<unsigned>(read), static_cast<unsigned>(write), 0) == 0)
        return;
    ::close(read);
    ::close(write);
}
