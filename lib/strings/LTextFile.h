// Whole text files: loaded as bytes, as UTF-16 or by their byte-order mark, saved as UTF-8 or as UTF-16 with a
// mark. Text in memory is UTF-8.
//
// Thread-safety: reentrant. Between processes readers and writers of a file take turns by `flock`, shared and
// exclusive: a loader waits up to about a second, a saver half of that, and goes on without the lock then.
// Apart from that the operations block with the file system.
//
// The marks are EF BB BF (UTF-8), FF FE (UTF-16, low byte first) and FE FF (UTF-16, high byte first). A
// character of UTF-16 is one unit: surrogates are converted like others (LCharsets.h), and characters above
// U+FFFF lose their high bits when they are saved.
//
// Files of 4 GiB or more load as the empty text, as does everything that has no size. A file that shrinks while
// it is read gives what was read of it. An allocation that fails throws std::bad_alloc.
#pragma once

#include "strings/LString.h"

// The bytes as they are, a mark and zero bytes included. 1; 0 when the file cannot be opened, and the text is as
// it was.
int LLoadText(const char* path, LStringLongTemplate<char>& text);

// UTF-16 in the order of this machine, up to the first 0 unit; an odd last byte is ignored. A mark is a
// character like others. Results as for LLoadText.
int LLoadTextAsUTF16(const char* path, LStringLongTemplate<char>& text);

// UTF-16 in the order that the mark tells, without a mark in that of this machine; the mark is not part of the
// text. Results as for LLoadText.
int LLoadTextUnicode(const char* path, LStringLongTemplate<char>& text);

// UTF-16 or UTF-8 as the mark tells, up to the first 0 character and without the mark; an odd last byte of
// UTF-16 is paired with a zero byte. Without a mark the bytes as they are. False when the file cannot be opened,
// and the text is as it was.
bool LLoadTextAutoChar(const char* path, LStringLongTemplate<char>& text);

// Replace the file's text, or add to it; a missing file is made, mode 0666 under the process's mask. The string
// form writes all bytes of the string. The result is that of marking the file as UTF-8 for the platform
// (LFile::SetFileAttributeTextEncodingUTF8): 0, or -1. Failures to open or to write are not told.
int LSaveText(const char* path, const char* text);
int LSaveText(const char* path, const LStringLongTemplate<char>& text);
int LSaveAppendText(const char* path, const char* text);
int LSaveAppendText(const char* path, const LStringLongTemplate<char>& text);

// Replaces the file's text by the mark FF FE (on machines that store the low byte first) and the UTF-16 of the
// text up to its first 0 byte; a sequence that is not well-formed ends it. The file is not marked as UTF-8.
void LSaveTextAsUnicodeBOM(const char* path, const LStringLongTemplate<char>& text);
