#include <port/transfer.h>

#include "host/SystemCalls.h"

ssize_t port_read(int fd, void* buffer, std::size_t size) {
    return port::sys::read(fd, buffer, size);
}

ssize_t port_write(int fd, const void* bytes, std::size_t size) {
    return port::sys::write(fd, bytes, size);
}

bool port_write_all(int fd, const void* bytes, std::size_t size) {
    return port::sys::writeAll(fd, bytes, size);
}

bool port_reserve(int fd, std::size_t size) {
    return port::sys::reserve(fd, size);
}
