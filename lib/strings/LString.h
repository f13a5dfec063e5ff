// The growable string, the fixed 260-character string and a read-only view. Text in a `char` string is UTF-8,
// in an `unsigned short` string 16-bit Unicode units, in a `wchar_t` string 32-bit code points. A unit is one
// element of the string.
//
// Thread-safety: none; the owner guards it.
#pragma once

#include "base/LLimits.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <port/Unique.h>

#pragma GCC visibility push(default)

// What readers get in place of a string that has no array.
template <typename T>
inline constexpr T LStringEmptyText[1] = {};

// Bytes of a string's array at most.
constexpr unsigned long LStringMaximumSize = UINT32_MAX;

template <typename T>
class LStringLongTemplateWriter;

// An owned, zero-terminated array of units that grows and never shrinks. A new string has no array, length 0
// and capacity 0; once there is an array, length < capacity and the unit at [length] is 0.
// An allocation that fails throws std::bad_alloc, as array-new does; so does one of more than
// LStringMaximumSize bytes. The string stays as it was then; one that is formatted into keeps what it has got
// so far.
template <typename T>
class LStringLongBase {
public:
    LStringLongBase() = default;
    LStringLongBase(const LStringLongBase&) = delete;
    LStringLongBase& operator=(const LStringLongBase&) = delete;

    // The array, GetCapacity() units; null while nothing has been allocated. Valid until the next operation
    // that grows or replaces it.
    T* GetData() { return pData.get(); }
    const T* GetData() const { return pData.get(); }
    // The text, never null: the shared empty text stands in for a missing array.
    const T* GetText() const { return pData ? pData.get() : LStringEmptyText<T>; }
    // Units before the terminator.
    std::uint32_t GetLength() const { return dwLength; }
    // Units allocated, the terminator's included.
    std::uint32_t GetCapacity() const { return dwCapacity; }

    // Ends the text after n units that the caller has stored. n is below the capacity; 0 is always allowed.
    void SetLength(std::uint32_t n) {
        dwLength = n;
        if (pData)
            pData[n] = 0;
    }

    // Makes the capacity at least n units, the terminator's included: exactly n when it has to grow. The text
    // stays.
    void GrowToSize(unsigned long n) {
        if (n <= dwCapacity)
            return;
        port::Unique<T[]> pNew = _Allocate(n);
        if (pData)
            std::memcpy(pNew.get(), pData.get(), dwLength * sizeof(T));
        pNew[dwLength] = 0;
        pData = std::move(pNew);
        dwCapacity = static_cast<std::uint32_t>(n);
    }

protected:
    ~LStringLongBase() = default;

    static port::Unique<T[]> _Allocate(unsigned long n) {
        if (n > LStringMaximumSize / sizeof(T))
            throw std::bad_alloc();
        return port::Unique<T[]>(new T[n]);
    }

    port::Unique<T[]> pData;
    std::uint32_t dwLength = 0;
    std::uint32_t dwCapacity = 0;

    friend class LStringLongTemplateWriter<T>;
};

// 16-bit and 32-bit strings, which the conversions between character sets fill.
template <typename T>
class LStringLongTemplate : public LStringLongBase<T> {};

template <>
class LStringLongTemplate<char> : public LStringLongBase<char> {
public:
    // Moves the other string's array here; the other one is left without an array. A string assigned to
    // itself stays.
    void Assign(LStringLongTemplate& other);

    // Copies the text s into a new array of exactly its size, terminator included. s may point into the old
    // array; null is read as empty.
    LStringLongTemplate& operator=(const char* s);

    // Adds the text s; what has to grow grows to exactly what is needed, so that n calls in a loop copy n
    // times the text: many pieces are added with tsprintfappend, which grows by four, or after a GrowToSize.
    // s may point into the own array; null is read as empty.
    void Append(const char* s);

    // Replaces the text by the formatted one, with a capacity of at least 260; grammar of the format:
    // LStringFormat.h. No argument may point into the own array. Returns the new length.
    std::uint32_t sprintf(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // As sprintf, but adds the formatted text to what is there. Returns the whole new length.
    std::uint32_t tsprintfappend(const char* format, ...) __attribute__((format(printf, 2, 3)));
};

extern template class LStringLongBase<char>;
extern template class LStringLongBase<unsigned short>;
extern template class LStringLongBase<wchar_t>;

// A read-only view of a UTF-8 string for those who need a pointer: never null. It holds the string's array as
// it is now, so it lives no longer than that.
class LUTF8StringLongRef {
public:
    explicit LUTF8StringLongRef(const LStringLongTemplate<char>& source) : pText(source.GetText()) {}

    const char* Get() const { return pText; }
    operator const char*() const { return pText; }

private:
    const char* pText;
};

// A format, passed by value so that a text is never taken for one by accident.
template <typename T>
class LStringPrintFormatTemplate {
public:
    explicit constexpr LStringPrintFormatTemplate(const T* format) : pFormat(format) {}

    constexpr const T* Get() const { return pFormat; }

private:
    const T* pFormat;
};

// A text of at most 259 characters in place, usable wherever a path or name buffer of 260 is expected.
template <typename T>
class LStringShortTemplate {
public:
    LStringShortTemplate() = default;

    // Formats the arguments (grammar: LStringFormat.h); what exceeds 259 characters is cut.
    LStringShortTemplate(LStringPrintFormatTemplate<T> format, ...);

    operator T*() { return szText; }
    operator const T*() const { return szText; }

private:
    T szText[LPathBufferSize] = {};
};

#pragma GCC visibility pop
