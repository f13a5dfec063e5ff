#include "bsd/Draft.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "host/SystemCalls.h"

namespace port {
namespace {

constexpr char kNamePrefix[] = ".copy-";
constexpr char kOwnDescriptors[] = "/proc/self/fd";

bool canBeNamedLater() {
    static const bool reachable = ::access(kOwnDescriptors, X_OK) == 0;
    return reachable;
}

} // namespace

Draft::Draft(int folder, const char* target)
    : target_(target), place_(target_.substr(0, target_.rfind('/') + 1)),
      name_(folder, place_ + kNamePrefix) {}

bool Draft::open(mode_t mode) {
    if (canBeNamedLater())
        fd_.reset(
            sys::openat(name_.folder(), place_.empty() ? "." : place_.c_str(), O_WRONLY | O_TMPFILE, mode));
    return fd_ || name_.take([this, mode](const char* name) {
        fd_.reset(sys::openat(name_.folder(), name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode));
        return static_cast<bool>(fd_);
    });
}

bool Draft::takeFreeName() {
    if (!name_.isTaken())
        return link(target_.c_str());
    errno = EEXIST;
    return false;
}

bool Draft::replace() {
    return (name_.isTaken() || name_.take([this](const char* name) { return link(name); })) &&
           name_.renameTo(target_.c_str());
}

// By the descriptor alone, for which older kernels want a privilege, or by its path.
bool Draft::link(const char* name) const {
    if (::linkat(fd_.get(), "", name_.folder(), name, AT_EMPTY_PATH) == 0)
        return true;
    if (errno != ENOENT)
        return false;
    std::array<char, 40> path;
    std::snprintf(path.data(), path.size(), "%s/%d", kOwnDescriptors, fd_.get());
    return ::linkat(AT_FDCWD, path.data(), name_.folder(), name, AT_SYMLINK_FOLLOW) == 0;
}

} // namespace port
