#include "corefoundation/SettingsFile.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "corefoundation/CFContainers.h"
#include "corefoundation/CFString.h"
#include "corefoundation/PropertyList.h"
#include "host/AtomicFile.h"
#include "host/FileLock.h"
#include "host/SystemCalls.h"
#include <port/UniqueFd.h>

namespace port {
namespace {

using namespace std::chrono_literals;

constexpr char kLockSuffix[] = ".lock";
constexpr char kDamagedSuffix[] = ".corrupt-"; // the time follows
constexpr auto kLockPatience = 5s;

// Keeps other processes out of the settings file while it lives. A process that holds the lock and is
// stopped must not stop us: the wait has an end.
class FileLock {
public:
    explicit FileLock(std::string path) : path_(std::move(path)) {
        // Who removed the file while we waited held a lock that keeps nobody out any more.
        do
            fd_.reset(sys::open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0600));
        while (fd_ && lock() && isUnlinked());
    }
    explicit operator bool() const { return static_cast<bool>(fd_); }

    // Precondition: the lock is held.
    int removeFile() const { return ::unlink(path_.c_str()) == 0 ? 0 : errno; }

private:
    // Closes the file, errno kept, when the lock cannot be had.
    bool lock() {
        if (lockFile(fd_.get(), kLockPatience))
            return true;
        fd_.reset();
        return false;
    }
    bool isUnlinked() const {
        struct stat status;
        return ::fstat(fd_.get(), &status) == 0 && status.st_nlink == 0;
    }

    std::string path_;
    UniqueFd fd_;
};

Settings noSettings() {
    return Settings(CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0,
                                       &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

Settings merge(CFDictionaryRef settings, const SettingChanges& changes) {
    __CFDictionary::Entries entries;
    entries.reserve(changes.size());
    for (const auto& [key, change] : changes) {
        CFRef<CFStringRef> name = makeString(key);
        CFRef<CFTypeRef> value = change.valueOver(settings->find(name.get()));
        entries.push_back({std::move(name), std::move(value)});
    }
    const CFRef<CFMutableDictionaryRef> merged(new __CFDictionary(settings->entries()));
    merged->setAll(std::move(entries));
    return Settings::retained(merged.get());
}

} // namespace

// Of the array's elements only texts stay, as they are: there may be thousands, and they change one by one.
CFRef<CFTypeRef> SettingChange::valueOver(CFTypeRef current) const {
    if (!isEdit)
        return value;
    std::set<std::string, std::less<>> lacking = added;
    __CFArray::Values texts;
    std::string text;
    if (current != nullptr && CFGetTypeID(current) == CFArrayGetTypeID())
        for (const CFRef<CFTypeRef>& element : static_cast<CFArrayRef>(current)->values) {
            if (CFGetTypeID(element.get()) != CFStringGetTypeID() ||
                !copyUtf8(static_cast<CFStringRef>(element.get()), text))
                continue;
            lacking.erase(text);
            if (!removed.contains(text))
                texts.push_back(element);
        }
    for (const std::string& one : lacking)
        texts.emplace_back(makeString(one).release());
    return CFRef<CFTypeRef>(new __CFArray(std::move(texts)));
}

int SettingsFile::load(Settings& settings) {
    if (path_.empty())
        return ENOENT;
    std::vector<std::uint8_t> bytes;
    const int error = readPropertyListFile(path_.c_str(), bytes);
    if (error != 0 && error != ENOENT)
        return error;
    if (error == ENOENT) {
        settings = noSettings();
        return 0;
    }
    if (known_ && bytes == knownBytes_) {
        settings = known_;
        return 0;
    }
    std::string reason;
    const CFRef<CFPropertyListRef> list = readPropertyList(bytes, reason);
    if (!list || CFGetTypeID(list.get()) != CFDictionaryGetTypeID()) {
        settings = noSettings();
        return EBADMSG;
    }
    settings = Settings::retained(static_cast<CFDictionaryRef>(list.get()));
    remember(std::move(bytes), settings);
    return 0;
}

int SettingsFile::update(const SettingChanges& changes, Settings& settings) {
    Settings current;
    const int error = load(current);
    if (error != 0 && (error != EBADMSG || changes.empty()))
        return error;
    Settings merged;
    if (error == 0) {
        merged = changes.empty() ? current : merge(current.get(), changes);
        if (CFEqual(merged.get(), current.get())) {
            settings = std::move(merged);
            return 0;
        }
    }
    if (!makeFolders(path_.substr(0, path_.rfind('/'))))
        return errno;
    return updateLocked(changes, current, std::move(merged), settings);
}

int SettingsFile::updateLocked(const SettingChanges& changes, const Settings& before, Settings merged,
                               Settings& settings) {
    const FileLock lock(path_ + kLockSuffix);
    if (!lock)
        return errno;
    Settings current;
    int error = load(current);
    if (error == EBADMSG)
        error = keepDamaged();
    if (error != 0)
        return error;
    if (!merged || current.get() != before.get())
        merged = merge(current.get(), changes);
    if (!CFEqual(merged.get(), current.get()))
        error = write(merged);
    if (error == 0)
        settings = std::move(merged);
    return error;
}

int SettingsFile::remove() {
    if (path_.empty())
        return ENOENT;
    const std::string folder = path_.substr(0, path_.rfind('/'));
    if (::access(folder.c_str(), F_OK) != 0)
        return errno == ENOENT ? 0 : errno;
    const FileLock lock(path_ + kLockSuffix);
    if (!lock || !removeWithCopies(path_, kDamagedSuffix))
        return errno;
    return lock.removeFile();
}

void SettingsFile::remember(std::vector<std::uint8_t> bytes, const Settings& settings) {
    knownBytes_ = std::move(bytes);
    known_ = settings;
}

int SettingsFile::keepDamaged() const {
    timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    char suffix[48];
    std::snprintf(suffix, sizeof suffix, "%s%lld.%09ld", kDamagedSuffix, static_cast<long long>(now.tv_sec),
                  now.tv_nsec);
    const bool moved = moveAside(path_, suffix);
    const int error = moved ? 0 : errno;
    ::dprintf(STDERR_FILENO, "%s: settings file %s is damaged; it %s%s\n", program_invocation_short_name,
              path_.c_str(), moved ? "is kept with the suffix " : "cannot be put aside and stays",
              moved ? suffix : "");
    return error;
}

int SettingsFile::write(const Settings& settings) {
    std::string xml;
    std::string reason;
    // Each value was found fit for a list when it was set: only all of them together can be too much.
    if (!writeXMLPropertyList(settings.get(), xml, reason))
        return EFBIG;
    // We hold the lock, so a temporary file of another writer is one that was killed.
    if (!tidied_)
        removeAbandonedTemporaries(path_);
    tidied_ = true;
    if (!replaceFile(path_, xml))
        return errno;
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(xml.data());
    remember({bytes, bytes + xml.size()}, settings);
    return 0;
}

} // namespace port
