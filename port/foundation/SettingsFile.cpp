#include "foundation/SettingsFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "bsd/AtomicFile.h"
#include "bsd/SystemCalls.h"
#include <port/UniqueFd.h>

namespace port {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMaxFileSize = 4 << 20; // bytes; a property list is not longer
constexpr std::size_t kReadPiece = 16 << 10;  // bytes
constexpr auto kLockPatience = 5s;
constexpr auto kFirstLockPause = 1ms;
constexpr auto kLongestLockPause = 20ms;

// Keeps other processes out of the settings file while it lives. A process that holds the lock and is
// stopped must not stop us: the wait has an end.
class FileLock {
public:
    explicit FileLock(const std::string& path)
        : fd_(sys::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0600)) {
        const auto deadline = std::chrono::steady_clock::now() + kLockPatience;
        auto pause = kFirstLockPause;
        while (fd_ && ::flock(fd_.get(), LOCK_EX | LOCK_NB) != 0) {
            if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() >= deadline) {
                fd_.reset();
                return;
            }
            std::this_thread::sleep_for(pause);
            pause = std::min<std::chrono::milliseconds>(pause * 2, kLongestLockPause);
        }
    }
    explicit operator bool() const { return static_cast<bool>(fd_); }

private:
    UniqueFd fd_;
};

// At most one byte more than a list may have, so that the reader of lists sees that it is too long.
bool readAll(int fd, std::string& bytes) {
    while (bytes.size() <= kMaxFileSize) {
        const std::size_t used = bytes.size();
        bytes.resize(std::min(used + kReadPiece, kMaxFileSize + 1));
        const ssize_t got = sys::read(fd, bytes.data() + used, bytes.size() - used);
        bytes.resize(used + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (got <= 0)
            return got == 0;
    }
    return true;
}

Settings noSettings() {
    return Settings(CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0,
                                       &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

Settings merge(CFDictionaryRef settings, const SettingChanges& changes) {
    const CFRef<CFMutableDictionaryRef> merged(
        CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, settings));
    for (const auto& [key, value] : changes) {
        const CFRef<CFStringRef> name(
            CFStringCreateWithCString(kCFAllocatorDefault, key.c_str(), kCFStringEncodingUTF8));
        if (value)
            CFDictionarySetValue(merged.get(), name.get(), value.get());
        else
            CFDictionaryRemoveValue(merged.get(), name.get());
    }
    return Settings::retained(merged.get());
}

} // namespace

bool SettingsFile::update(const SettingChanges& changes, Settings& settings) {
    Settings current;
    const Content content = read(current);
    if (content == Content::Unreadable)
        return false;
    if (content == Content::Good) {
        Settings merged = merge(current.get(), changes);
        if (CFEqual(merged.get(), current.get())) {
            settings = std::move(merged);
            return true;
        }
    }
    return makeFolders(path_.substr(0, path_.rfind('/'))) && updateLocked(changes, settings);
}

bool SettingsFile::updateLocked(const SettingChanges& changes, Settings& settings) {
    const FileLock lock(path_ + ".lock");
    Settings current;
    const Content content = lock ? read(current) : Content::Unreadable;
    if (content == Content::Unreadable)
        return false;
    if (content == Content::Damaged) {
        if (!keepDamaged())
            return false;
        current = noSettings();
    }
    Settings merged = merge(current.get(), changes);
    if (!CFEqual(merged.get(), current.get()) && !write(merged))
        return false;
    settings = std::move(merged);
    return true;
}

SettingsFile::Content SettingsFile::read(Settings& settings) {
    // Without O_NONBLOCK a named pipe in the file's place would hold us.
    const UniqueFd fd(sys::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY));
    if (!fd) {
        if (errno != ENOENT || path_.empty())
            return Content::Unreadable;
        settings = noSettings();
        return Content::Good;
    }
    struct stat status;
    std::string bytes;
    if (::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) || !readAll(fd.get(), bytes))
        return Content::Unreadable;
    if (known_ && bytes == knownBytes_) {
        settings = known_;
        return Content::Good;
    }
    const CFRef<CFDataRef> data(CFDataCreate(kCFAllocatorDefault,
                                             reinterpret_cast<const UInt8*>(bytes.data()),
                                             static_cast<CFIndex>(bytes.size())));
    CFRef<CFPropertyListRef> list(CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(),
                                                               kCFPropertyListImmutable, nullptr, nullptr));
    if (!list || CFGetTypeID(list.get()) != CFDictionaryGetTypeID())
        return Content::Damaged;
    settings = Settings::retained(static_cast<CFDictionaryRef>(list.get()));
    remember(bytes, settings);
    return Content::Good;
}

void SettingsFile::remember(std::string_view bytes, const Settings& settings) {
    knownBytes_ = bytes;
    known_ = settings;
}

bool SettingsFile::keepDamaged() const {
    timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    char suffix[48];
    std::snprintf(suffix, sizeof suffix, ".corrupt-%lld.%09ld", static_cast<long long>(now.tv_sec),
                  now.tv_nsec);
    const bool moved = moveAside(path_, suffix);
    ::dprintf(STDERR_FILENO, "%s: settings file %s is damaged; it %s%s\n", program_invocation_short_name,
              path_.c_str(), moved ? "is kept with the suffix " : "cannot be put aside and stays",
              moved ? suffix : "");
    return moved;
}

bool SettingsFile::write(const Settings& settings) {
    const CFRef<CFDataRef> data(CFPropertyListCreateData(kCFAllocatorDefault, settings.get(),
                                                         kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    if (!data)
        return false;
    // We hold the lock, so a temporary file of another writer is one that was killed.
    if (!tidied_)
        removeAbandonedTemporaries(path_);
    tidied_ = true;
    const std::string_view bytes(reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
                                 static_cast<std::size_t>(CFDataGetLength(data.get())));
    if (!replaceFile(path_, bytes))
        return false;
    remember(bytes, settings);
    return true;
}

} // namespace port
