#include "strings/LCharsets.h"
#include "strings/internal/LCharsetsUnits.h"

namespace {

// The sequence at s, which is not the terminator: the bytes that are there. bWhole tells whether these are as
// many as the lead byte announces.
struct Step {
    unsigned long nBytes;
    bool bWhole;
};

Step StepAt(const char* s) {
    const unsigned long nLength = LCharsetsSequenceLength(*s);
    unsigned long nBytes = 1;
    while (nBytes < nLength && s[nBytes] != 0)
        ++nBytes;
    return {nBytes, nBytes == nLength};
}

const char* TextOf(const char* s) {
    return s != nullptr ? s : "";
}

} // namespace

unsigned long LCharsetsUTF8CharIndexToByteIndex(const char* s, unsigned long charIndex) {
    s = TextOf(s);
    unsigned long nByte = 0;
    for (; charIndex != 0 && s[nByte] != 0; --charIndex)
        nByte += StepAt(s + nByte).nBytes;
    return nByte;
}

unsigned long LCharsetsUTF8ByteIndexToCharIndex(const char* s, unsigned long byteIndex) {
    s = TextOf(s);
    unsigned long nChars = 0;
    for (unsigned long nByte = 0; nByte < byteIndex && s[nByte] != 0; ++nChars)
        nByte += StepAt(s + nByte).nBytes;
    return nChars;
}

template <typename>
unsigned long utf8strlen(const char* s) {
    return LCharsetsUTF8ByteIndexToCharIndex(s, ~0UL);
}
template unsigned long utf8strlen<>(const char*);

template <typename>
unsigned long utf8strlcpy(char* dst, const char* src, unsigned long n) {
    if (n == 0)
        return 0;
    src = TextOf(src);
    unsigned long nCopied = 0;
    while (src[nCopied] != 0) {
        const Step step = StepAt(src + nCopied);
        if (!step.bWhole || step.nBytes > n - 1 - nCopied)
            break;
        nCopied += step.nBytes;
    }
    std::memcpy(dst, src, nCopied);
    dst[nCopied] = 0;
    return nCopied;
}
template unsigned long utf8strlcpy<>(char*, const char*, unsigned long);

unsigned long LCharsetsUnitCount(const unsigned short* src, unsigned long nMost) {
    unsigned long nUnits = 0;
#pragma GCC unroll 8
    for (; nUnits < nMost; ++nUnits)
        if (LCharsetsLoadUnit(src + nUnits) == 0)
            break;
    return nUnits;
}
