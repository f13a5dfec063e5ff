#include <port/pipe.h>

#include <fcntl.h>
#include <unistd.h>

int port_pipe(int (&ends)[2], int flags) {
    return ::pipe2(ends, flags | O_CLOEXEC);
}
