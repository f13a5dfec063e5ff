// The settings of one application in memory: what the file held when it was last read, and the changes that
// have not been saved yet.
//
// Thread-safety: any thread; reading and changing never wait for a save that runs.
#pragma once

#include <mutex>
#include <string>

#include "foundation/SettingsFile.h"

namespace port {

class SettingsStore {
public:
    // Reads the file. One that cannot be read shows no settings, and nothing is saved over it.
    explicit SettingsStore(std::string path);

    // Null when there is no value.
    CFRef<CFTypeRef> value(const char* key) const;
    // A null value removes the key. A key that is no well-formed UTF-8 is ignored.
    void change(const char* key, CFRef<CFTypeRef> value);
    // Saves the changes and takes in those of other processes. False: they stay pending.
    bool synchronize();

    // The settings file of the application with that identifier; empty when it makes no file name.
    static std::string pathFor(std::string_view identifier);
    // The settings file of this application.
    static std::string ownPath();

private:
    std::mutex saving_; // held through a save; taken before `guard_`
    SettingsFile file_; // guarded by `saving_`
    mutable std::mutex guard_;
    Settings saved_;
    SettingChanges pending_;
};

} // namespace port
