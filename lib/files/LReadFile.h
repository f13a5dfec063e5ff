// Reading lines and length-prefixed strings from a file, without a buffer: the descriptor stands right behind
// what was read, so others can go on with it.
//
// Thread-safety: as the descriptor's; the handle keeps no state. All operations block with the file.
//
// The handle owns nothing: who opened the descriptor closes it. -1 means that no file is open; there is
// nothing to read then. A call that a signal interrupts is begun anew.
#pragma once

#include "strings/LString.h"

#pragma GCC visibility push(default)

class LReadFileRef {
public:
    explicit LReadFileRef(int nFileDescriptor = -1) : nDescriptor(nFileDescriptor) {}

    int GetDescriptor() const { return nDescriptor; }

    // One line, without its end, which is CR, LF, CR LF or LF CR. At most size - 1 bytes are stored, and
    // always a terminator (size is at least 1); the rest of a longer line is read and dropped. The string form
    // takes a line of any length and replaces the text. True when a line ended, or when the file did behind at
    // least one byte; else false, and the text is empty. One system call a byte; the byte behind CR or LF is
    // given back by seeking when it does not belong to the line's end, so pipes lose it.
    bool ReadLine(char* buffer, unsigned long size) const;
    bool ReadLine(LStringLongTemplate<char>& line) const;

    // One length-prefixed string (LWriteFile.h) into LPathBufferSize bytes, terminated. A string of more than
    // 259 bytes is cut, and the descriptor still goes to the end of its record. The empty text when there is
    // no whole length; what is there of a text that the file's end cuts short.
    void ReadStringLenUTF8(char* buffer) const;

    // Up to size bytes, by one call, and a terminator: the buffer holds size + 1. Returns the bytes read, 0 at
    // the end, -1 with the empty text when they cannot be read.
    long ReadStringUTF8(char* buffer, unsigned long size) const;

private:
    int nDescriptor;
};

#pragma GCC visibility pop
