// Bookmarks whose files are gone beside one look at the folder where they were.
#include "Driver.h"
#include "MemoryFolder.h"

#include <Foundation/Foundation.h>
#include <dirent.h>
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

const Register registered([](std::vector<Case>& cases) {
    cases.push_back({"files/bookmarks of gone files, 50,000 others",
                     "ms",
                     Better::Lower,
                     {{"readdir of the folder", readNames},
                      {"one bookmark", [] { return resolve(1); }},
                      {"200 bookmarks", [] { return resolve(kGone); }}},
                     7});
});

} // namespace
} // namespace bench
