#include "strings/LCharsets.h"
#include "strings/internal/LCharsetsKernels.h"
#include "strings/internal/LCharsetsUnits.h"

#include <cstdint>
#include <cwchar>
#include <port/internal/exported.h>

namespace {

constexpr unsigned long kWord = sizeof(std::uint64_t);
constexpr std::uint64_t kTopBits = 0x8080808080808080;
constexpr unsigned long kBlock = 4 * kWord; // bytes that are looked at together for being ASCII
// Bytes of which the end is looked for before they are walked over: they are still in the nearest cache then.
constexpr unsigned long kBytesAtOnce = 4096;

const char* TextOf(const char* s) {
    return s != nullptr ? s : "";
}

// The bytes of a word, the first one lowest.
std::uint64_t LoadWord(const char* s) {
    std::uint64_t nWord;
    std::memcpy(&nWord, s, sizeof nWord);
    return std::endian::native == std::endian::little ? nWord : __builtin_bswap64(nWord);
}

bool IsASCIIBlock(const char* s) {
    std::uint64_t nAll = 0;
    for (unsigned long i = 0; i < kBlock; i += kWord)
        nAll |= LoadWord(s + i);
    return (nAll & kTopBits) == 0;
}

// Of the bytes of which the top bits are set.
unsigned long CountOf(std::uint64_t nTopBits) {
    return (nTopBits >> 7) * (kTopBits >> 7) >> 56;
}

// Steps from character to character, by their lead bytes alone.
class CharacterWalk {
public:
    explicit CharacterWalk(const char* s) : pText(TextOf(s)) {}

    // Walks until nMostChars characters have begun, or none that begins before nMostBytes is left.
    void Go(unsigned long nMostBytes, unsigned long nMostChars) {
        unsigned long nFound = kBytesAtOnce;
        while (nFound == kBytesAtOnce && nByte < nMostBytes && nChars < nMostChars) {
            nFound = strnlen(pText + nEnd, std::min(nMostBytes - nEnd, kBytesAtOnce));
            nEnd += nFound;
            while (nByte < nEnd && nChars < nMostChars) {
                GoByWords(nMostChars);
                GoStepwise(std::min(nEnd, nByte + kBlock), nMostChars);
            }
        }
    }

    unsigned long GetChars() const { return nChars; }
    // Where the next character begins, or the text ends.
    unsigned long GetByte() const {
        return nByte <= nEnd ? nByte : nEnd + strnlen(pText + nEnd, nByte - nEnd);
    }

private:
    // As long as every word holds what the lead bytes announce. A set of bytes is their top bits.
    void GoByWords(unsigned long nMostChars) {
        const char* p = pText + nByte;
        const char* const pEnd = pText + nEnd;
        unsigned long nCount = nChars;
        std::uint64_t nExpected = 0; // following bytes that the characters before ask for
        while (static_cast<unsigned long>(pEnd - p) >= kBlock && nMostChars - nCount >= kBlock) {
            if (nExpected == 0 && IsASCIIBlock(p)) {
                p += kBlock;
                nCount += kBlock;
                continue;
            }
            const char* const pNext = p + kBlock;
            for (; p != pNext; p += kWord) {
                const std::uint64_t nWord = LoadWord(p);
                const std::uint64_t nLead2 = nWord & nWord << 1 & kTopBits; // of two bytes or more, and so on
                const std::uint64_t nLead3 = nLead2 & nWord << 2;
                const std::uint64_t nLead4 = nLead3 & nWord << 3;
                const std::uint64_t nFollowing = (nWord & kTopBits) ^ nLead2;
                const std::uint64_t nWanted = nExpected | nLead2 << 8 | nLead3 << 16 | nLead4 << 24;
                if (((nWanted ^ nFollowing) | (nLead4 & nWord << 4)) != 0)
                    break;
                nExpected = nLead2 >> 56 | nLead3 >> 48 | nLead4 >> 40;
                nCount += kWord - CountOf(nFollowing);
            }
            if (p != pNext)
                break;
        }
        nByte = static_cast<unsigned long>(p - pText) + CountOf(nExpected);
        nChars = nCount;
    }

    void GoStepwise(unsigned long nUntil, unsigned long nMostChars) {
        for (; nByte < nUntil && nChars < nMostChars; ++nChars)
            nByte += LCharsetsSequenceLength(pText[nByte]);
    }

    const char* pText;
    unsigned long nEnd = 0; // so many bytes are known not to be the terminator
    unsigned long nByte = 0;
    unsigned long nChars = 0;
};

constexpr unsigned long kNoLimit = ~0UL;

template <typename TUnit>
unsigned long CountUnits(const TUnit* src, unsigned long nMost) {
    unsigned long nUnits = 0;
#pragma GCC unroll 8
    for (; nUnits < nMost; ++nUnits)
        if (LCharsetsLoadUnit(src + nUnits) == 0)
            break;
    return nUnits;
}

} // namespace

unsigned long LCharsetsUTF8CharIndexToByteIndex(const char* s, unsigned long charIndex) {
    CharacterWalk walk(s);
    walk.Go(kNoLimit, charIndex);
    return walk.GetByte();
}

unsigned long LCharsetsUTF8ByteIndexToCharIndex(const char* s, unsigned long byteIndex) {
    CharacterWalk walk(s);
    walk.Go(byteIndex, kNoLimit);
    return walk.GetChars();
}

template <typename>
unsigned long utf8strlen(const char* s) {
    return LCharsetsUTF8ByteIndexToCharIndex(s, kNoLimit);
}
template PORT_EXPORTED unsigned long utf8strlen<>(const char*);

template <typename>
unsigned long utf8strlcpy(char* dst, const char* src, unsigned long n) {
    if (n == 0)
        return 0;
    src = TextOf(src);
    const unsigned long nBytes = strnlen(src, n - 1);
    unsigned long nCopied = 0;
    while (nCopied < nBytes && LCharsetsSequenceLength(src[nCopied]) <= nBytes - nCopied)
        nCopied += LCharsetsSequenceLength(src[nCopied]);
    std::memcpy(dst, src, nCopied);
    dst[nCopied] = 0;
    return nCopied;
}
template PORT_EXPORTED unsigned long utf8strlcpy<>(char*, const char*, unsigned long);

unsigned long LCharsetsUTF8SoundLength(const char* s, unsigned long n) {
    unsigned short units[kBytesAtOnce + 1];
    unsigned long nSound = 0;
    unsigned long nRead;
    do {
        nRead = LCharsetsDecode(units, s + nSound, std::min(n - nSound, kBytesAtOnce)).nRead;
        nSound += nRead;
    } while (nRead != 0);
    return nSound;
}

bool LCharsetsIsUTF8(const char* s) {
    s = TextOf(s);
    const unsigned long nBytes = std::strlen(s);
    return LCharsetsUTF8SoundLength(s, nBytes) == nBytes;
}

unsigned long LCharsetsUnitCount(const unsigned short* src, unsigned long nMost) {
    return CountUnits(src, nMost);
}

// The library's own function may miss the end of units that are not aligned.
unsigned long LCharsetsUnitCount(const wchar_t* src, unsigned long nMost) {
    const bool bAligned = reinterpret_cast<std::uintptr_t>(src) % alignof(wchar_t) == 0;
    return bAligned ? wcsnlen(src, nMost) : CountUnits(src, nMost);
}
