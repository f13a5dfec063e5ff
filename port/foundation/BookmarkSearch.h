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
// search through the folder and its surroundings finds the same file. Empty when it is not found. `stale` tells
// that the record no longer says what is there.
std::string findBookmarked(const BookmarkRecord& record, bool& stale);

} // namespace port
