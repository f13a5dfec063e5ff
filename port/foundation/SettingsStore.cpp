#include "foundation/SettingsStore.h"

#include <cerrno>

#include "foundation/Places.h"
#include <Foundation/Foundation.h>

namespace port {
namespace {

// Leaves room in a file name of 255 bytes for the suffixes of lock, temporary and kept files.
constexpr std::size_t kMaxIdentifierLength = 200;

CFRef<CFStringRef> keyFrom(const char* text) {
    return CFRef<CFStringRef>(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
}

} // namespace

SettingsStore::SettingsStore(std::string path) : file_(std::move(path)) {
    synchronize();
}

CFRef<CFTypeRef> SettingsStore::value(const char* key) const {
    const CFRef<CFStringRef> name = keyFrom(key);
    const std::lock_guard lock(guard_);
    if (const auto change = pending_.find(key); change != pending_.end())
        return change->second;
    if (!name || !saved_)
        return {};
    return CFRef<CFTypeRef>::retained(CFDictionaryGetValue(saved_.get(), name.get()));
}

void SettingsStore::change(const char* key, CFRef<CFTypeRef> value) {
    if (!keyFrom(key))
        return;
    const std::lock_guard lock(guard_);
    pending_.insert_or_assign(key, std::move(value));
}

bool SettingsStore::synchronize() {
    const std::lock_guard save(saving_);
    SettingChanges changes;
    {
        const std::lock_guard lock(guard_);
        changes = pending_;
    }
    Settings settings;
    if (!file_.update(changes, settings))
        return false;
    const std::lock_guard lock(guard_);
    saved_ = std::move(settings);
    // A key that was changed again while the file was written stays pending.
    for (const auto& [key, value] : changes) {
        const auto change = pending_.find(key);
        if (change != pending_.end() && change->second.get() == value.get())
            pending_.erase(change);
    }
    return true;
}

std::string SettingsStore::pathFor(std::string_view identifier) {
    const std::string folder = configurationFolder();
    if (folder.empty() || identifier.empty() || identifier.size() > kMaxIdentifierLength ||
        identifier.find('/') != std::string_view::npos)
        return "";
    return folder + "/" + std::string(identifier) + ".plist";
}

std::string SettingsStore::ownPath() {
    CFBundleRef bundle = CFBundleGetMainBundle();
    const NSRef<NSString> identifier =
        NSString::stringWithCFString(bundle == nullptr ? nullptr : CFBundleGetIdentifier(bundle));
    const std::string path = identifier ? pathFor(identifier->UTF8String()) : "";
    return path.empty() ? pathFor(program_invocation_short_name) : path;
}

} // namespace port
