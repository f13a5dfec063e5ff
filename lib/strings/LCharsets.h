// Conversion between the library's text forms: UTF-8 in `char`, "Unicode" in `unsigned short` (16-bit units,
// one a character, no surrogate pairs), UTF-32 in `wchar_t`, and a few single-byte code pages; and index
// arithmetic on UTF-8.
//
// Thread-safety: reentrant; no text is shared between calls. Nothing here waits.
//
// What holds for every function:
// - Sources end with a 0 unit and do not overlap the destination, unless said otherwise. Units need not be
//   aligned. A growable source without an array is read as the empty text.
// - Sized forms take the destination's size in its own units, terminator included, never write outside it,
// and
//   always terminate. What lies behind the terminator is unspecified. With a size of 0 they write nothing.
// - Growable destinations grow as stated and end up with the length of the text; an allocation that fails
//   throws std::bad_alloc.
// - Text that cannot be converted ends the conversion; what was converted before it stays.
#pragma once

#include "strings/LString.h"

#pragma GCC visibility push(default)

// What the UTF-8 and UTF-32 core returns.
constexpr int LCharsetsDone = 0;
constexpr int LCharsetsLimitReached = 1;
constexpr int LCharsetsInvalid = 2;

// ---- UTF-8 and UTF-32 ----

// Decodes until the terminator. `limit` counts source bytes: a sequence of which the last byte would be
// number `limit` or beyond is not decoded, so dst never takes more than limit - 1 values and the terminator;
// nothing behind that is written, and utf8strlen(src) + 1 values are room enough.
// LCharsetsDone; LCharsetsLimitReached, tested first, by the length that the lead byte announces; or
// LCharsetsInvalid at the first sequence that is not well-formed, one cut short by the terminator included.
int LCopyUTF32FromUTF8Native(wchar_t* dst, const char* src, unsigned long limit);
int LCopyUTF32FromUTF8(wchar_t* dst, const char* src, unsigned long limit);

// Encodes until the terminator; dst holds 4 bytes a value and the terminator. The last argument is not used.
// Surrogates are encoded like other values. A value outside 0 to 0x10FFFF is written as U+FFFD and makes the
// result LCharsetsInvalid; else LCharsetsDone.
int LCopyUTF8FromUTF32Native(char* dst, const wchar_t* src, unsigned long unused);
int LCopyUTF8FromUTF32(char* dst, const wchar_t* src, unsigned long unused);

// ---- Unicode, 16-bit units ----

// Decodes as LCopyUTF32FromUTF8Native with limit n and keeps the low 16 bits of every value.
void LCopyUnicodeFromUTF8(unsigned short* dst, const char* src, unsigned long n);
// The same for a destination of LPathBufferSize units.
void LCopyUnicodeFromUTF8(unsigned short* dst, const char* src);
// Grows dst to the length of src + 1. A value whose low 16 bits are 0 ends the text.
void LCopyUnicodeFromUTF8(LStringLongTemplate<unsigned short>& dst, const LStringLongTemplate<char>& src);

// Encodes at most n - 1 units, surrogates like other units, and keeps the first n - 1 bytes: the cut may fall
// inside a sequence.
void LCopyUTF8FromUnicode(char* dst, const unsigned short* src, unsigned long n);
// The same for a destination of LPathBufferSize bytes.
void LCopyUTF8FromUnicode(char* dst, const unsigned short* src);
// Both grow dst to 6 bytes a unit + 1.
void LCopyUTF8FromUnicode(LStringLongTemplate<char>& dst, const LStringLongTemplate<unsigned short>& src);
void LCopyFromUnicode(LStringLongTemplate<char>& dst, const unsigned short* src);

// At most n - 1 values; the low 16 bits of each are kept.
void LCopyUnicodeFromUTF32(unsigned short* dst, const wchar_t* src, unsigned long n);
// At most n - 1 units, each becoming one value; a surrogate stays one.
void LCopyUTF32FromUnicode(wchar_t* dst, const unsigned short* src, unsigned long n);

// Stores at most n units in big-endian byte order. With `terminate` a 0 unit follows them (dst holds n + 1
// units) and their count comes back; without it, spaces fill the rest up to n, and n comes back. dst may be
// src.
unsigned long LCopyToBigEndianUnicode(unsigned short* dst, const unsigned short* src, unsigned long n,
                                      bool terminate);

// ---- Characters and bytes of UTF-8 ----
//
// The length of a sequence is read from its lead byte alone; a stray continuation byte is a character of its
// own, and a sequence that the terminator cuts short is one that ends there. Null is read as empty.

// Byte offset of character number charIndex, counted from 0; the byte length when there are fewer characters.
unsigned long LCharsetsUTF8CharIndexToByteIndex(const char* s, unsigned long charIndex);
// Number of characters that begin before byteIndex.
unsigned long LCharsetsUTF8ByteIndexToCharIndex(const char* s, unsigned long byteIndex);
// These two are templates, so that they yield to a program's own functions of these names.
//
// Copies whole sequences as long as they stay within n - 1 bytes. Returns the number of bytes copied.
template <typename = void>
unsigned long utf8strlcpy(char* dst, const char* src, unsigned long n);
// Number of characters.
template <typename = void>
unsigned long utf8strlen(const char* s);

