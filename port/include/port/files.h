// Files by folder descriptor and name: copies that appear whole under their names, flags, birth times,
// extended attributes.
//
// Thread-safety: reentrant. All of it blocks with the file system. Failures leave errno.
//
// A name is one component, never followed when it is a symbolic link; a folder descriptor may be AT_FDCWD,
// the name then any path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <sys/types.h>

#pragma GCC visibility push(default)

// For opening a folder only to reach what is in it; needs no permission to read it.
constexpr int O_SEARCH = O_PATH;

// Copies a regular file, with its permissions (0777; the bits that lend the owner's rights stay behind), times,
// users' extended attributes and access list, as far as the file system keeps them, into a folder under a name,
// replacing what has that name. What is a hole in the source stays one. The data go into a file without a
// name, which takes the name when it is whole: the target is the old file or the new one, never a part, and a copy
// that is killed leaves nothing behind. (Where the file system has no such files, and for the moment in which a
// target is replaced, it has a name of its own in the folder, ".copy-PID-N".) False when the source is no regular
// file (EINVAL, a link ELOOP; it is not read), when it and the target are the same file (EEXIST), when the target is
// neither a file nor a link (EINVAL), or when anything fails on the way.
bool port_copy_file(int fromFolder, const char* from, int toFolder, const char* to);

// The same for a file that is new there, in a folder that nobody knows yet: it has its name from the start, which is
// faster, and loses it again when the copy fails. `granted` are the permissions that a file keeps there of those that
// it is made with: those of a folder that was made there with 0777. False with EEXIST when the name is taken.
bool port_copy_new_file(int fromFolder, const char* from, int toFolder, const char* to, mode_t granted);

// Makes a folder, 0777 under the process's mask, with a name of its own, ".copy-PID-N". `name` is empty when it cannot
// be made: false then.
constexpr std::size_t kPortOwnNameSize = 64;
bool port_make_own_folder(int folder, char (&name)[kPortOwnNameSize]);

// Copies a symbolic link as a link, replacing a file or a link that has the target's name: the target is the old
// one or the new one at every moment. False as above.
bool port_copy_link(int fromFolder, const char* from, int toFolder, const char* to);

// Gives the file at `path`, links followed, these bytes as its content. They go into a new file, as above, which has
// the permissions, the owner, the users' attributes and the access list of the old one and takes its name; a file
// that was not there gets 0666 under the process's mask. With `flush` bytes and name are on the disk when this
// returns. False with errno: nothing changed, or, when only the last flush failed, the new content stands but may not
// survive a power cut. EPERM: the owner or the group cannot be kept; EINVAL: something other than a file has the
// name.
bool port_replace_file(const char* path, const void* bytes, std::size_t size, bool flush);

// `openat` of a path, links on the way and at its end followed, that never leaves the folder: EXDEV when it would, by
// ".." or by a link that begins at the root. Close-on-exec.
int port_open_beneath(int folder, const char* path, int flags);

// Flags of a file that forbid its change. The immutable and append-only attributes are reported as
// SF_IMMUTABLE; UF_IMMUTABLE has no counterpart here.
constexpr unsigned UF_IMMUTABLE = 0x2;
constexpr unsigned SF_IMMUTABLE = 0x20000;

// The flags of a file or folder, a link followed here; 0 when there is none, and where the file system tells no such
// attributes. Opens nothing, so it needs no permission for the file.
unsigned port_file_flags(int folder, const char* name);
// Takes the flags off a regular file. Needs the privilege for it. False when they could not be taken off.
bool port_clear_file_flags(int folder, const char* name);

// When the file, a link followed here, was created, in seconds since 1970; where the file system does not
// know, when it was last changed. False when there is no such file.
bool port_birth_time(int folder, const char* name, std::int64_t* seconds);

// `setxattr` of the platform; the attribute is kept among the user's. `position` and `options` are 0. 0, or -1
// where the file is missing or the file system has no user attributes.
int port_setxattr(const char* path, const char* name, const void* value, std::size_t size,
                  std::uint32_t position, int options);

#pragma GCC visibility pop
