#include "strings/LCharsets.h"
#include "strings/internal/LCharsetsUnits.h"

#include <CoreFoundation/CoreFoundation.h>
#include <algorithm>
#include <cstring>
#include <iconv.h>
#include <port/bsd.h>
#include <port/internal/exported.h>
#include <vector>

namespace {

// ---- The system's converters ----

constexpr std::size_t kConvertersKept = 4; // a thread; the library's own pairs are four
constexpr std::size_t kCodeNameSize = 32;

// An open converter and the pair of code sets that it is for.
class Converter {
public:
    Converter() = default;
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter() { Close(); }

    bool IsFor(const char* tocode, const char* fromcode) const {
        return _handle != None() && std::strcmp(_szTo, tocode) == 0 && std::strcmp(_szFrom, fromcode) == 0;
    }

    bool Open(const char* tocode, const char* fromcode) {
        Close();
        if (strlcpy(_szTo, tocode, sizeof _szTo) < sizeof _szTo &&
            strlcpy(_szFrom, fromcode, sizeof _szFrom) < sizeof _szFrom)
            _handle = iconv_open(tocode, fromcode);
        return _handle != None();
    }

    // Converts what can be converted and fits; returns the place behind it, and moves src to what is left.
    char* Convert(char* dst, std::size_t nRoom, const char*& src) {
        iconv(_handle, nullptr, nullptr, nullptr, nullptr);
        char* pSource = const_cast<char*>(src);
        const std::size_t nText = std::strlen(src);
        std::size_t nBytes = nText + 1;
        iconv(_handle, &pSource, &nBytes, &dst, &nRoom);
        src += std::min(nText, nText + 1 - nBytes);
        return dst;
    }

private:
    void Close() {
        if (_handle != None())
            iconv_close(_handle);
        _handle = None();
    }

    static iconv_t None() { return reinterpret_cast<iconv_t>(-1); }

    iconv_t _handle = None();
    char _szTo[kCodeNameSize] = {};
    char _szFrom[kCodeNameSize] = {};
};

// The thread's converter for the pair, null when there is none for it. Opening one costs several times what
// converting a short text does.
Converter* ConverterFor(const char* tocode, const char* fromcode) {
    thread_local Converter converters[kConvertersKept];
    thread_local std::size_t nOldest = 0;
    for (Converter& converter : converters)
        if (converter.IsFor(tocode, fromcode))
            return &converter;
    Converter& replaced = converters[nOldest];
    if (!replaced.Open(tocode, fromcode))
        return nullptr;
    nOldest = (nOldest + 1) % kConvertersKept;
    return &replaced;
}

using SizedCopy = void (*)(char* dst, const char* src, unsigned long n);

// The growable forms: the sized one into an array that grows to `nPerByte` bytes a byte.
void CopyString(LStringLongTemplate<char>& dst, const char* src, unsigned long nPerByte, SizedCopy copy) {
    const unsigned long n = nPerByte * std::strlen(src) + 1;
    dst.SetLength(0);
    dst.GrowToSize(n);
    copy(dst.GetData(), src, n);
    dst.SetLength(static_cast<std::uint32_t>(std::strlen(dst.GetData())));
}

constexpr unsigned long kTowardsUTF8 = 6;
constexpr unsigned long kAwayFromUTF8 = 1;

void CopyBytes(char* dst, const char* src, unsigned long n) {
    strlcpy(dst, src, n);
}

// ---- The platform's strings ----

// Reads nBytes bytes at src and writes them with a terminator into nRoom bytes at dst, all or nothing.
bool CopyThroughPlatform(void* dst, unsigned long nRoom, CFStringEncoding target, const void* src,
                         unsigned long nBytes, CFStringEncoding source) {
    const CFStringRef string = CFStringCreateWithBytes(kCFAllocatorDefault, static_cast<const UInt8*>(src),
                                                       static_cast<CFIndex>(nBytes), source, false);
    if (string == nullptr)
        return false;
    const bool bCopied =
        CFStringGetCString(string, static_cast<char*>(dst), static_cast<CFIndex>(nRoom), target) != 0;
    CFRelease(string);
    return bCopied;
}

void CopyAnsi(LStringLongTemplate<char>& dst, const unsigned short* src, unsigned long nUnits,
              unsigned long n) {
    dst.SetLength(0);
    dst.GrowToSize(n);
    const bool bCopied = CopyThroughPlatform(dst.GetData(), n, kCFStringEncodingISOLatin1, src,
                                             nUnits * sizeof(unsigned short), kCFStringEncodingUnicode);
    dst.SetLength(bCopied ? static_cast<std::uint32_t>(std::strlen(dst.GetData())) : 0);
}

} // namespace

