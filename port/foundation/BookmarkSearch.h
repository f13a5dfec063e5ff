// Finding the file of a bookmark.
//
// Thread-safety: reentrant. Blocks with the file system.
#pragma once

#include <cstddef>
#include <string>

#include "foundation/BookmarkRecord.h"

namespace port {

// Names looked at for one bookmark: in the folder of the file, and in those around it.
constexpr std::size_t kBookmarkFolderLimit = 65536;
constexpr std::size_t kBookmarkSearchLimit = 4096;

// The record of the file at an absolute path, links followed. False when there is none, or the path is longer
// than kBookmarkPathLimit.
bool makeBookmark(const std::string& path, BookmarkRecord& record);

// Where the file of the record is: the recorded path as long as there is anything; else where the kernel or a
// search through the folder and its surroundings finds the same file. `stale` tells that the record no longer
// says what is there. 0; or, with `path` empty, ENOENT when it is not found, or the errno value of what kept
// us from looking where it was recorded, or from opening folders at all.
int findBookmarked(const BookmarkRecord& record, std::string& path, bool& stale);

} // namespace port
