// Long operations on files that can be stopped and report how far they are: a block of memory read or written
// in pieces, the copy of a file, the copy of a folder tree.
//
// Thread-safety: reentrant; an operation uses its process interface on the calling thread alone. All block
// with the file system, and with locks as stated.
//
// Every operation returns LProcessFinished, LProcessStopped when the process interface asked for it, or
// LProcessFailed (threads/LProcessInterface.h). Whether to stop is asked before every piece.
#pragma once

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

// Copies the data of a file over the target, which is made when it is missing; the target then has the
// source's modification time, in whole seconds, but its own permissions. Reports "Copy File" on line 0, the
// target's name on line 1, and with every piece the progress made before it. Waits up to a second for a shared
// lock on the source and as long for an exclusive one on the target, then goes on without.
//
// Fails when the target's folder does not exist, when a file cannot be opened, when the source is a folder or
// the target itself, and when a piece cannot be copied whole. Once the target has been emptied, a copy that
// fails or is stopped removes it; before that the target stays as it was.
int Process(LProcessInterface& process, const LProcessCopyFile& copy);

// Copies what is in a folder into another one; links are followed. The target folder is not made, folders below
// it are, and those that exist are merged into. The progress goes up by equal parts for every entry of the
// folder, the status of the entries is one line down for every level of folders.
//
// Ends at the first entry that fails or is stopped, with its result; what was copied stays. Fails as well when
// there is no source, when a path of source or target would not fit its 259 bytes, and when the walk meets the
// target folder itself below the source.
int Process(LProcessInterface& process, const LProcessCopyFolder& copy);