template <typename TTarget, typename TSource>
unsigned long LCopyIconvFixedLength(TTarget* dst, const TSource* src, unsigned long n, const char* tocode,
                                    const char* fromcode) {
    if (n != 0) {
        dst[0] = 0;
        // The last byte of the room is kept for a terminator of our own, for a text that is cut.
        if (Converter* const pConverter = ConverterFor(tocode, fromcode))
            *pConverter->Convert(dst, n - 1, src) = 0;
    }
    if (*src == 0)
        return 0;
    return std::strcmp(fromcode, LCodeSetUTF8) == 0 ? utf8strlen(src) : std::strlen(src);
}

template <typename TTarget, typename TSource>
unsigned long LCopyIconvFixedLength(TTarget* dst, const TSource* src, const char* tocode,
                                    const char* fromcode) {
    return LCopyIconvFixedLength(dst, src, std::strlen(src) + 1, tocode, fromcode);
}

template PORT_EXPORTED unsigned long LCopyIconvFixedLength<char, char>(char*, const char*, unsigned long,
                                                                       const char*, const char*);
template PORT_EXPORTED unsigned long LCopyIconvFixedLength<char, char>(char*, const char*, const char*,
                                                                       const char*);

void LCopyFromISO88591(char* dst, const char* src, unsigned long n) {
    LCopyIconvFixedLength(dst, src, n, LCodeSetUTF8, LCodeSetISO88591);
}
void LCopyFromISO88591(char* dst, const char* src) {
    LCopyIconvFixedLength(dst, src, LCodeSetUTF8, LCodeSetISO88591);
}
void LCopyFromISO88591(LStringLongTemplate<char>& dst, const char* src) {
    CopyString(dst, src, kTowardsUTF8, LCopyFromISO88591);
}
void LCopyToISO88591(char* dst, const char* src, unsigned long n) {
    LCopyIconvFixedLength(dst, src, n, LCodeSetISO88591, LCodeSetUTF8);
}
void LCopyToISO88591(char* dst, const char* src) {
    LCopyIconvFixedLength(dst, src, LCodeSetISO88591, LCodeSetUTF8);
}
void LCopyToISO88591(LStringLongTemplate<char>& dst, const char* src) {
    CopyString(dst, src, kAwayFromUTF8, LCopyToISO88591);
}

void LCopyFromWIN1252(char* dst, const char* src, unsigned long n) {
    LCopyIconvFixedLength(dst, src, n, LCodeSetUTF8, LCodeSetISO88591);
}
void LCopyFromWIN1252(LStringLongTemplate<char>& dst, const char* src) {
    CopyString(dst, src, kTowardsUTF8, LCopyFromWIN1252);
}
void LCopyToWIN1252(char* dst, const char* src, unsigned long n) {
    LCopyIconvFixedLength(dst, src, n, LCodeSetISO88591, LCodeSetUTF8);
}
void LCopyToWIN1252(LStringLongTemplate<char>& dst, const char* src) {
    CopyString(dst, src, kAwayFromUTF8, LCopyToWIN1252);
}

