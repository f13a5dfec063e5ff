// The property list in which one application keeps its settings, shared with other processes.
//
// Thread-safety: one thread at a time an object; processes are kept apart by the lock file `<path>.lock`.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "corefoundation/CFObject.h"

namespace port {

using Settings = CFRef<CFDictionaryRef>;

// What becomes of one key: a new value, or an edit of an array of texts, which goes over what others wrote
// into it.
struct SettingChange {
    // The new value; null removes the key.
    CFRef<CFTypeRef> valueOver(CFTypeRef current) const;

    CFRef<CFTypeRef> value = {}; // null removes the key
    bool isEdit = false;         // of the texts below, which are then all that counts
    std::set<std::string, std::less<>> added = {};
    std::set<std::string, std::less<>> removed = {};
    unsigned long serial = 0; // differs from change to change
};

using SettingChanges = std::map<std::string, SettingChange, std::less<>>;

class SettingsFile {
public:
    // An empty path means that there is no place for settings: nothing is read and every update fails.
    explicit SettingsFile(std::string path) : path_(std::move(path)) {}

    // Reads the file and changes nothing. A missing file is empty. 0, or the errno value of what failed with
    // `settings` untouched (EFBIG for a file that is longer than a list may be); EBADMSG for a damaged file,
    // which is no property list: `settings` is then empty.
    int load(Settings& settings);

    // Puts the changes over what the file holds, and writes it whole when that makes a difference; without
    // one it takes no lock and touches nothing. `settings` gets what the file then holds. A file that cannot
    // be read is never written over; a damaged one is first renamed, with one line on standard error, or left
    // alone when there are no changes. Blocks on the disk, and up to 5 s on another process's lock. 0, or the
    // errno value of what failed, EFBIG when the whole would be longer than a list may be: the file stands as
    // it was and `settings` is untouched.
    int update(const SettingChanges& changes, Settings& settings);

    // Removes the file, whatever it holds, the damaged ones that were kept, and the lock file. Blocks as
    // `update` does. 0, or the errno value of what failed.
    int remove();

    const std::string& path() const { return path_; }

private:
    void remember(std::vector<std::uint8_t> bytes, const Settings& settings);
    // `merged` is what the changes made of `before`, the settings that were read without the lock; null when those were
    // no settings.
    int updateLocked(const SettingChanges& changes, const Settings& before, Settings merged,
                     Settings& settings);
    int keepDamaged() const;
    int write(const Settings& settings);

    std::string path_;
    bool tidied_ = false; // what killed writers left was removed once
    // The settings that were last read or written, and their bytes: a file of the same bytes is not read
    // anew.
    std::vector<std::uint8_t> knownBytes_;
    Settings known_;
};

} // namespace port
