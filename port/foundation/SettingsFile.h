// The property list in which one application keeps its settings, shared with other processes.
//
// Thread-safety: one thread at a time an object; processes are kept apart by the lock file `<path>.lock`.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "corefoundation/CFObject.h"

namespace port {

using Settings = CFRef<CFDictionaryRef>;

// New values by key; null removes the key.
using SettingChanges = std::map<std::string, CFRef<CFTypeRef>, std::less<>>;

class SettingsFile {
public:
    // An empty path means that there is no place for settings: every update fails.
    explicit SettingsFile(std::string path) : path_(std::move(path)) {}

    // Reads the file, puts the changes over what it holds, and writes it whole when that makes a difference;
    // without one it takes no lock and touches nothing. `settings` gets what the file then holds. A missing
    // file is empty; a file that cannot be read is not, and is never written over; a damaged file is first
    // renamed, with one line on standard error. Blocks on the disk, and up to 5 s on another process's lock.
    // False on failure: the file stands as it was and `settings` is untouched.
    bool update(const SettingChanges& changes, Settings& settings);

private:
    enum class Content { Good, Damaged, Unreadable };

    Content read(Settings& settings);
    void remember(std::string_view bytes, const Settings& settings);
    bool updateLocked(const SettingChanges& changes, Settings& settings);
    bool keepDamaged() const;
    bool write(const Settings& settings);

    std::string path_;
    bool tidied_ = false; // what killed writers left was removed once
    // The settings that were last read or written, and their bytes: a file of the same bytes is not read anew.
    std::string knownBytes_;
    Settings known_;
};

} // namespace port
