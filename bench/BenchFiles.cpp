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
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr int kFolders = 500;
constexpr int kFilesInFolder = 40;
constexpr std::size_t kLargeFile = std::size_t{512} << 20;

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
    const double spent = milliseconds([&] { remove(scratch / "tree"); });
    need(!fs::exists(scratch / "tree"), "the tree is still there");
    return spent;
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
    const double spent = milliseconds([&] { copy(scratch / "tree", scratch / "copy"); });
    const auto entries = std::distance(fs::recursive_directory_iterator(scratch / "copy"), {});
    need(entries == kFolders * (kFilesInFolder + 1), "not everything was copied");
    return spent;
}

double copyingLarge(const std::function<void(const std::string&, const std::string&)>& copy) {
    const MemoryFolder scratch;
    const int fd = open((scratch / "large").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const std::string block(std::size_t{1} << 20, 'x');
    for (std::size_t done = 0; done < kLargeFile; done += block.size())
        if (write(fd, block.data(), block.size()) < 0)
            throw Failure("no room for the large file");
    close(fd);
    const double spent = milliseconds([&] { copy(scratch / "large", scratch / "copy"); });
    need(fs::file_size(scratch / "copy") == kLargeFile, "the copy has another size");
    return spent;
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

bool copyBareFile(const char* from, const char* to) {
    char buffer[4096];
    const int source = open(from, O_RDONLY | O_CLOEXEC);
    const int target = open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const ssize_t got = read(source, buffer, sizeof buffer);
    const bool copied = got > 0 && write(target, buffer, static_cast<std::size_t>(got)) == got;
    close(source);
    close(target);
    return copied;
}

// Again and again over the same target.
double copyingSmall(const std::function<bool(const char*, const char*)>& copy) {
    const MemoryFolder scratch;
    const std::string from = scratch / "small";
    const std::string to = scratch / "copy";
    std::ofstream(from) << std::string(4096, 'x');
    return nanosecondsPerCall([&] { need(copy(from.c_str(), to.c_str()), "the file was not copied"); }) /
           1000;
}

double asking(const std::function<bool(const char*)>& exists) {
    const MemoryFolder scratch;
    const std::string path = scratch / "missing";
    return nanosecondsPerCall([&] { need(!exists(path.c_str()), "what is missing was found"); });
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
           [] { return deletion([](const std::string& path) { LFile::DeleteFolderTree(path.c_str()); }); },
           Whose::Ours}},
         {8}});
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
           [] { return walking([](const std::string& path) { return countWithIterator(path.c_str()); }); },
           Whose::Ours}}});
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
                       },
                       Whose::Ours}},
                     {14}});
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
                               need(LFile::CopyFile(from.c_str(), to.c_str()), "the file was not copied");
                           });
                       },
                       Whose::Ours}},
                     {8}});
    cases.push_back({"files/copy 4 KiB",
                     "us",
                     Better::Lower,
                     {{"floor: open, read, write", [] { return copyingSmall(copyBareFile); }},
                      {"std::filesystem::copy_file",
                       [] {
                           return copyingSmall([](const char* from, const char* to) {
                               return fs::copy_file(from, to, fs::copy_options::overwrite_existing);
                           });
                       }},
                      {"LFile::CopyFile", [] { return copyingSmall(LFile::CopyFile); }, Whose::Ours}}});
    cases.push_back(
        {"files/ask for what is missing",
         "ns",
         Better::Lower,
         {{"floor: access", [] { return asking([](const char* path) { return access(path, F_OK) == 0; }); }},
          {"std::filesystem::exists",
           [] { return asking([](const char* path) { return fs::exists(path); }); }},
          {"LFile::Exists", [] { return asking(LFile::Exists); }, Whose::Ours}}});
}};

} // namespace
} // namespace bench
