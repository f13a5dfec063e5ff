#include "strings/LStringFormat.h"

#include "strings/internal/LStringDigits.h"
#include "strings/internal/LStringDirective.h"
#include "strings/internal/LStringDouble.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <port/internal/exported.h>
#include <string_view>
#include <type_traits>
#include <utility>

namespace {

// Bytes of one conversion's text, terminator included.
constexpr int kConversionBufferSize = 260;
// Of a longer conversion only as much is made as shows: no part of it is longer than all that is kept.
constexpr int kMostShown = kConversionBufferSize - 1;
// A double ends after 1074 decimal places, and has at most 309 digits before them: more does not show.
constexpr int kMostDoublePrecision = 1100;
constexpr int kMostDigits = 22; // of a 64-bit number, octal
constexpr int kMostSign = 3;    // a sign and "0x"

// The following store a number's digits before pEnd and return where they begin.
char* StoreBits(char* pEnd, std::uint64_t qwValue, unsigned nBitsPerDigit, const char* pDigits) {
    const unsigned nMask = (1U << nBitsPerDigit) - 1;
    do {
        *--pEnd = pDigits[qwValue & nMask];
        qwValue >>= nBitsPerDigit;
    } while (qwValue != 0);
    return pEnd;
}

char* StoreDigits(char* pEnd, char nConversion, std::uint64_t qwValue) {
    switch (nConversion) {
    case 'x':
        return StoreBits(pEnd, qwValue, 4, "0123456789abcdef");
    case 'X':
        return StoreBits(pEnd, qwValue, 4, "0123456789ABCDEF");
    case 'o':
        return StoreBits(pEnd, qwValue, 3, "01234567");
    default:
        return LStoreDecimal(pEnd, qwValue);
    }
}

// Where one conversion is made: its text, with room for what is filled up on either side. Not to be zeroed first:
// that costs a number more than its digits.
struct Field {
    static constexpr std::size_t kBefore =
        2UL * kMostShown + kMostSign + kMostDigits;          // spaces, sign, zeros, digits
    static constexpr std::size_t kBehind = 2UL * kMostShown; // a text, spaces