// ---- Validation ----

// How many of the n bytes at s stand before the first that begins no whole well-formed sequence: n when the
// text is sound. A 0 byte is a character like others.
unsigned long LCharsetsUTF8SoundLength(const char* s, unsigned long n);
// Whether the text is well-formed to its terminator. Null is read as empty.
bool LCharsetsIsUTF8(const char* s);

// ---- Code pages ----
//
// What the code page (or UTF-8) cannot express, is invalid or does not fit ends the text. The growable forms
// grow dst to 6 x strlen(src) + 1 bytes towards UTF-8 ("From"), to strlen(src) + 1 away from it ("To").

// The code sets' names for the system's converter.
constexpr char LCodeSetUTF8[] = "UTF-8";
constexpr char LCodeSetISO88591[] = "ISO-8859-1";
constexpr char LCodeSetISO88595[] = "ISO-8859-5";

// One call of the system's converter, from `fromcode` to `tocode`, into n bytes at dst. Converters are kept
// for the thread's next call. An unknown code set gives the empty text.
//
// Returns how many characters of src are not in dst: 0 when the whole text is. Those of UTF-8 are counted by
// lead bytes, in another code set by bytes. The functions below are this one with their code sets: who wants
// to know what they lose calls it.
template <typename TTarget, typename TSource>
unsigned long LCopyIconvFixedLength(TTarget* dst, const TSource* src, unsigned long n, const char* tocode,
                                    const char* fromcode);
// The same for a destination of strlen(src) + 1 bytes.
template <typename TTarget, typename TSource>
unsigned long LCopyIconvFixedLength(TTarget* dst, const TSource* src, const char* tocode,
                                    const char* fromcode);

extern template unsigned long LCopyIconvFixedLength<char, char>(char*, const char*, unsigned long,
                                                                const char*, const char*);
extern template unsigned long LCopyIconvFixedLength<char, char>(char*, const char*, const char*, const char*);

void LCopyFromISO88591(char* dst, const char* src, unsigned long n);
void LCopyFromISO88591(char* dst, const char* src); // dst holds strlen(src) + 1 bytes
void LCopyFromISO88591(LStringLongTemplate<char>& dst, const char* src);
void LCopyToISO88591(char* dst, const char* src, unsigned long n);
void LCopyToISO88591(char* dst, const char* src); // dst holds strlen(src) + 1 bytes
void LCopyToISO88591(LStringLongTemplate<char>& dst, const char* src);

// Converts with the ISO-8859-1 tables: byte 0x80 is U+0080, no euro sign.
void LCopyFromWIN1252(char* dst, const char* src, unsigned long n);
void LCopyFromWIN1252(LStringLongTemplate<char>& dst, const char* src);
void LCopyToWIN1252(char* dst, const char* src, unsigned long n);
void LCopyToWIN1252(LStringLongTemplate<char>& dst, const char* src);

void LCopyFromISO88595(char* dst, const char* src, unsigned long n);
void LCopyFromISO88595(LStringLongTemplate<char>& dst, const char* src);
void LCopyToISO88595(char* dst, const char* src, unsigned long n);
void LCopyToISO88595(LStringLongTemplate<char>& dst, const char* src);

// The East Asian code pages pass through byte for byte.
void LCopyFromSHIFTJIS932(char* dst, const char* src, unsigned long n);
void LCopyFromSHIFTJIS932(LStringLongTemplate<char>& dst, const char* src);
void LCopyToSHIFTJIS932(char* dst, const char* src, unsigned long n);
void LCopyToSHIFTJIS932(LStringLongTemplate<char>& dst, const char* src);
void LCopyFromEUCKR(char* dst, const char* src, unsigned long n);
void LCopyFromEUCKR(LStringLongTemplate<char>& dst, const char* src);
void LCopyToEUCKR(char* dst, const char* src, unsigned long n);
void LCopyToEUCKR(LStringLongTemplate<char>& dst, const char* src);

// ---- Ansi ----
//
// Reads Windows Latin-1, writes ISO Latin-1. All or nothing: a character that the target cannot express, or
// too little room, gives the empty text.

// Grows dst to the length of src + 1.
void LCopyUnicodeFromAnsi(LStringLongTemplate<unsigned short>& dst, const LStringLongTemplate<char>& src);
// Both grow dst to the units of src + 1 bytes.
void LCopyAnsiFromUnicode(LStringLongTemplate<char>& dst, const unsigned short* src);
void LCopyAnsiFromUnicode(LStringLongTemplate<char>& dst, const LStringLongTemplate<unsigned short>& src);
// Decodes as LCopyUnicodeFromUTF8 with size n first: n limits the source's bytes as well.
void LCopyAnsiFromUTF8(char* dst, const char* src, unsigned long n);
// All of src must fit n - 1 units; the UTF-8 is then cut as by LCopyUTF8FromUnicode.
void LCopyUTF8FromAnsi(char* dst, const char* src, unsigned long n);

#pragma GCC visibility pop
