#include <fcntl.h>
#include <port/bsd.h>
#include <unistd.h>

void port_open_standard_descriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor)
        if (::fcntl(descriptor, F_GETFD) == -1)
            ::open("/dev/null", O_RDWR); // the lowest number that is free
}