    char szRoom[kBefore + kBehind];
    char* const pStart = szRoom + kBefore;
    char* p = pStart;
    char* pEnd = pStart;
    long nUnseen = 0; // characters behind the end that count for the width and do not show
};

// Stores as many characters as may show.
char* FillBefore(char* p, long nCount, char nFill) {
    for (long n = std::min(nCount, long{kMostShown}); n > 0; --n)
        *--p = nFill;
    return p;
}

char* FillBehind(char* p, long nCount, char nFill) {
    for (long n = std::min(nCount, long{kMostShown}); n > 0; --n)
        *p++ = nFill;
    return p;
}

// Puts zeros and a sign before the text, fills up to the width, with zeros behind the sign or with spaces,
// and hands on as much as shows.
template <typename Writer>
void AddField(Writer& writer, const LStringDirective& directive, Field& field, std::string_view sSign,
              long nZeros, bool bZeroFill) {
    char* p = field.p;
    const long nLength = static_cast<long>(sSign.size()) + nZeros + (field.pEnd - p) + field.nUnseen;
    long nFill = directive.nWidth - nLength;
    if (bZeroFill && !directive.bLeft && nFill > 0)
        nZeros += std::exchange(nFill, 0);
    p = FillBefore(p, nZeros, '0') - sSign.size();
    sSign.copy(p, sSign.size());
    if (directive.bLeft)
        field.pEnd = FillBehind(field.pEnd, nFill, ' ');
    else
        p = FillBefore(p, nFill, ' ');
    writer.AddChars(p, static_cast<unsigned long>(std::min<long>(field.pEnd - p, kMostShown)));
}

// A negative value comes as its two's complement in 64 bits.
template <typename Writer>
void AddNumber(Writer& writer, const LStringDirective& directive, char nConversion, std::uint64_t qwValue) {
    const bool bSigned = nConversion == 'd' || nConversion == 'i';
    const bool bNegative = bSigned && static_cast<std::int64_t>(qwValue) < 0;
    __attribute__((uninitialized)) Field field;
    if (qwValue != 0 || directive.nPrecision != 0)
        field.p = StoreDigits(field.pEnd, nConversion, bNegative ? 0U - qwValue : qwValue);
    long nZeros = std::max(0L, directive.nPrecision - (field.pEnd - field.p));
    if (directive.bAlternate && nConversion == 'o' && nZeros == 0 && (qwValue != 0 || field.p == field.pEnd))
        nZeros = 1;
    char szSign[kMostSign] = {bNegative ? '-' : directive.nPlus};
    unsigned long nSign = bSigned && szSign[0] != 0 ? 1 : 0;
    if (directive.bAlternate && (nConversion | 0x20) == 'x' && qwValue != 0) {
        szSign[0] = '0';
        szSign[1] = nConversion;
        nSign = 2;
    }
    AddField(writer, directive, field, {szSign, nSign}, nZeros, directive.bZero && directive.nPrecision < 0);
}

// AddNumber for the most frequent directives.
template <typename Writer>
void AddDecimal(Writer& writer, const LStringDirective& directive, bool bSigned, unsigned nValue) {
    const bool bNegative = bSigned && static_cast<int>(nValue) < 0;
    char szText[1 + LStringDirective::kMostDigits];
    char* const pEnd = szText + sizeof(szText);
    char* p = LStoreDecimal(pEnd, bNegative ? 0U - nValue : nValue);
    const int nDigits = std::max(directive.nPrecision, directive.nWidth - (bNegative ? 1 : 0));
    while (pEnd - p < nDigits)
        *--p = '0';
    if (bNegative)
        *--p = '-';
    writer.AddChars(p, static_cast<unsigned long>(pEnd - p));
}

// The text ends at a character of 0, as it would in the platform's buffer.
template <typename Writer>
void AddCharacter(Writer& writer, const LStringDirective& directive, char nChar) {
    if (nChar != 0 && directive.nWidth == 0)
        return writer.AddChar(nChar);
    __attribute__((uninitialized)) Field field;
    if (nChar != 0)
        *field.pEnd++ = nChar;
    else
        field.nUnseen = 1;
    if (nChar != 0 || !directive.bLeft)
        AddField(writer, directive, field, {}, 0, false);
}

// The host's formats by conversion, length and "#". Made while compiling: what was written a moment ago would
// have to be waited for.
constexpr char kDoubleConversions[] = "efgaEFGA";
constexpr auto kDoubleFormats = [] {
    std::array<std::array<char, 8>, 32> formats{};
    for (std::size_t i = 0; i < formats.size(); ++i) {
        char* p = formats[i].data();
        for (const char nChar : {'%', i >= 16 ? '#' : '\0', '.', '*', i % 16 >= 8 ? 'L' : '\0'})
            if (nChar != 0)
                *p++ = nChar;
        *p = kDoubleConversions[i % 8];
    }
    return formats;
}();

// Without the sign. Returns the length, of which the buffer has what fits.
template <typename TFloat>
int PrintUnsigned(char* buffer, unsigned long size, const LStringDirective& directive, char nConversion,
                  TFloat nValue) {
    // Not for the compiler's check of formats: this one comes from the table.
    constexpr auto kPrint = static_cast<int (*)(char*, std::size_t, const char*, ...)>(std::snprintf);
    const auto nKind =
        static_cast<std::size_t>(std::strchr(kDoubleConversions, nConversion) - kDoubleConversions);
    const std::size_t nFormat = nKind + (directive.bLongDouble ? 8 : 0) + (directive.bAlternate ? 16 : 0);
    return kPrint(buffer, size, kDoubleFormats[nFormat].data(),
                  std::min(directive.nPrecision, kMostDoublePrecision), nValue);
}

// Mostly without the platform's help. It does not know of "#", nor a long double.
template <typename TFloat>
char* StoreDouble(const Field& field, const LStringDirective& directive, char nConversion, TFloat nValue) {
    static_assert(Field::kBefore >= LStringDoubleLength + kMostSign + kMostShown);
    if constexpr (std::is_same_v<TFloat, double>)
        if (!directive.bAlternate && (nConversion | 0x20) != 'a' && std::isfinite(nValue))
            return LStoreDouble(field.pEnd, nConversion, directive.nPrecision, std::abs(nValue));
    return nullptr;
}

// By the platform's printf. False when that makes nothing of it.
template <typename TFloat>
bool PrintDouble(Field& field, const LStringDirective& directive, char nConversion, TFloat nValue) {
    const int nLength = PrintUnsigned(field.pStart, kConversionBufferSize, directive, nConversion,
                                      std::signbit(nValue) ? -nValue : nValue);
    if (nLength <= 0)
        return false;
    field.pEnd += std::min(nLength, kMostShown);
    field.nUnseen = std::max(0, nLength - kMostShown);
    if (std::isfinite(nValue) &&
        ((nConversion | 0x20) != 'g' || directive.bAlternate)) // zeros up to the precision
        field.nUnseen += std::max(0, directive.nPrecision - kMostDoublePrecision);
    return true;
}

template <typename Writer, typename TFloat>
void AddDouble(Writer& writer, const LStringDirective& directive, char nConversion, TFloat nValue) {
    if (!directive.bValid)
        return;
    __attribute__((uninitialized)) Field field;
    if (char* const pStored = StoreDouble(field, directive, nConversion, nValue))
        field.p = pStored;
    else if (!PrintDouble(field, directive, nConversion, nValue))
        return;
    const bool bFinite = std::isfinite(nValue);
    char szSign[kMostSign] = {std::signbit(nValue) ? '-' : directive.nPlus};
    unsigned long nSign = szSign[0] != 0 ? 1 : 0;
    if (bFinite && (nConversion | 0x20) == 'a') // "0x" stands before the zeros
        for (int i = 0; i < 2; ++i)
            szSign[nSign++] = *field.p++;
    AddField(writer, directive, field, {szSign, nSign}, 0, directive.bZero && bFinite);
}

// Only conversions named here reach a printer; whatever else a format asks for has taken its argument.
template <typename Writer>
void AddInteger(Writer& writer, const LStringDirective& directive, char nConversion, std::uint64_t qwValue) {
    if (!directive.bValid)
        return;
    const int nUnused = 64 - 8 * directive.nSize;
    qwValue <<= nUnused;
    switch (nConversion) {
    case 'd':
    case 'u':
        if (directive.IsShort())
            return AddDecimal(writer, directive, nConversion == 'd',
                              static_cast<unsigned>(qwValue >> nUnused));
        if (nConversion == 'u')
            return AddNumber(writer, directive, nConversion, qwValue >> nUnused);
        [[fallthrough]];
    case 'i':
        return AddNumber(writer, directive, nConversion,
                         static_cast<std::uint64_t>(static_cast<std::int64_t>(qwValue) >> nUnused));
    case 'x':
    case 'X':
    case 'o':
        return AddNumber(writer, directive, nConversion, qwValue >> nUnused);
    case 'c':
        if (!directive.IsWide())
            AddCharacter(writer, directive, static_cast<char>(qwValue >> nUnused));
        return;
    default:
        return;
    }
}

template <typename Writer>
void AddSpaces(Writer& writer, long nCount) {
    for (; nCount > 0; --nCount)
        writer.AddChar(' ');
}

// As printf does it; null is read as empty.
template <typename Writer, typename T>
void AddText(Writer& writer, const LStringDirective& directive, const T* s) {
    if (directive.IsWide()) // wchar_t
        return;
    const unsigned long dwMost =
        directive.nPrecision < 0 ? ~0UL : static_cast<unsigned long>(directive.nPrecision);
    const unsigned long dwLength = s != nullptr ? strnlen(s, dwMost) : 0;
    const long nFill = directive.nWidth - static_cast<long>(dwLength);
    AddSpaces(writer, directive.bLeft ? 0 : nFill);
    writer.AddChars(s, dwLength);
    AddSpaces(writer, directive.bLeft ? nFill : 0);
}

} // namespace

