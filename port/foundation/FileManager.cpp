#include <sys/stat.h>

#include <Foundation/Foundation.h>

NSFileManager* NSFileManager::defaultManager() {
    static NSFileManager& shared = *new NSFileManager;
    return &shared;
}

BOOL NSFileManager::fileExistsAtPath(const char* path) const {
    struct stat status;
    return path != nullptr && ::stat(path, &status) == 0;
}
