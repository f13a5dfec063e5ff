// Folders, trees, bookmarks, settings.
#include "../Driver.h"
#include "../MemoryFolder.h"
#include "Cases.h"

#include <Foundation/Foundation.h>
#include <files/LFile.h>
#include <files/LFolderIterator.h>
#include <files/LProcessCopy.h>
#include <files/LSandboxBookmarkManager.h>
#include <filesystem>
#include <fstream>
#include <threads/LProcessInterface.h>

namespace growth {
namespace {

using bench::MemoryFolder;
using bench::need;
using Work = std::function<void()>;

// Left behind in memory no longer than the process: it ends without destructors, so the next one takes it away.
const std::string& place() {
    static const std::string path = [] {
        const std::string folder = "/dev/shm/growth-" + std::to_string(getuid());
        std::filesystem::remove_all(folder);
        std::filesystem::create_directory(folder);
        return folder;
    }();
    return path;
}

// A short name: in a copy with progress a path has 259 bytes at most.
std::string deep(unsigned n) {
    const std::string top = place() + "/d";
    std::string path = top;
    std::filesystem::create_directory(path);
    for (unsigned i = 0; i < n; ++i)
        std::filesystem::create_directory(path += "/d");
    return top;
}

std::string wide(unsigned n) {
    const std::string folder = place() + "/w";
    std::filesystem::create_directory(folder);
    for (unsigned i = 0; i < n; ++i)
        std::ofstream(folder + "/file" + std::to_string(i)).put('x');
    return folder;
}

Work iterate(unsigned n) {
    return [folder = wide(n), n] {
        unsigned count = 0;
        LFile::FolderIteratorAllFiles iterator;
        for (iterator.Open(folder.c_str()); iterator.IsOpen(); iterator.Next())
            ++count;
        need(count >= n, "files are missing");
    };
}

void copyTree(const std::string& from) {
    LFile::CopyFolderFiles(from.c_str(), (from + "copy").c_str());
    need(LFile::Exists((from + "copy").c_str()), "nothing was copied");
}

void copyWithProgress(const std::string& from) {
    LProcessInterfaceVoid process;
    std::filesystem::create_directory(from + "copy");
    need(Process(process, LProcessCopyFolder{from.c_str(), (from + "copy").c_str()}) == LProcessFinished,
         "the tree was not copied");
}

void deleteTree(const std::string& from) {
    need(LFile::DeleteFolderTree(from.c_str()), "the tree was not deleted");
}

std::function<Work(unsigned)> tree(std::string (*make)(unsigned), void (*work)(const std::string&)) {
    return [=](unsigned n) { return [=, folder = make(n)] { work(folder); }; };
}

void live() {
    const std::string home = place() + "/home";
    std::filesystem::create_directory(home);
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", home.c_str(), 1);
}

void addBookmarks(const std::string& folder, unsigned n) {
    for (unsigned i = 0; i < n; ++i) {
        const std::string path = folder + "/file" + std::to_string(i);
        const NSRef<NSURL> url = NSURL::fileURLWithPath(path.c_str());
        need(LSandboxBookmarkManager::AddFilePath(path.c_str(), url.get(), true, true, path.c_str()),
             "no access to a file");
    }
}

Work add(unsigned n) {
    live();
    LSandboxBookmarkManager::Create();
    return [folder = wide(n), n] { addBookmarks(folder, n); };
}

enum class Files { There, Moved, Gone };

// A start with bookmarks of files that became this.
template <Files kFiles>
Work start(unsigned n) {
    live();
    const std::string folder = wide(n);
    LSandboxBookmarkManager::Create();
    addBookmarks(folder, n);
    LSandboxBookmarkManager::Destroy();
    for (unsigned i = 0; i < n && kFiles != Files::There; ++i) {
        const std::string path = folder + "/file" + std::to_string(i);
        if (kFiles == Files::Moved)
            std::filesystem::rename(path, path + "moved");
        else
            std::filesystem::remove(path);
    }
    return [n] {
        LSandboxBookmarkManager::Create();
        unsigned count = 0;
        for (const auto* item = LSandboxBookmarkManager::pInstance->loFiles.GetFirst(); item != nullptr;
             item = item->pNext)
            ++count;
        need(count == (kFiles == Files::Gone ? 0 : n), "another number of bookmarks");
    };
}

void setAll(NSUserDefaults& settings, unsigned n) {
    const auto value = NSString::stringWithUTF8String("a value");
    for (unsigned i = 0; i < n; ++i)
        settings.setObject(*value, ("key" + std::to_string(i)).c_str());
}

Work settingsKeys(unsigned n) {
    live();
    return [n] {
        const auto settings = NSUserDefaults::initWithSuiteName("growth");
        setAll(*settings, n);
        need(settings->synchronize(), "the settings were not saved");
    };
}

Work readSettings(unsigned n) {
    settingsKeys(n)();
    return [n] {
        const auto settings = NSUserDefaults::initWithSuiteName("growth");
        for (unsigned i = 0; i < n; ++i)
            need(settings->stringForKey(("key" + std::to_string(i)).c_str()).get() != nullptr,
                 "a setting is gone");
    };
}

} // namespace

std::vector<Case> fileCases() {
    return {
        {"files of a folder that is listed", 250, iterate},
        {"files of a folder that is copied", 250, tree(wide, copyTree)},
        {"files of a folder that is copied with progress", 250, tree(wide, copyWithProgress)},
        {"files of a folder that is deleted", 250, tree(wide, deleteTree)},
        {"depth of a tree that is copied", 200, tree(deep, copyTree)},
        {"depth of a tree that is copied with progress", 15, tree(deep, copyWithProgress)},
        {"depth of a tree that is deleted", 200, tree(deep, deleteTree)},
        {"settings set and saved", 250, settingsKeys},
        {"settings read", 250, readSettings},
        {"bookmarks added", 25, add, 2.1,
         "each is on the disk when it was added; `LSandboxBookmarkManager.h` tells the cheap way"},
        {"bookmarks at a start", 50, start<Files::There>},
        {"bookmarks at a start, files moved", 50, start<Files::Moved>},
        {"bookmarks at a start, files gone", 50, start<Files::Gone>},
    };
}

} // namespace growth
