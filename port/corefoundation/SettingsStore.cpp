#include "corefoundation/SettingsStore.h"

#include <cerrno>

#include "corefoundation/CFString.h"
#include "host/ExecutableLink.h"
#include "host/UserFolders.h"

namespace port {
namespace {

// Leaves room in a file name of 255 bytes for the suffixes of lock, temporary and kept files.
constexpr std::size_t kMaxIdentifierLength = 200;

CFRef<CFStringRef> keyFrom(const char* text) {
    return CFRef<CFStringRef>(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
}

bool isStorable(const CFRef<CFStringRef>& key, CFTypeRef value) {
    if (!key || value == nullptr)
        return false;
    const void* keys[] = {key.get()};
    const void* values[] = {value};
    const CFRef<CFDictionaryRef> entry(CFDictionaryCreate(kCFAllocatorDefault, keys, values, 1,
                                                          &kCFTypeDictionaryKeyCallBacks,
                                                          &kCFTypeDictionaryValueCallBacks));
    return CFPropertyListIsValid(entry.get(), kCFPropertyListXMLFormat_v1_0);
}

} // namespace

SettingsStore::SettingsStore(std::string path) : file_(std::move(path)) {
    load();
}

// With `saving_` held, but for the constructor.
int SettingsStore::load() {
    Settings settings;
    readError_ = file_.load(settings);
    const std::lock_guard lock(guard_);
    if (settings)
        saved_ = std::move(settings);
    return readError_;
}

int SettingsStore::readError() {
    if (readError_ == 0)
        return 0;
    const std::lock_guard save(saving_);
    return readError_ == 0 ? 0 : load();
}

CFRef<CFTypeRef> SettingsStore::value(const char* key) {
    const CFRef<CFStringRef> name = keyFrom(key);
    readError();
    const std::lock_guard lock(guard_);
    const CFTypeRef saved = name && saved_ ? CFDictionaryGetValue(saved_.get(), name.get()) : nullptr;
    if (const auto change = pending_.find(key); change != pending_.end())
        return change->second.valueOver(saved);
    return CFRef<CFTypeRef>::retained(saved);
}

bool SettingsStore::change(const char* key, CFRef<CFTypeRef> value) {
    if (!isStorable(keyFrom(key), value ? value.get() : kCFBooleanTrue))
        return false;
    const int error = value ? 0 : readError();
    const std::lock_guard lock(guard_);
    if (error == 0 || error == EBADMSG)
        pending_.insert_or_assign(key, SettingChange{.value = std::move(value), .serial = ++serial_});
    else
        pending_.erase(key);
    return true;
}

bool SettingsStore::editArray(const char* key, const char* added, const char* removed) {
    if (added != nullptr && !isStorable(keyFrom(key), keyFrom(added).get()))
        return false;
    const std::lock_guard lock(guard_);
    SettingChange& change = pending_.try_emplace(key, SettingChange{.isEdit = true}).first->second;
    change.serial = ++serial_;
    if (added != nullptr) {
        change.removed.erase(added);
        change.added.emplace(added);
    }
    if (removed != nullptr) {
        change.added.erase(removed);
        change.removed.emplace(removed);
    }
    if (!change.isEdit) {
        const SettingChange edit{
            .isEdit = true, .added = std::move(change.added), .removed = std::move(change.removed)};
        change = {.value = edit.valueOver(change.value.get()), .serial = serial_};
    }
    return true;
}

int SettingsStore::saveListed(const char* key, CFRef<CFTypeRef> value, const char* list) {
    if (!isStorable(keyFrom(key), value.get()))
        return EINVAL;
    const std::lock_guard saving(saving_);
    if (const int error =
            save({{key, {.value = std::move(value)}}, {list, {.isEdit = true, .added = {key}}}}))
        return error;
    {
        const std::lock_guard lock(guard_);
        pending_.erase(key);
        if (!pending_.contains(list))
            return 0;
    }
    editArray(list, key, nullptr);
    return 0;
}

bool SettingsStore::isSaved(const char* key) {
    const std::lock_guard lock(guard_);
    return !pending_.contains(key);
}

int SettingsStore::synchronize() {
    const std::lock_guard saving(saving_);
    SettingChanges changes;
    {
        const std::lock_guard lock(guard_);
        changes = pending_;
    }
    const int error = save(changes);
    if (error == EFBIG && changes.size() > 1)
        for (const auto& change : changes)
            save({change});
    return error;
}

int SettingsStore::save(const SettingChanges& changes) {
    Settings settings;
    if (const int error = file_.update(changes, settings); error != 0)
        return error;
    readError_ = 0;
    const std::lock_guard lock(guard_);
    saved_ = std::move(settings);
    // A key that was changed again while the file was written stays pending.
    for (const auto& [key, change] : changes) {
        const auto pending = pending_.find(key);
        if (pending != pending_.end() && pending->second.serial == change.serial)
            pending_.erase(pending);
    }
    return 0;
}

int SettingsStore::remove() {
    const std::lock_guard saving(saving_);
    if (const int error = file_.remove(); error != 0)
        return error;
    {
        const std::lock_guard lock(guard_);
        pending_.clear();
    }
    return load();
}

bool SettingsStore::isFileName(std::string_view identifier) {
    return !identifier.empty() && identifier.size() <= kMaxIdentifierLength &&
           identifier.find('/') == std::string_view::npos;
}

std::string SettingsStore::pathFor(std::string_view identifier) {
    const std::string folder = configurationFolder();
    return folder.empty() || !isFileName(identifier) ? "" : folder + "/" + std::string(identifier) + ".plist";
}

std::string SettingsStore::ownPath() {
    CFBundleRef bundle = CFBundleGetMainBundle();
    const CFStringRef identifier = bundle == nullptr ? nullptr : CFBundleGetIdentifier(bundle);
    std::string name;
    const std::string path = identifier != nullptr && copyUtf8(identifier, name) ? pathFor(name) : "";
    return path.empty() ? pathFor(ownProgramName()) : path;
}

} // namespace port
