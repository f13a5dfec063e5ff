#include <port/bsd.h>
#include <port/internal/exported.h>

#include <algorithm>
#include <cstring>

template <typename>
std::size_t strlcpy(char* destination, const char* source, std::size_t size) {
    const std::size_t length = std::strlen(source);
    if (size != 0) {
        const std::size_t kept = std::min(length, size - 1);
        std::memcpy(destination, source, kept);
        destination[kept] = '\0';
    }
    return length;
}
template PORT_EXPORTED std::size_t strlcpy<>(char*, const char*, std::size_t);

template <typename>
std::size_t strlcat(char* destination, const char* source, std::size_t size) {
    const std::size_t used = strnlen(destination, size);
    if (used == size)
        return size + std::strlen(source);
    return used + strlcpy(destination + used, source, size - used);
}
template PORT_EXPORTED std::size_t strlcat<>(char*, const char*, std::size_t);
