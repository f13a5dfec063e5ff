// Folders and files beside the tools and the standard library that one would use instead. The tree is that of
// 20,000 small files in 500 folders, in memory.
#include "Driver.h"
#include "MemoryFolder.h"

#include <base/LLimits.h>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <files/LFile.h>
#include <files/LFolderIterator.h>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr int kFolders = 500;
constexpr int kFilesInFolder = 40;
constexpr std::size_t kLargeFile = std::size_t{512} << 20;
constexpr int kFailed = -1;

void makeTree(const std::string& root) {
    mkdir(root.c_str(), 0700);
    for (int folder = 0; folder < kFolders; ++folder) {
        const std::string path = root + "/folder" + std::to_string(folder);
        mkdir(path.c_str(), 0700);
        for (int file = 0; file < kFilesInFolder; ++file) {
            const int fd =
                open((path + "/file" + std::to_string(file)).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            if (write(fd, path.data(), path.size()) < 0)
                std::abort();
            close(fd);
        }
    }
}

// The bare walk: names and types as the folder lists them.
void walkBare(int folder, const std::function<void(int, const dirent&)>& visit) {
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(folder), closedir);
    while (const dirent* entry = readdir(stream.get())) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        if (entry->d_type == DT_DIR)
            walkBare(openat(folder, entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC), visit);
        visit(folder, *entry);
    }
}

int openFolder(const std::string& path) {
    return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

std::size_t countWithIterator(const char* folder) {
    std::size_t count = 0;
    LFile::FolderIteratorAllFiles iterator;
    for (iterator.Open(folder); iterator.IsOpen(); iterator.Next()) {
        const char* name = iterator.GetName();
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
            continue;
        ++count;
        if (!iterator.IsFolder())
            continue;
        char path[LPathBufferSize];
        LFile::_MakeFilePath(path, folder, name, "");
        count += countWithIterator(path);
    }
    return count;
}

double deletion(const std::function<void(const std::string&)>& remove) {
    const MemoryFolder scratch;
    makeTree(scratch / "tree");
    return milliseconds([&] { remove(scratch / "tree"); });
}

double walking(const std::function<std::size_t(const std::string&)>& count) {
    static const MemoryFolder scratch;
    if (!fs::exists(scratch / "tree"))
        makeTree(scratch / "tree");
    return milliseconds([&] { keep(count(scratch / "tree")); });
}

double copying(const std::function<void(const std::string&, const std::string&)>& copy) {
    const MemoryFolder scratch;
    makeTree(scratch / "tree");
    return milliseconds([&] { copy(scratch / "tree", scratch / "copy"); });
}

double copyingLarge(const std::function<void(const std::string&, const std::string&)>& copy) {
    const MemoryFolder scratch;
    const int fd = open((scratch / "large").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const std::string block(std::size_t{1} << 20, 'x');
    for (std::size_t done = 0; done < kLargeFile; done += block.size())
        if (write(fd, block.data(), block.size()) < 0)
            return kFailed;
    close(fd);
    return milliseconds([&] { copy(scratch / "large", scratch / "copy"); });
}

void copyBare(const std::string& from, const std::string& to) {
    mkdir(to.c_str(), 0700);
    const int folder = openFolder(from);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(folder), closedir);
    while (const dirent* entry = readdir(stream.get())) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        if (entry->d_type == DT_DIR) {
            copyBare(from + "/" + entry->d_name, to + "/" + entry->d_name);
            continue;
        }
        char buffer[4096];
        const int source = openat(folder, entry->d_name, O_RDONLY | O_CLOEXEC);
        const int target = open((to + "/" + entry->d_name).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        const ssize_t got = read(source, buffer, sizeof buffer);
        keep(write(target, buffer, static_cast<std::size_t>(got)));
        close(source);
        close(target);
    }
}

void copyRange(const std::string& from, const std::string& to) {
    const int source = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    const int target = open(to.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    while (copy_file_range(source, nullptr, target, nullptr, kLargeFile, 0) > 0) {
    }
    close(source);
    close(target);
}

const Register files{[](std::vector<Case>& cases) {
    cases.push_back(
        {"files/delete a tree",
         "ms",
         Better::Lower,
         {{"floor: readdir and unlinkat",
           [] {
               return deletion([](const std::string& path) {
                   walkBare(openFolder(path), [](int folder, const dirent& entry) {
                       unlinkat(folder, entry.d_name, entry.d_type == DT_DIR ? AT_REMOVEDIR : 0);
                   });
                   rmdir(path.c_str());
               });
           }},
          {"rm -rf", [] { return deletion([](const std::string& path) {
                              run({"rm", "-rf", path});
                          }); }},
          {"std::filesystem::remove_all",
           [] { return deletion([](const std::string& path) { fs::remove_all(path); }); }},
          {"LFile::DeleteFolderTree",
           [] { return deletion([](const std::string& path) { LFile::DeleteFolderTree(path.c_str()); }); }}},
         9});
    cases.push_back(
        {"files/walk and count",
         "ms",
         Better::Lower,
         {{"floor: readdir and types",
           [] {
               return walking([](const std::string& path) {
                   std::size_t count = 0;
                   walkBare(openFolder(path), [&](int, const dirent&) { ++count; });
                   return count;
               });
           }},
          {"find",
           [] {
               return walking([](const std::string& path) {
                   run({"find", path});
                   return std::size_t{0};
               });
           }},
          {"recursive_directory_iterator",
           [] {
               return walking([](const std::string& path) {
                   return static_cast<std::size_t>(std::distance(fs::recursive_directory_iterator(path), {}));
               });
           }},
          {"LFile::FolderIterator",
           [] { return walking([](const std::string& path) { return countWithIterator(path.c_str()); }); }}},
         15});
    cases.push_back({"files/copy a tree",
                     "ms",
                     Better::Lower,
                     {{"floor: open, read, write", [] { return copying(copyBare); }},
                      {"cp -R",
                       [] {
                           return copying([](const std::string& from, const std::string& to) {
                               run({"cp", "-R", from, to});
                           });
                       }},
                      {"std::filesystem::copy",
                       [] {
                           return copying([](const std::string& from, const std::string& to) {
                               fs::copy(from, to, fs::copy_options::recursive);
                           });
                       }},
                      {"LFile::CopyFolderFiles",
                       [] {
                           return copying([](const std::string& from, const std::string& to) {
                               LFile::CopyFolderFiles(from.c_str(), to.c_str());
                           });
                       }}},
                     7});
    cases.push_back({"files/copy 512 MiB",
                     "ms",
                     Better::Lower,
                     {{"floor: copy_file_range", [] { return copyingLarge(copyRange); }},
                      {"cp",
                       [] {
                           return copyingLarge([](const std::string& from, const std::string& to) {
                               run({"cp", from, to});
                           });
                       }},
                      {"LFile::CopyFile",
                       [] {
                           return copyingLarge([](const std::string& from, const std::string& to) {
                               LFile::CopyFile(from.c_str(), to.c_str());
                           });
                       }}},
                     5});
}};

} // namespace
} // namespace bench
