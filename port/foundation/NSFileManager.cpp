#include <cstring>
#include <dirent.h>
#include <memory>
#include <string>
#include <sys/stat.h>

#include <Foundation/Foundation.h>

NSFileManager* NSFileManager::defaultManager() {
    static NSFileManager& shared = *new NSFileManager;
    return &shared;
}

bool NSFileManager::fileExistsAtPath(const char* path) const {
    struct stat status;
    return path != nullptr && ::stat(path, &status) == 0;
}

NSFileAttributes NSFileManager::attributesOfItemAtPath(const char* path) const {
    struct stat status;
    if (path == nullptr || ::lstat(path, &status) != 0)
        return {NSFileType::None};
    switch (status.st_mode & S_IFMT) {
    case S_IFREG:
        return {NSFileType::Regular};
    case S_IFDIR:
        return {NSFileType::Directory};
    case S_IFLNK:
        return {NSFileType::SymbolicLink};
    default:
        return {NSFileType::Unknown};
    }
}

port::References<NSURL> NSFileManager::contentsOfDirectoryAtURL(const NSURL& folder) const {
    port::References<NSURL> items;
    const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder.fileSystemRepresentation()), ::closedir);
    if (open == nullptr)
        return items;
    std::string path = folder.fileSystemRepresentation();
    if (path.back() != '/')
        path += '/';
    const std::size_t length = path.size();
    while (const dirent* entry = items.size() < kPortDirectoryItems ? ::readdir(open.get()) : nullptr) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        path.replace(length, path.npos, entry->d_name);
        items.push_back(NSURL::fileURLWithPath(path.c_str()));
    }
    return items;
}
