#include "strings/LStringFormat.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <limits>

namespace {

// Characters of the text between "%" and the conversion that take part.
constexpr int kMostDirectiveLength = 257;
// Bytes of one conversion's text, terminator included.
constexpr int kConversionBufferSize = 260;
// Of a longer conversion only as much is made as shows: no part of it is longer than all that is kept.
constexpr int kMostShown = kConversionBufferSize - 1;
// A double ends after 1074 decimal places, and has at most 309 digits before them: padding beyond the sum of
// both and of what is kept does not show.
constexpr int kMostDoublePrecision = 1100;
constexpr int kMostDoubleWidth = 1700;
// Decimal digits of the largest 32-bit number.
constexpr int kMostDigits = 10;

// What stands between "%" and the conversion.
struct Directive {
    const char* pConversion; // the conversion character
    int nWidth = 0;
    int nPrecision = -1; // negative: none
    bool bZero = false;
    bool bValid = true; // false with a second dot

    // "%d", "%.Nd" and "%0Nd" of no more digits than a 32-bit number can have.
    bool IsShort() const {
        return nPrecision != 0 && nPrecision <= kMostDigits &&
               (nWidth == 0 || (bZero && nPrecision < 0 && nWidth <= kMostDigits));
    }
};

constexpr auto kDigitPairs = [] {
    std::array<std::array<char, 2>, 100> pairs{};
    for (unsigned i = 0; i < 100; ++i)
        pairs[i] = {static_cast<char>('0' + i / 10), static_cast<char>('0' + i % 10)};
    return pairs;
}();

bool IsDirectiveChar(char nChar) {
    return (nChar >= '0' && nChar <= '9') || nChar == '.';
}

int AddDigit(int nNumber, char nChar) {
    return static_cast<int>(std::min(nNumber * 10L + (nChar - '0'), long{std::numeric_limits<int>::max()}));
}

Directive ReadDirective(const char* p) {
    Directive directive{p};
    for (; IsDirectiveChar(*directive.pConversion); ++directive.pConversion) {
        const char nChar = *directive.pConversion;
        if (directive.pConversion - p >= kMostDirectiveLength)
            continue;
        if (nChar == '.') {
            directive.bValid = directive.bValid && directive.nPrecision < 0;
            directive.nPrecision = 0;
        } else if (nChar == '0' && directive.nWidth == 0 && directive.nPrecision < 0)
            directive.bZero = true;
        else {
            int& nNumber = directive.nPrecision >= 0 ? directive.nPrecision : directive.nWidth;
            nNumber = AddDigit(nNumber, nChar);
        }
    }
    return directive;
}

// The following store a number's digits before pEnd and return where they begin.
char* StoreDecimal(char* pEnd, unsigned nValue) {
    while (nValue >= 100) {
        pEnd -= 2;
        std::memcpy(pEnd, kDigitPairs[nValue % 100].data(), 2);
        nValue /= 100;
    }
    if (nValue >= 10) {
        pEnd -= 2;
        std::memcpy(pEnd, kDigitPairs[nValue].data(), 2);
    } else
        *--pEnd = static_cast<char>('0' + nValue);
    return pEnd;
}

char* StoreBits(char* pEnd, unsigned nValue, unsigned nBitsPerDigit, const char* pDigits) {
    const unsigned nMask = (1U << nBitsPerDigit) - 1;
    do {
        *--pEnd = pDigits[nValue & nMask];
        nValue >>= nBitsPerDigit;
    } while (nValue != 0);
    return pEnd;
}

char* StoreDigits(char* pEnd, char nConversion, unsigned nValue) {
    switch (nConversion) {
    case 'x':
        return StoreBits(pEnd, nValue, 4, "0123456789abcdef");
    case 'X':
        return StoreBits(pEnd, nValue, 4, "0123456789ABCDEF");
    case 'o':
        return StoreBits(pEnd, nValue, 3, "01234567");
    default:
        return StoreDecimal(pEnd, nValue);
    }
}

// Stores at most as many characters as show before pBegin.
char* Fill(char* pBegin, long nCount, char nFill) {
    for (long n = std::min(nCount, long{kMostShown}); n > 0; --n)
        *--pBegin = nFill;
    return pBegin;
}

// Formats backwards from the end of a buffer that holds all that may show, then hands on its beginning.
template <typename Writer>
void AddNumber(Writer& writer, const Directive& directive, char nConversion, unsigned nValue) {
    char szText[2 * kMostShown + 1 + kMostDigits + 1];
    char* const pEnd = szText + sizeof(szText);
    const bool bNegative = (nConversion == 'd' || nConversion == 'i') && static_cast<int>(nValue) < 0;
    char* p = pEnd;
    if (nValue != 0 || directive.nPrecision != 0)
        p = StoreDigits(pEnd, nConversion, bNegative ? 0U - nValue : nValue);
    const long nDigits = pEnd - p;
    const long nSign = bNegative ? 1 : 0;
    const bool bZeroWidth = directive.bZero && directive.nPrecision < 0;
    const long nZeros =
        std::max(0L, (bZeroWidth ? directive.nWidth - nSign : directive.nPrecision) - nDigits);
    p = Fill(p, nZeros, '0');
    if (bNegative)
        *--p = '-';
    p = Fill(p, directive.nWidth - nDigits - nZeros - nSign, ' ');
    writer.AddChars(p, static_cast<unsigned long>(std::min<long>(pEnd - p, kMostShown)));
}

// AddNumber for the most frequent directives.
template <typename Writer>
void AddDecimal(Writer& writer, const Directive& directive, bool bSigned, unsigned nValue) {
    const bool bNegative = bSigned && static_cast<int>(nValue) < 0;
    char szText[1 + kMostDigits];
    char* const pEnd = szText + sizeof(szText);
    char* p = StoreDecimal(pEnd, bNegative ? 0U - nValue : nValue);
    const int nDigits = std::max(directive.nPrecision, directive.nWidth - (bNegative ? 1 : 0));
    while (pEnd - p < nDigits)
        *--p = '0';
    if (bNegative)
        *--p = '-';
    writer.AddChars(p, static_cast<unsigned long>(pEnd - p));
}

// The text ends at a character of 0, as it would in the platform's buffer.
template <typename Writer>
void AddCharacter(Writer& writer, const Directive& directive, char nChar) {
    for (int n = 1; n < std::min(directive.nWidth, kMostShown + 1); ++n)
        writer.AddChar(' ');
    if (nChar != 0 && directive.nWidth <= kMostShown)
        writer.AddChar(nChar);
}

// As snprintf, with zeros left out that would not show; a negative precision is none to the platform too.
int PrintDouble(char* buffer, unsigned long size, const Directive& directive, char nConversion,
                double nValue) {
    const int nPrecision = std::min(directive.nPrecision, kMostDoublePrecision);
    const int nUnseen = nConversion == 'g' || !std::isfinite(nValue) ? 0 : directive.nPrecision - nPrecision;
    const int nWidth = std::clamp(directive.nWidth - nUnseen, 0, kMostDoubleWidth);
    const bool bZero = directive.bZero;
    switch (nConversion) {
    case 'e':
        return bZero ? std::snprintf(buffer, size, "%0*.*e", nWidth, nPrecision, nValue)
                     : std::snprintf(buffer, size, "%*.*e", nWidth, nPrecision, nValue);
    case 'f':
        return bZero ? std::snprintf(buffer, size, "%0*.*f", nWidth, nPrecision, nValue)
                     : std::snprintf(buffer, size, "%*.*f", nWidth, nPrecision, nValue);
    default:
        return bZero ? std::snprintf(buffer, size, "%0*.*g", nWidth, nPrecision, nValue)
                     : std::snprintf(buffer, size, "%*.*g", nWidth, nPrecision, nValue);
    }
}

template <typename Writer>
void AddDouble(Writer& writer, const Directive& directive, char nConversion, double nValue) {
    if (!directive.bValid)
        return;
    char szText[kConversionBufferSize];
    const int nLength = PrintDouble(szText, sizeof(szText), directive, nConversion, nValue);
    if (nLength > 0)
        writer.AddChars(szText, static_cast<unsigned long>(std::min(nLength, kMostShown)));
}

// Only conversions named here reach a printer; whatever else a format asks for has taken its argument.
template <typename Writer>
void AddInteger(Writer& writer, const Directive& directive, char nConversion, unsigned nValue) {
    if (!directive.bValid)
        return;
    switch (nConversion) {
    case 'd':
    case 'u':
        if (directive.IsShort())
            return AddDecimal(writer, directive, nConversion == 'd', nValue);
        [[fallthrough]];
    case 'i':
    case 'x':
    case 'X':
    case 'o':
        return AddNumber(writer, directive, nConversion, nValue);
    case 'c':
        return AddCharacter(writer, directive, static_cast<char>(nValue));
    default:
        return;
    }
}

} // namespace