void LCopyFromISO88595(char* dst, const char* src, unsigned long n) {
    LCopyIconvFixedLength(dst, src, n, LCodeSetUTF8, LCodeSetISO88595);
}
void LCopyFromISO88595(LStringLongTemplate<char>& dst, const char* src) {
    CopyString(dst, src, kTowardsUTF8, LCopyFromISO88595);
}
void LCopyToISO88595(char* dst, const char* src, unsigned long n) {
    LCopyIconvFixedLength(dst, src, n, LCodeSetISO88595, LCodeSetUTF8);
}
void LCopyToISO88595(LStringLongTemplate<char>& dst, const char* src) {
    CopyString(dst, src, kAwayFromUTF8, LCopyToISO88595);
}

void LCopyFromSHIFTJIS932(char* dst, const char* src, unsigned long n) {
    CopyBytes(dst, src, n);
}
void LCopyFromSHIFTJIS932(LStringLongTemplate<char>& dst, const char* src) {
    CopyString(dst, src, kTowardsUTF8, CopyBytes);
}
void LCopyToSHIFTJIS932(char* dst, const char* src, unsigned long n) {
    CopyBytes(dst, src, n);
}
void LCopyToSHIFTJIS932(LStringLongTemplate<char>& dst, const char* src) {
    CopyString(dst, src, kAwayFromUTF8, CopyBytes);
}
void LCopyFromEUCKR(char* dst, const char* src, unsigned long n) {
    CopyBytes(dst, src, n);
}
void LCopyFromEUCKR(LStringLongTemplate<char>& dst, const char* src) {
    CopyString(dst, src, kTowardsUTF8, CopyBytes);
}
void LCopyToEUCKR(char* dst, const char* src, unsigned long n) {
    CopyBytes(dst, src, n);
}
void LCopyToEUCKR(LStringLongTemplate<char>& dst, const char* src) {
    CopyString(dst, src, kAwayFromUTF8, CopyBytes);
}

void LCopyUnicodeFromAnsi(LStringLongTemplate<unsigned short>& dst, const LStringLongTemplate<char>& src) {
    const unsigned long n = src.GetLength() + 1UL;
    dst.SetLength(0);
    dst.GrowToSize(n);
    const bool bCopied =
        CopyThroughPlatform(dst.GetData(), n * sizeof(unsigned short), kCFStringEncodingUnicode,
                            src.GetText(), src.GetLength(), kCFStringEncodingWindowsLatin1);
    dst.SetLength(bCopied ? static_cast<std::uint32_t>(LCharsetsUnitCount(dst.GetData(), n - 1)) : 0);
}

void LCopyAnsiFromUnicode(LStringLongTemplate<char>& dst, const unsigned short* src) {
    const unsigned long nUnits = LCharsetsUnitCount(src, ~0UL);
    CopyAnsi(dst, src, nUnits, nUnits + 1);
}

void LCopyAnsiFromUnicode(LStringLongTemplate<char>& dst, const LStringLongTemplate<unsigned short>& src) {
    CopyAnsi(dst, src.GetText(), LCharsetsUnitCount(src.GetText(), src.GetLength()), src.GetLength() + 1UL);
}

void LCopyAnsiFromUTF8(char* dst, const char* src, unsigned long n) {
    if (n == 0)
        return;
    std::vector<unsigned short> units(strnlen(src, n - 1) + 1);
    LCopyUnicodeFromUTF8(units.data(), src, units.size());
    const unsigned long nUnits = LCharsetsUnitCount(units.data(), units.size());
    if (!CopyThroughPlatform(dst, n, kCFStringEncodingISOLatin1, units.data(),
                             nUnits * sizeof(unsigned short), kCFStringEncodingUnicode))
        dst[0] = 0;
}

void LCopyUTF8FromAnsi(char* dst, const char* src, unsigned long n) {
    if (n == 0)
        return;
    dst[0] = 0;
    const unsigned long nBytes = strnlen(src, n);
    if (nBytes == n)
        return;
    std::vector<unsigned short> units(nBytes + 1);
    if (CopyThroughPlatform(units.data(), units.size() * sizeof(unsigned short), kCFStringEncodingUnicode,
                            src, nBytes, kCFStringEncodingWindowsLatin1))
        LCopyUTF8FromUnicode(dst, units.data(), n);
}
