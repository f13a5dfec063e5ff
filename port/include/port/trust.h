// Who may change what a path names: what a program asks before it runs something that it only knows by name.
//
// Thread-safety: reentrant. Blocks with the file system, and with the user database where a folder may be
// written by a group.
#pragma once

#include <cstddef>

#pragma GCC visibility push(default)

// True when the item at the path and every folder and symbolic link on the way to it, back to the root, belong
// to this user or to root, and nobody else may write there. The path is absolute; links are followed.
//
// The own group of this user or of root may write: the one that is the user's primary group, has the user's
// name and has no other members. Where an access control list stands beside such a group, it counts as others.
// In a sticky folder of root or this user others may make new items, but not touch the items of root and this
// user: those count as theirs, unless something is mounted there.
//
// False leaves the path of the first item that failed in `item` (cut to `size` bytes) and errno: EPERM when
// others may change it, else why it could not be looked at.
bool port_only_ours(const char* path, char* item, std::size_t size);

#pragma GCC visibility pop
