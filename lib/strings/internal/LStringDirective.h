// What stands between "%" and the conversion of a format: the print engine's reader of it.
//
// Thread-safety: as a plain value.
#pragma once

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>

struct LStringDirective {
    const char* pConversion; // the conversion character
    int nWidth = 0;
    int nPrecision = -1;     // negative: none
    int nSize = sizeof(int); // bytes of an integer argument that count
    char nPlus = 0;          // what a signed number that is not negative begins with, "+" or " "
    bool bZero = false;
    bool bLeft = false;
    bool bAlternate = false;
    bool bLongDouble = false;
    bool bAsPrintf = false; // with more than digits and dots: a text keeps to width and precision, too
    bool bValid = true;     // false with a second dot

    // Decimal digits of the largest 32-bit number.
    static constexpr int kMostDigits = 10;
    // Digits and dots that take part stand among so many characters.
    static constexpr int kMostLength = 257;

    // Whether the character can stand there.
    static bool IsPart(char nChar) {
        static constexpr auto kParts = [] {
            std::array<bool, 256> parts{};
            for (const char* p = "0123456789.-+ #'I*hljztL"; *p != 0; ++p)
                parts[static_cast<unsigned char>(*p)] = true;
            return parts;
        }();
        return kParts[static_cast<unsigned char>(nChar)];
    }

    // Reads what stands at p, in any order. The argument of a "*" comes from `nextNumber`.
    template <typename NextNumber>
    static LStringDirective Read(const char* p, NextNumber nextNumber) {
        LStringDirective directive{p};
        const char* pNext = p;
        for (; IsPart(*pNext); ++pNext) {
            if ((*pNext >= '0' && *pNext <= '9') || *pNext == '.') {
                if (pNext - p < kMostLength)
                    directive._AddDigitOrDot(*pNext);
                continue;
            }
            directive.bAsPrintf = true;
            if (*pNext == '*')
                directive._SetNumber(nextNumber());
            else
                directive._AddFlagOrLength(*pNext);
        }
        directive.pConversion = pNext;
        return directive;
    }

    // "%d", "%.Nd" and "%0Nd" of no more digits than a 32-bit number can have.
    bool IsShort() const {
        return !bAsPrintf && nPrecision != 0 && nPrecision <= kMostDigits &&
               (nWidth == 0 || (bZero && nPrecision < 0 && nWidth <= kMostDigits));
    }

    // Whether an integer argument has 64 bits.
    bool IsWide() const { return nSize == sizeof(long); }

private:
    static constexpr int kMostNumber = std::numeric_limits<int>::max();

    void _AddDigitOrDot(char nChar) {
        if (nChar == '.') {
            bValid = bValid && nPrecision < 0;
            nPrecision = 0;
        } else if (nChar == '0' && nWidth == 0 && nPrecision < 0)
            bZero = true;
        else {
            int& nNumber = nPrecision >= 0 ? nPrecision : nWidth;
            nNumber = static_cast<int>(std::min(nNumber * 10L + (nChar - '0'), long{kMostNumber}));
        }
    }

    void _SetNumber(int nNumber) {
        if (nPrecision >= 0)
            nPrecision = nNumber;
        else {
            bLeft = bLeft || nNumber < 0;
            nWidth = std::abs(std::max(nNumber, -kMostNumber));
        }
    }

    // "'" and "I" ask for what only some locales have.
    void _AddFlagOrLength(char nChar) {
        switch (nChar) {
        case '-':
            bLeft = true;
            break;
        case '+':
        case ' ':
            nPlus = nPlus == '+' ? '+' : nChar;
            break;
        case '#':
            bAlternate = true;
            break;
        case 'h':
            nSize = nSize == sizeof(short) ? sizeof(char) : sizeof(short);
            break;
        case 'l':
        case 'j':
        case 'z':
        case 't':
        case 'L':
            nSize = sizeof(long);
            bLongDouble = nChar == 'L';
            break;
        default:
            break;
        }
    }
};
