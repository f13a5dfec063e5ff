#include "host/OwnName.h"

#include <atomic>
#include <cerrno>
#include <unistd.h>
#include <utility>

#include "host/SystemCalls.h"

namespace port {

OwnName::OwnName(int folder, std::string prefix) : folder_(folder), prefix_(std::move(prefix)) {}

OwnName::~OwnName() {
    if (!isTaken())
        return;
    const int error = errno;
    ::unlinkat(folder_, get(), 0);
    errno = error;
}

bool OwnName::renameTo(const char* target) {
    if (sys::renameat(folder_, get(), folder_, target) != 0)
        return false;
    name_.clear();
    return true;
}

bool OwnName::isInUse() {
    return errno == EEXIST;
}

std::string OwnName::next() const {
    static constinit std::atomic<unsigned> serial{0};
    return prefix_ + std::to_string(::getpid()) + "-" + std::to_string(serial.fetch_add(1));
}

} // namespace port
