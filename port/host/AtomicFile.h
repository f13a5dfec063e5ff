// Replacing a file whole: a reader, and a machine that stops at any instruction, finds the old content or
// the new one.
//
// Thread-safety: reentrant. Two writers of one file do not disturb each other; the later rename stays.
#pragma once

#include <string>
#include <string_view>

namespace port {

// A directory and a name in it, links of the name followed.
struct FilePlace {
    std::string folder; // "/" at its end, or empty for the working folder
    std::string name;
};

// Where the last component of `path` leads: a symbolic link there is followed (to a target that need not
// exist yet), so that a settings file kept elsewhere stays a link. False with errno: ELOOP after 16 links,
// EINVAL for a path without a name, ENAMETOOLONG.
bool resolvePlace(const std::string& path, FilePlace& place);

// Gives the file `bytes` as its content, on the disk when this returns. The bytes go into a temporary file
// in the same folder, which then takes the name. An existing file's permissions are kept, and by root its owner;
// a new file gets 0600. Blocks on the disk. False with errno: nothing changed, or (when only the last flush of
// the folder failed) the new content stands but may not survive a power cut.
bool replaceFile(const std::string& path, std::string_view bytes);

// Removes the temporary files that writers of `path` left when they were killed. Precondition: the caller
// keeps other writers of `path` out.
void removeAbandonedTemporaries(const std::string& path);

// Renames the file at `path`, links followed, to its own name and `suffix`, on the disk when this returns.
// False with errno.
bool moveAside(const std::string& path, const std::string& suffix);

// Removes the file at `path`, the file that it leads to if it is a link, what killed writers left, and the copies
// that `moveAside` made with suffixes that begin so. None of them needs to be there, but the folder. On the disk
// when this returns. False with errno: something stayed. Precondition as above.
bool removeWithCopies(const std::string& path, const std::string& suffix);

// Makes the folder and its parents, 0700 each, where they are missing. False with errno.
bool makeFolders(const std::string& folder);

} // namespace port
