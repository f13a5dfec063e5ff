// The library's print engine: one walk over a format, through a writer, into a growable string or a fixed
// buffer.
//
// The grammar is "%", decimal digits and dots, and a conversion character:
//   %d %i      signed, %u %x %X %o unsigned, %c one character: one 32-bit argument each, with the platform's
//              zero flag, width and precision. A %c of 0 writes nothing.
//   %s         a char const*: the whole text, whatever width or precision say. Null writes nothing.
//   %e %f %g   one double, as the platform prints it; also %a and the upper-case ones.
//   %%         one "%", whatever stands between.
// What printf has beyond that is read as printf does: the flags "-", "+", " " and "#", "*" for a width or a
// precision, and the lengths h, hh, l, ll, j, z, t and L. With one of these %s keeps to width and precision:
// "%-8s" fills up, "%.*s" and "%-.3s" cut and read no further; "%8s" and "%.3s" still copy the whole text.
//
// One conversion writes at most 259 characters (%s any number). %n, %p, %ls, %lc, any other conversion
// character, and a number with a second dot take their one argument and write nothing; %m takes none and
// writes nothing. Numbers are not grouped: the flag "'" changes nothing. An unfinished conversion at the end
// of the format writes nothing. So whatever the compiler's check of a format accepts takes the arguments that
// it should, but for numbered ones ("%1$d").
//
// Thread-safety: reentrant; writers and strings are guarded by their owners.
// Nothing reports errors: a fixed target cuts, a growable one grows or throws std::bad_alloc. No argument may
// point into the target.
#pragma once

#include "strings/LString.h"

#include <cstdarg>
#include <cstdint>
#include <cstring>

#pragma GCC visibility push(default)

// Units that a string has at least before anything is formatted into it, and the factor by which a full one
// grows.
constexpr unsigned long LStringFormatStartCapacity = 260;
constexpr unsigned long LStringFormatGrowth = 4;

// Copies n characters of what is mostly a short run: two overlapping words need no call.
template <typename Word, typename T>
inline void LCopyEnds(const T* from, unsigned long n, T* to) {
    Word nFirst;
    Word nLast;
    std::memcpy(&nFirst, from, sizeof(Word));
    std::memcpy(&nLast, from + n - sizeof(Word), sizeof(Word));
    std::memcpy(to, &nFirst, sizeof(Word));
    std::memcpy(to + n - sizeof(Word), &nLast, sizeof(Word));
}

inline void LCopyRun(const char* from, unsigned long n, char* to) {
    if (n > 16)
        std::memcpy(to, from, n);
    else if (n >= 8)
        LCopyEnds<std::uint64_t>(from, n, to);
    else if (n >= 4)
        LCopyEnds<std::uint32_t>(from, n, to);
    else if (n >= 2)
        LCopyEnds<std::uint16_t>(from, n, to);
    else if (n != 0)
        *to = *from;
}

// Adds behind the text that the target has; whoever empties the target first replaces it. The text is not
// terminated while it is written: SetLength(GetCount()) does that at the end.
template <typename T>
class LStringLongTemplateWriter {
public:
    // Gives the target its start capacity. The target outlives the writer and is touched by nobody else
    // meanwhile.
    explicit LStringLongTemplateWriter(LStringLongTemplate<T>& target) : lsTarget(target) {
        lsTarget.GrowToSize(LStringFormatStartCapacity);
    }

    // Stores one character; a target that is full then grows to four times its capacity.
    void AddChar(T nChar) { AddChars(&nChar, 1); }

    // AddChar for each of n characters, in one go.
    void AddChars(const T* pChars, unsigned long n) {
        const unsigned long dwNewLength = lsTarget.dwLength + n;
        if (dwNewLength >= lsTarget.dwCapacity)
            _Grow(dwNewLength);
        LCopyRun(pChars, n, lsTarget.pData.get() + lsTarget.dwLength);
        lsTarget.dwLength = static_cast<std::uint32_t>(dwNewLength);
    }

    // The length of the target, old text included.
    std::uint32_t GetCount() const { return lsTarget.dwLength; }

