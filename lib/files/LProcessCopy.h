// Long operations on files that can be stopped and report how far they are: a block of memory read or written
// in pieces, the copy of a file, the copy of a folder tree.
//
// Thread-safety: reentrant; an operation uses its process interface on the calling thread alone. All block
// with the file system, and with locks as stated.
//
// Every operation returns LProcessFinished, LProcessStopped when the process interface asked for it, or
// LProcessFailed (threads/LProcessInterface.h). Whether to stop is asked before every piece.
#pragma once

#pragma GCC visibility push(default)

class LProcessInterface;
class LReadFileRef;
class LWriteFileRef;

constexpr unsigned long LProcessFilePiece = 10240; // bytes between two questions whether to stop
constexpr unsigned long LProcessCopyPiece = 32768; // the same, in a copy

// What is copied to where: borrowed paths of at most 259 bytes.
struct LProcessCopyFile {
    const char* szSource;
    const char* szTarget;
};

struct LProcessCopyFolder {
    const char* szSource;
    const char* szTarget;
};

// Reads size bytes into the buffer, or writes them from it, and reports the progress after every piece. Fails
// at a piece that moves only in part; what was moved before it stays. A size of 0 is finished at once. The
// buffer of the reader is written to, although it is declared like the writer's.
int LProcessFileRead(LProcessInterface& process, LReadFileRef& file, const void* buffer, unsigned long size);
int LProcessFileWrite(LProcessInterface& process, LWriteFileRef& file, const void* buffer,
                      unsigned long size);

// Copies the data of a file over the target, which is made when it is missing; the target then has the source's
// modification time, in whole seconds, but its own owner, attributes and permissions: 0666 under the process's mask
// when it is made. What takes no room in the source because it is a hole takes none in the target. A source that is
// a link is followed, a target that is one is not. Reports "Copy File" on line 0, the target's name on line 1, and
// with every piece the progress made before it. Waits up to a second for a shared lock on the source and as long for
// an exclusive one on the target, then goes on without.
//
// Fails when the target's folder does not exist, when a file cannot be opened, when the source is a folder or
// the target itself, when the target is there but no file, and when a piece cannot be copied whole. Once the target
// has been emptied, a copy that fails or is stopped removes it, or where that cannot be leaves it empty; before that
// the target stays as it was.
int Process(LProcessInterface& process, const LProcessCopyFile& copy);

// Copies what is in a folder into another one, each file as above. The target folder is not made before it is
// needed for a folder; folders below it are made, mode 0777 under the process's mask, and have the time of the copy;
// those that exist are merged into. The progress goes up by equal parts for every entry of the folder, the status of
// the entries is one line down for every level of folders.
//
// The two folders themselves may be links. A link in the source is followed, so that the copy has what it leads to,
// as long as it leads to a place below the source: not by ".." out of it and not by a path from the root. Links to
// folders in a folder that was reached by a link are not followed, nor are those to a folder that the copy is just
// in. Nothing is written through a link in the target. All of this holds whatever others do to the trees meanwhile.
//
// What cannot be copied is left out, named by SetError with the reason, and the result is LProcessFailed at the end:
// links that are not followed or lead nowhere, what cannot be read or written, what is neither file nor folder, and
// an entry whose path in source or target would not fit 259 bytes. The copy ends at once, and what was copied stays,
// when it is stopped, when the disk is full, and when there is no target folder for a file. Fails as well when there
// is no source, or when it is the target. A source that cannot be listed is told by SetError, but counts as empty:
// LProcessFinished.
int Process(LProcessInterface& process, const LProcessCopyFolder& copy);

#pragma GCC visibility pop
