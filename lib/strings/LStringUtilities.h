// Small helpers on plain zero-terminated text: fields between markers, URL queries, comma-separated lines,
// command lines, hexadecimal numbers, changes in place, random passwords.
//
// Thread-safety: reentrant, but for randomize and LStringGenerateRandomPassword, which share the platform's
// rand(). Nothing fails and nothing blocks. Texts are UTF-8, handled byte by byte; pointers are not null
// unless an operation says otherwise. Sizes are bytes, the terminator included; `out` does not overlap the
// texts.
//
// Those without the prefix are templates, so that they yield to a program's own functions of these names.
#pragma once

#include "base/LLimits.h"
#include "strings/LString.h"

#include <cstdint>

#pragma GCC visibility push(default)

// Bytes of "name=" that LRemoveHTTPItem looks for; the rest of a longer name is ignored.
constexpr unsigned long LHTTPItemKeyLength = 261;

// Copies to out what stands between the first startMarker and the next endMarker, or the end of the text when
// there is none; at most outSize - 1 bytes. True when the start marker was found; out is empty otherwise. An
// outSize of 0 stores nothing.
template <typename T>
bool LStringFindTextFieldTemplate(const T* text, const T* startMarker, const T* endMarker, T* out,
                                  unsigned long outSize);
extern template bool LStringFindTextFieldTemplate(const char*, const char*, const char*, char*,
                                                  unsigned long);

bool LStringFindTextField(const char* text, const char* startMarker, const char* endMarker, char* out,
                          unsigned long outSize);

// Removes "name=value" and the "&" before it from the query, in place. The key is found anywhere, at the end
// of a longer name too; of the first item of a query the "&" behind it stays.
void LRemoveHTTPItem(const char* name, char* query);

// Reads the item of a comma-separated line that starts at line[position]: spaces around it and double quotes
// are dropped, a comma or a space in quotes is kept, what exceeds outSize - 1 bytes is cut. The position
// moves behind the comma, or stays on the end of the line, which is the terminator, a line feed or a carriage
// return. True when the item is not empty; the character at the position tells an empty item from the end.
// An outSize of 0 reads nothing and moves nothing: false.
// An empty item behind the last comma of a line is not given: "a,b," and "a,b" end alike, with the position on
// the end of the line. Who counts items looks whether a comma stands before it.
template <typename = void>
bool GetCSVListItem(const char* line, unsigned long& position, char* out, unsigned long outSize);

// Takes a command line apart: arguments are separated by codes 1 to 32 and end at a space, double quotes hold
// spaces, a backslash before a space keeps it.
class LCommandLineArgumentStringExpander {
public:
    // Reads the command line in place; it must outlive the expander.
    explicit LCommandLineArgumentStringExpander(const char* commandLine) : pPosition(commandLine) {}

    // Reads the next argument. False when it is empty: at the end of the line, and for "" too.
    bool NextArgument();

    // The argument last read, valid until the next is read.
    const LStringLongTemplate<char>& GetArgument() const { return lsArgument; }

    // The number of arguments of another command line, the first one (the program) not counted; ends at an
    // empty argument.
    unsigned long GetArgumentCount(const char* commandLine) const;

private:
    const char* pPosition;
    LStringLongTemplate<char> lsArgument;
};

// Copies text up to the first of the characters in stops, or to its end, into out, 260 bytes: at most 259 are
// stored. Returns the number of characters scanned: the index of the stop or of the terminator.
template <typename T>
unsigned long LParseGetToCharacters(const T* text, const T* stops, T* out);
extern template unsigned long LParseGetToCharacters(const char*, const char*, char*);

// Walks over a text, which must outlive the parser, from stop character to stop character.
template <typename T>
class LStringParserTemplate {
public:
    explicit LStringParserTemplate(const T* text) : pPosition(text) {}

    // LParseGetToCharacters from the position on; the position moves behind the stop, or to the terminator.
    void GetToCharacterAndSkip(const T* stops, T* out) {
        pPosition += LParseGetToCharacters(pPosition, stops, out);
        if (*pPosition != 0)
            ++pPosition;
    }

    const T* GetPosition() const { return pPosition; }

private:
    const T* pPosition;
};

// Replaces every `from`, which is not the terminator, by `to` in place. Returns the text.
template <typename T>
T* LStringReplaceChar(T* text, T from, T to) {
    for (T* p = text; *p != 0; ++p)
        if (*p == from)
            *p = to;
    return text;
}

// The value of the hexadecimal digits at the start of the text, modulo 2^32: no sign, no "0x".
template <typename = void>
std::uint32_t atoh(const char* text);
template <typename = void>
std::uint32_t wtoh(const wchar_t* text);

// 16-bit units before the terminator.
template <typename = void>
unsigned long lstrlen(const unsigned short* text);

// 0 when the texts are equal or one begins the other, else -1: no order, so never to sort by.
template <typename = void>
int wstrcmp(const wchar_t* a, const wchar_t* b);

// Change the case of the text in place, with the platform's tolower and toupper. Return the text.
template <typename = void>
char* strlwr(char* text);
template <typename = void>
char* strupr(char* text);

// Seeds rand() from the time of day: within one millisecond always alike.
template <typename = void>
void randomize();

// Stores `length` random lower-case letters and the terminator in out, length + 1 bytes. Seeds rand() anew.
// Returns the length. Two calls within one millisecond give the same letters, in two processes too; and who
// knows the time can guess them: no protection for secrets.
unsigned long LStringGenerateRandomPassword(char* out, unsigned long length);

#pragma GCC visibility pop
