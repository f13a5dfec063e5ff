// Finding the files of bookmarks.
//
// Thread-safety: an object belongs to one thread. Blocks with the file system.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <string>

#include "foundation/BookmarkRecord.h"
#include "host/Deadline.h"

namespace port {

// Names looked at for bookmarks whose files were in one folder: in that folder, and in those around it.
constexpr std::size_t kBookmarkFolderLimit = 65536;
constexpr std::size_t kBookmarkSearchLimit = 4096;
// Folders whose names, and those around them, are remembered at a time.
constexpr std::size_t kBookmarkFoldersKept = 4;
// How long folders are read for all the bookmarks of one search.
constexpr std::chrono::milliseconds kBookmarkSearchTime{1000};

// The record of the file at an absolute path, links followed. False when there is none, or the path is longer
// than kBookmarkPathLimit.
bool makeBookmark(const std::string& path, BookmarkRecord& record);

// One search for any number of files: what was read of a folder is remembered until the end of the object.
class BookmarkSearch {
public:
    // The time begins now.
    explicit BookmarkSearch(std::chrono::milliseconds time = kBookmarkSearchTime);
    ~BookmarkSearch();
    BookmarkSearch(const BookmarkSearch&) = delete;
    BookmarkSearch& operator=(const BookmarkSearch&) = delete;

    // Where the file of the record is: the recorded path as long as there is anything; else where the kernel or
    // a search through the folder and its surroundings finds the same file. `stale` tells that the record no
    // longer says what is there. 0; or, with `path` empty, ENOENT when it is not found, or the errno value of
    // what kept us from looking where it was recorded, or from opening folders at all: ETIMEDOUT when the time
    // had passed before everything was looked at.
    int find(const BookmarkRecord& record, std::string& path, bool& stale);

private:
    class Surroundings;

    Surroundings& around(const std::string& folder);

    Deadline end_;
    std::map<std::string, std::unique_ptr<Surroundings>> known_; // by the folder where the search begins
};

} // namespace port