template <typename Writer, typename T>
std::uint32_t tplprintf(Writer& writer, const T* format, va_list arguments) {
    if (format == nullptr)
        return 0;
    const auto nextNumber = [&arguments] { return va_arg(arguments, int); };
    for (;;) {
        const T* const pRun = format;
        while (*format != 0 && *format != '%')
            ++format;
        writer.AddChars(pRun, static_cast<unsigned long>(format - pRun));
        if (*format == 0)
            return writer.GetCount();
        const LStringDirective directive = LStringDirective::IsPart(*++format)
                                               ? LStringDirective::Read(format, nextNumber)
                                               : LStringDirective{format};
        const T nConversion = *directive.pConversion;
        format = directive.pConversion + 1;
        switch (nConversion) {
        case 0:
            return writer.GetCount();
        case '%':
            writer.AddChar('%');
            break;
        case 'm':
            break;
        case 's':
            if (const T* const sText = va_arg(arguments, const T*); directive.bAsPrintf)
                AddText(writer, directive, sText);
            else
                tplstrcpy(writer, sText);
            break;
        case 'e':
        case 'f':
        case 'g':
        case 'a':
        case 'E':
        case 'F':
        case 'G':
        case 'A':
            if (directive.bLongDouble) {
                const long double nLong = va_arg(arguments, long double);
                AddDouble(writer, directive, nConversion, nLong);
            } else
                AddDouble(writer, directive, nConversion, va_arg(arguments, double));
            break;
        default:
            AddInteger(writer, directive, nConversion,
                       directive.IsWide() ? va_arg(arguments, unsigned long) : va_arg(arguments, unsigned));
        }
    }
}
template PORT_EXPORTED std::uint32_t tplprintf(LStringLongTemplateWriter<char>&, const char*, va_list);
template PORT_EXPORTED std::uint32_t tplprintf(LStringLongTemplateAppender<char>&, const char*, va_list);
template PORT_EXPORTED std::uint32_t tplprintf(LFixedLengthStringWriterTemplate<char>&, const char*, va_list);