template <typename Writer, typename T>
std::uint32_t tplprintf(Writer& writer, const T* format, va_list arguments) {
    if (format == nullptr)
        return 0;
    for (;;) {
        const T* const pRun = format;
        while (*format != 0 && *format != '%')
            ++format;
        writer.AddChars(pRun, static_cast<unsigned long>(format - pRun));
        if (*format == 0)
            return writer.GetCount();
        const Directive directive = IsDirectiveChar(*++format) ? ReadDirective(format) : Directive{format};
        const T nConversion = *directive.pConversion;
        format = directive.pConversion + 1;
        switch (nConversion) {
        case 0:
            return writer.GetCount();
        case '%':
            writer.AddChar('%');
            break;
        case 's':
            tplstrcpy(writer, va_arg(arguments, const T*));
            break;
        case 'e':
        case 'f':
        case 'g':
            AddDouble(writer, directive, nConversion, va_arg(arguments, double));
            break;
        default:
            AddInteger(writer, directive, nConversion, va_arg(arguments, unsigned));
        }
    }
}
template std::uint32_t tplprintf(LStringLongTemplateWriter<char>&, const char*, va_list);
template std::uint32_t tplprintf(LStringLongTemplateAppender<char>&, const char*, va_list);
template std::uint32_t tplprintf(LFixedLengthStringWriterTemplate<char>&, const char*, va_list);

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
template std::uint32_t tplsnprintf<>(char*, unsigned long, const char*, ...);

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
template int tprintf<>(const char*, ...);
