#include <port/files.h>

#include <cerrno>
#include <cstdint>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int kAttempts = 100; // a rename anywhere may make the kernel unsure of a way with ".."

} // namespace

int port_open_beneath(int folder, const char* path, int flags) {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    long fd = -1;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        fd = ::syscall(SYS_openat2, folder, path, &how, sizeof how);
        if (fd >= 0 || (errno != EAGAIN && errno != EINTR))
            break;
    }
    return static_cast<int>(fd);
}