namespace {

template <typename Writer>
std::uint32_t FormatInto(LStringLongTemplate<char>& target, const char* format, va_list arguments) {
    Writer writer(target);
    tplprintf(writer, format, arguments);
    target.SetLength(writer.GetCount());
    return writer.GetCount();
}

std::uint32_t ReplaceText(LStringLongTemplate<char>& target, const char* format, va_list arguments) {
    target.SetLength(0);
    return FormatInto<LStringLongTemplateWriter<char>>(target, format, arguments);
}

std::uint32_t AppendText(LStringLongTemplate<char>& target, const char* format, va_list arguments) {
    return FormatInto<LStringLongTemplateAppender<char>>(target, format, arguments);
}

std::uint32_t FormatBuffer(char* buffer, unsigned long size, const char* format, va_list arguments) {
    if (size == 0)
        return 0;
    const unsigned long dwLimit =
        std::min<unsigned long>(size - 1, std::numeric_limits<std::uint32_t>::max());
    LFixedLengthStringWriterTemplate<char> writer(buffer, static_cast<std::uint32_t>(dwLimit));
    tplprintf(writer, format, arguments);
    buffer[writer.GetCount()] = 0;
    return writer.GetCount();
}

} // namespace

std::uint32_t LStringLongTemplate<char>::sprintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ReplaceText(*this, format, arguments);
    va_end(arguments);
    return dwLength;
}

std::uint32_t LStringLongTemplate<char>::tsprintfappend(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    AppendText(*this, format, arguments);
    va_end(arguments);
    return dwLength;
}

std::uint32_t sprintf(LStringLongTemplate<char>& target, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::uint32_t const dwLength = ReplaceText(target, format, arguments);
    va_end(arguments);
    return dwLength;
}

std::uint32_t tsprintfappend(LStringLongTemplate<char>& target, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::uint32_t const dwLength = AppendText(target, format, arguments);
    va_end(arguments);
    return dwLength;
}

template <typename>
std::uint32_t tplsnprintf(char* buffer, unsigned long size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::uint32_t const dwLength = FormatBuffer(buffer, size, format, arguments);
    va_end(arguments);
    return dwLength;
}
template PORT_EXPORTED std::uint32_t tplsnprintf<>(char*, unsigned long, const char*, ...);

std::uint32_t sprintf(LFixedLengthStringWriterTemplate<char>& writer, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    tplprintf(writer, format, arguments);
    va_end(arguments);
    return writer.GetCount();
}

template <>
LStringShortTemplate<char>::LStringShortTemplate(LStringPrintFormatTemplate<char> format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FormatBuffer(szText, sizeof(szText), format.Get(), arguments);
    va_end(arguments);
}

template <typename>
int tprintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int nResult = std::vprintf(format, arguments);
    va_end(arguments);
    return nResult;
}
template PORT_EXPORTED int tprintf<>(const char*, ...);
