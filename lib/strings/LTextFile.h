// Whole text files: loaded as bytes, as UTF-16 or by their byte-order mark, saved as UTF-8 or as UTF-16 with a
// mark. Text in memory is UTF-8.
//
// Thread-safety: reentrant. Between processes readers and writers of a file take turns by `flock`, shared and
// exclusive: a loader waits up to about a second, a saver half of that, and goes on without the lock then.
// Apart from that the operations block with the file system.
//
// The marks are EF BB BF (UTF-8), FF FE (UTF-16, low byte first) and FE FF (UTF-16, high byte first). There is none
// for UTF-32: such a file of low bytes first begins with FF FE too and loads as the empty text, because its second unit
// of UTF-16 is 0; one of high bytes first has no mark. A character of UTF-16 is one unit: each half of a surrogate
// pair, and a half that stands alone, becomes three bytes of its own (LCharsets.h), so a text that was loaded from
// UTF-16 is UTF-8 only if all its characters are below U+10000 and it was well-formed. Nothing tells if it was.
// Characters above U+FFFF lose their high bits when they are saved.
//
// Files of 4 GiB or more load as the empty text, as does everything that has no size: folders, devices, and pipes, for
// whose writer nobody waits. A file that shrinks while it is read gives what was read of it. An allocation that fails
// throws std::bad_alloc.
//
// What is saved goes into a new file beside the old one, which then takes its name, permissions, owner, access list
// and users' attributes, but not the time at which the old one was made: the old text stays when the disk is full or
// fails, and when the process ends. A link is followed. Where that cannot be, because the file has more names than
// one, its folder cannot be written or its owner cannot be kept, it is written over once there is room for the whole
// new text; a disk that fails meanwhile, or the end of the process, leaves a part then.
#pragma once

#include "strings/LString.h"

#pragma GCC visibility push(default)

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

// Replace the file's text, or add to it; a missing file is made, mode 0666 under the process's mask, and not left
// behind without its text. The string form writes all bytes of the string. 0 when the text was saved and the file
// marked as UTF-8 for the platform (LFile::SetFileAttributeTextEncodingUTF8). -1 when the file could not be opened or
// the text not written, and the old text is there, and also when only the mark could not be set.
int LSaveText(const char* path, const char* text);
int LSaveText(const char* path, const LStringLongTemplate<char>& text);
int LSaveAppendText(const char* path, const char* text);
int LSaveAppendText(const char* path, const LStringLongTemplate<char>& text);

// As LSaveText, but always by a new file, which takes this one of the file's names, and the text is on the disk when
// they return: after a power cut the file has the old text or the new one. True then. False when the old text is
// there, which is also the case where the owner of the file cannot be kept or its folder cannot be written, and when
// only the folder could not be flushed.
bool LSaveTextSafe(const char* path, const char* text);
bool LSaveTextSafe(const char* path, const LStringLongTemplate<char>& text);

// Replaces the file's text by the mark FF FE (on machines that store the low byte first) and the UTF-16 of the
// text up to its first 0 byte; a sequence that is not well-formed ends it. The file is not marked as UTF-8. 0, or -1
// when the text was not saved.
int LSaveTextAsUnicodeBOM(const char* path, const LStringLongTemplate<char>& text);

#pragma GCC visibility pop
