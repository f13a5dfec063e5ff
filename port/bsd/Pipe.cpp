#include <port/pipe.h>

#include <fcntl.h>
#include <unistd.h>

int port_pipe(int (&ends)[2], int flags) {
    return ::pipe2(ends, flags | O_CLOEXEC);
}

FILE* port_popen(const char* commandLine, const char* mode) {
    return ::popen(commandLine, mode[0] == 'r' ? "re" : "we");
}