    // The capacity that a target grows to for so many characters: four times the old one, and again; the
    // last step is as large as a string can be.
    static constexpr unsigned long GetGrownCapacity(unsigned long dwCapacity, unsigned long dwLength) {
        while (dwCapacity <= dwLength)
            dwCapacity *= LStringFormatGrowth;
        if (dwCapacity > LStringMaximumSize / sizeof(T))
            dwCapacity = LStringMaximumSize / sizeof(T);
        return dwCapacity > dwLength ? dwCapacity : dwLength + 1;
    }

private:
    // Terminated first, for the case that there is no memory.
    [[gnu::noinline]] void _Grow(unsigned long dwNewLength) {
        lsTarget.SetLength(lsTarget.dwLength);
        lsTarget.GrowToSize(GetGrownCapacity(lsTarget.dwCapacity, dwNewLength));
    }

    LStringLongTemplate<T>& lsTarget;
};

// A writer whose users keep the old text of the target.
template <typename T>
class LStringLongTemplateAppender : public LStringLongTemplateWriter<T> {
public:
    using LStringLongTemplateWriter<T>::LStringLongTemplateWriter;
};

// Writes into a caller's buffer and drops what comes after the limit. Stores no terminator: the caller does,
// at [GetCount()], so the limit leaves room for it.
template <typename T>
class LFixedLengthStringWriterTemplate {
public:
    // The buffer, not owned, holds at least `limit` characters.
    LFixedLengthStringWriterTemplate(T* buffer, std::uint32_t limit) : pBuffer(buffer), dwLimit(limit) {}

    void AddChar(T nChar) {
        if (dwPosition < dwLimit)
            pBuffer[dwPosition++] = nChar;
    }

    // AddChar for each of n characters, in one go.
    void AddChars(const T* pChars, unsigned long n) {
        const unsigned long dwStored = n < dwLimit - dwPosition ? n : dwLimit - dwPosition;
        LCopyRun(pChars, dwStored, pBuffer + dwPosition);
        dwPosition += static_cast<std::uint32_t>(dwStored);
    }

    // Characters stored.
    std::uint32_t GetCount() const { return dwPosition; }

private:
    T* pBuffer;
    std::uint32_t dwPosition = 0;
    std::uint32_t dwLimit;
};

// Formats into the writer and returns the writer's count; 0 when the format is null, and nothing is written.
// Stores no terminator. The list of arguments is used up.
template <typename Writer, typename T>
std::uint32_t tplprintf(Writer& writer, const T* format, va_list arguments);

extern template std::uint32_t tplprintf(LStringLongTemplateWriter<char>&, const char*, va_list);
extern template std::uint32_t tplprintf(LStringLongTemplateAppender<char>&, const char*, va_list);
extern template std::uint32_t tplprintf(LFixedLengthStringWriterTemplate<char>&, const char*, va_list);

// Formats into a buffer of `size` bytes, at least 1, and terminates: what exceeds size - 1 characters is cut.
// Returns the number of characters stored. A size of 0 stores nothing. It and `tprintf` are templates, so that
// they yield to a program's own functions of these names.
template <typename = void>
__attribute__((format(printf, 3, 4))) std::uint32_t tplsnprintf(char* buffer, unsigned long size,
                                                                const char* format, ...);

// The members sprintf and tsprintfappend of the string, as free functions.
__attribute__((format(printf, 2, 3))) std::uint32_t sprintf(LStringLongTemplate<char>& target,
                                                            const char* format, ...);
__attribute__((format(printf, 2, 3))) std::uint32_t tsprintfappend(LStringLongTemplate<char>& target,
                                                                   const char* format, ...);

// Formats into a writer that the caller has set up and returns its position. Stores no terminator.
__attribute__((format(printf, 2, 3))) std::uint32_t sprintf(LFixedLengthStringWriterTemplate<char>& writer,
                                                            const char* format, ...);

// Feeds the text s to the writer, null as an empty one. Stores no terminator.
template <typename Writer, typename T>
void tplstrcpy(Writer& writer, const T* s) {
    if (s == nullptr)
        return;
    const T* pEnd = s;
    while (*pEnd != 0)
        ++pEnd;
    writer.AddChars(s, static_cast<unsigned long>(pEnd - s));
}

// Prints to standard output with the platform's vprintf, all of its grammar. Returns what vprintf returns.
template <typename = void>
__attribute__((format(printf, 1, 2))) int tprintf(const char* format, ...);

#pragma GCC visibility pop
