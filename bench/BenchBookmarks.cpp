// Bookmarks: those whose files are gone beside one look at the folder where they were; many of them, kept on the
// disk, beside a file that is replaced for each.
#include "Driver.h"
#include "MemoryFolder.h"
#include "Processes.h"

#include <Foundation/Foundation.h>
#include <dirent.h>
#include <fcntl.h>
#include <files/LSandboxBookmarkManager.h>
#include <filesystem>
#include <fstream>

namespace bench {
namespace {

constexpr int kFiles = 50'000;
constexpr int kGone = 200;

// A large folder, and the bookmarks of files that were in it.
struct Place {
    Place() : path(folder / "place") {
        std::filesystem::create_directory(path);
        for (int i = 0; i < kFiles + kGone; ++i) {
            const std::string file = path + "/" + std::to_string(i);
            std::ofstream(file).put('x');
            if (i < kFiles)
                continue;
            const auto url = NSURL::fileURLWithPath(file.c_str());
            bookmarks.push_back(url->bookmarkDataWithOptions(NSURLBookmarkCreationWithSecurityScope));
            std::filesystem::remove(file);
        }
    }

    MemoryFolder folder;
    const std::string path;
    std::vector<NSRef<NSData>> bookmarks;
};

const Place& place() {
    static const Place there;
    return there;
}

double readNames() {
    const char* path = place().path.c_str();
    return milliseconds([path] {
        DIR* const folder = opendir(path);
        std::size_t count = 0;
        while (folder != nullptr && readdir(folder) != nullptr)
            ++count;
        keep(count);
        if (folder != nullptr)
            closedir(folder);
    });
}

double resolve(std::size_t count) {
    const auto& bookmarks = place().bookmarks;
    return milliseconds([&] {
        const NSURL::port_SharedSearch search;
        for (std::size_t i = 0; i < count; ++i) {
            bool stale = false;
            keep(NSURL::URLByResolvingBookmarkData(*bookmarks[i], NSURLBookmarkResolutionWithSecurityScope,
                                                   &stale));
        }
    });
}

constexpr int kMany = 1000;

// A program's life with its own settings, on the disk. `work` is given a folder with many files.
Sample life(const std::function<Sample(const std::string& files)>& work) {
    const ScratchFolder folder;
    for (int i = 0; i < kMany; ++i)
        std::ofstream(folder.path() + "/file" + std::to_string(i)).put('x');
    return measurePair(
        Placement::OneCpu, [] { pause(); },
        [&] {
            const std::string home =
                folder.path() + "/home"; // the sandbox: what lies in it needs no bookmark
            std::filesystem::create_directory(home);
            setenv("HOME", home.c_str(), 1);
            setenv("XDG_CONFIG_HOME", home.c_str(), 1);
            return work(folder.path() + "/file");
        });
}

// What a save is at least: a file of some bytes a bookmark, on the disk with its name.
Sample replaceForEach(const std::string& files) {
    const std::string draft = files + "-draft";
    const std::string content(100 * kMany, 'x');
    const int folder = open(files.substr(0, files.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return milliseconds([&] {
        for (std::size_t i = 1; i <= kMany; ++i) {
            const int file = open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            need(write(file, content.data(), 100 * i) > 0 && fsync(file) == 0 &&
                     rename(draft.c_str(), (files + "-settings").c_str()) == 0 && fsync(folder) == 0,
                 "the file was not replaced");
            close(file);
        }
    });
}

void addAll(const std::string& files) {
    for (int i = 0; i < kMany; ++i) {
        const std::string path = files + std::to_string(i);
        const NSRef<NSURL> url = NSURL::fileURLWithPath(path.c_str());
        need(LSandboxBookmarkManager::AddFilePath(path.c_str(), url.get(), true, true, path.c_str()),
             "no access to a file");
        const auto* const item = LSandboxBookmarkManager::pInstance->InstanceGetBookmark(path.c_str());
        need(item != nullptr && item->bSavedToSettings, "a bookmark was not saved");
    }
}

Sample adding(const std::string& files) {
    LSandboxBookmarkManager::Create();
    return milliseconds([&] { addAll(files); });
}

Sample startingStale(const std::string& files) {
    LSandboxBookmarkManager::Create();
    addAll(files);
    LSandboxBookmarkManager::Destroy();
    for (int i = 0; i < kMany; ++i)
        std::filesystem::rename(files + std::to_string(i), files + std::to_string(i) + "moved");
    const double spent = milliseconds(LSandboxBookmarkManager::Create);
    std::size_t found = 0;
    for (auto* item = LSandboxBookmarkManager::pInstance->loFiles.GetFirst(); item != nullptr;
         item = item->pNext)
        ++found;
    need(found == kMany, "not every bookmark was found");
    return spent;
}

const Register registered([](std::vector<Case>& cases) {
    cases.push_back({"files/bookmarks of gone files, 50,000 others",
                     "ms",
                     Better::Lower,
                     {{"floor: readdir of the folder", readNames},
                      {"floor: one bookmark", [] { return resolve(1); }},
                      {"200 bookmarks", [] { return resolve(kGone); }, Whose::Ours}}});
    cases.push_back({"files/bookmarks, 1,000 adds",
                     "ms",
                     Better::Lower,
                     {{"floor: a file replaced for each", [] { return life(replaceForEach); }},
                      {"AddFilePath", [] { return life(adding); }, Whose::Ours}},
                     {10, 1}});
    cases.push_back({"files/bookmarks, a start with 1,000 that are stale",
                     "ms",
                     Better::Lower,
                     {{"Create", [] { return life(startingStale); }, Whose::Ours}},
                     {6, 1}});
});

} // namespace
} // namespace bench
