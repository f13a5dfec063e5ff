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

// The texts of an array; those of other types are left out.
std::vector<std::string> textsOf(CFTypeRef array) {
    std::vector<std::string> texts;
    if (array == nullptr || CFGetTypeID(array) != CFArrayGetTypeID())
        return texts;
    const auto stored = static_cast<CFArrayRef>(array);
    for (CFIndex index = 0; index < CFArrayGetCount(stored); ++index) {
        const CFTypeRef element = CFArrayGetValueAtIndex(stored, index);
        std::string text;
        if (CFGetTypeID(element) == CFStringGetTypeID() && copyUtf8(static_cast<CFStringRef>(element), text))
            texts.push_back(std::move(text));
    }
    return texts;
}

CFRef<CFTypeRef> arrayOf(const std::vector<std::string>& texts) {
    std::vector<CFRef<CFTypeRef>> strings;
    std::vector<const void*> elements;
    for (const std::string& text : texts) {
        strings.emplace_back(
            CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
        elements.push_back(strings.back().get());
    }
    return CFRef<CFTypeRef>(CFArrayCreate(kCFAllocatorDefault, elements.data(),
                                          static_cast<CFIndex>(elements.size()), &kCFTypeArrayCallBacks));
}

} // namespace

CFRef<CFTypeRef> SettingChange::valueOver(CFTypeRef current) const {
    if (!isEdit)
        return value;
    std::set<std::string, std::less<>> lacking = added;
    std::vector<std::string> texts;
    for (std::string& text : textsOf(current)) {
        lacking.erase(text);
        if (!removed.contains(text))
            texts.push_back(std::move(text));
    }
    texts.insert(texts.end(), lacking.begin(), lacking.end());
    return arrayOf(texts);
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
    if (error == 0) {
        Settings merged = merge(current.get(), changes);
        if (CFEqual(merged.get(), current.get())) {
            settings = std::move(merged);
            return 0;
        }
    }
    return makeFolders(path_.substr(0, path_.rfind('/'))) ? updateLocked(changes, settings) : errno;
}

int SettingsFile::updateLocked(const SettingChanges& changes, Settings& settings) {
    const FileLock lock(path_ + kLockSuffix);
    if (!lock)
        return errno;
    Settings current;
    int error = load(current);
    if (error == EBADMSG)
        error = keepDamaged();
    if (error != 0)
        return error;
    Settings merged = merge(current.get(), changes);
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
    remember({xml.begin(), xml.end()}, settings);
    return 0;
}

} // namespace port
