// The settings of one application in memory: what the file held when it was last read, and the changes that
// have not been saved yet.
//
// Settings that could not be read are tried again at each access, and until then nothing is removed or saved:
// what is not known is not taken for absent.
//
// Thread-safety: any thread; once the settings have been read, reading and changing never wait for a save
// that runs.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "corefoundation/SettingsFile.h"

namespace port {

class SettingsStore {
public:
    // Reads the file.
    explicit SettingsStore(std::string path);

    // 0 when the settings were read. EBADMSG while the file is no property list: there are no settings then,
    // and the next save sets it aside. Else the errno value of what failed when it was tried again now.
    int readError();

    // Null when there is no value, or the settings cannot be read.
    CFRef<CFTypeRef> value(const char* key);
    // A null value removes the key; while the settings cannot be read it only takes back an unsaved change.
    // False, with nothing changed, for a key or a value that no property list holds.
    bool change(const char* key, CFRef<CFTypeRef> value);
    // Adds a text to an array and takes one out of it, null for none, whatever others have written into it by
    // the time of the save. False, with nothing changed, as for `change`.
    bool editArray(const char* key, const char* added, const char* removed);
    // Saves a value, and its key in the array of texts `list`, together and without the other changes. 0, or the
    // errno value of what failed, EINVAL for what no list holds: nothing of them stays pending then.
    int saveListed(const char* key, CFRef<CFTypeRef> value, const char* list);
    // False while a change of the key is pending.
    bool isSaved(const char* key);
    // Saves the changes and takes in those of other processes. 0, or the errno value of what failed: the
    // changes that are not on the disk stay pending. One that does not fit does not hold up the others.
    int synchronize();
    // Removes every setting, the file, and what was kept beside it. 0, or the errno value of what failed.
    int remove();

    const std::string& path() const { return file_.path(); }

    static bool isFileName(std::string_view identifier);
    // The settings file of the application with that identifier; empty when it makes no file name, or there
    // is no place for settings.
    static std::string pathFor(std::string_view identifier);
    // The settings file of this application.
    static std::string ownPath();

private:
    int load();
    int save(const SettingChanges& changes);

    std::mutex saving_; // held through a read and a save of the file; taken before `guard_`
    SettingsFile file_; // guarded by `saving_`
    std::atomic<int> readError_ = 0;
    std::mutex guard_;
    Settings saved_;
    SettingChanges pending_;
    unsigned long serial_ = 0;
};

} // namespace port
