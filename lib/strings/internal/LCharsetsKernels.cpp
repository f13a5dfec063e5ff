#include "strings/internal/LCharsetsKernels.h"

#include "strings/internal/LCharsetsUnits.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace {

constexpr std::size_t kBlock = 16; // units that are looked at together for being ASCII
constexpr std::size_t kWord = sizeof(std::uint64_t);

// What the lead and the marks of the following bytes add up to, by the length of the sequence.
constexpr std::uint32_t kMarksOf2 = 0x00003080;
constexpr std::uint32_t kMarksOf3 = 0x000E2080;
constexpr std::uint32_t kMarksOf4 = 0x03C82080;

constexpr std::size_t kLongest = 4; // bytes of a sequence
constexpr std::uint32_t kHighestValue = 0x10FFFF;
constexpr std::uint32_t kReplacement = 0xFFFD;

struct Sequence {
    std::size_t nLength; // 0: ill-formed, or not whole
    std::uint32_t nValue;
};

bool IsFollowing(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// One sequence that does not begin with an ASCII byte. Judging the value by its length finds the overlong
// forms, the surrogates and what is too large without a look at the second byte.
Sequence DecodeSequence(const unsigned char* p, std::size_t nBytes) {
    if (p[0] < 0xE0) {
        if (p[0] < 0xC2 || nBytes < 2 || !IsFollowing(p[1]))
            return {};
        return {2, (std::uint32_t{p[0]} << 6) + p[1] - kMarksOf2};
    }
    if (p[0] < 0xF0) {
        if (nBytes < 3 || !IsFollowing(p[1]) || !IsFollowing(p[2]))
            return {};
        const std::uint32_t nValue =
            (std::uint32_t{p[0]} << 12) + (std::uint32_t{p[1]} << 6) + p[2] - kMarksOf3;
        return {nValue < 0x800 || (nValue & 0xF800) == 0xD800 ? 0U : 3U, nValue};
    }
    if (p[0] >= 0xF8 || nBytes < 4 || !IsFollowing(p[1]) || !IsFollowing(p[2]) || !IsFollowing(p[3]))
        return {};
    const std::uint32_t nValue = (std::uint32_t{p[0]} << 18) + (std::uint32_t{p[1]} << 12) +
                                 (std::uint32_t{p[2]} << 6) + p[3] - kMarksOf4;
    return {nValue < 0x10000 || nValue > kHighestValue ? 0U : 4U, nValue};
}

// One bit a byte, at its top, for each of the eight bytes that is not ASCII.
std::uint64_t NotASCII(const unsigned char* p) {
    std::uint64_t nWord;
    std::memcpy(&nWord, p, sizeof nWord);
    return nWord & 0x8080808080808080;
}

std::size_t BytesBeforeFirst(std::uint64_t nTopBits) {
    const int nBits =
        std::endian::native == std::endian::little ? std::countr_zero(nTopBits) : std::countl_zero(nTopBits);
    return static_cast<std::size_t>(nBits) / 8;
}

// The first nRun ASCII bytes of a word, at most seven; nothing behind them is written. How long runs are cannot
// be predicted: what is not to be stored goes elsewhere, without a jump.
template <typename TUnit>
void WidenRun(TUnit* dst, const unsigned char* src, std::size_t nRun) {
    TUnit elsewhere[4];
    LCharsetsConvertBlock<4>((nRun & 4) != 0 ? dst : elsewhere, src);
    LCharsetsConvertBlock<2>((nRun & 2) != 0 ? dst + (nRun & 4) : elsewhere, src + (nRun & 4));
    LCharsetsStoreUnit<TUnit>((nRun & 1) != 0 ? dst + (nRun & 6) : elsewhere, src[nRun & 6]);
}

template <typename TUnit>
std::uint32_t ValueOf(const TUnit* src) {
    std::make_unsigned_t<TUnit> unit;
    std::memcpy(&unit, src, sizeof unit);
    return unit;
}

std::uint32_t InRange(std::uint32_t nUnit) {
    return nUnit > kHighestValue ? kReplacement : nUnit;
}

// The length of the sequence at dst, which has room for four bytes.
std::size_t EncodeValue(char* dst, std::uint32_t nValue) {
    const auto Following = [nValue](int nShift) {
        return static_cast<char>(0x80 | (nValue >> nShift & 0x3F));
    };
    if (nValue < 0x80) {
        dst[0] = static_cast<char>(nValue);
        return 1;
    }
    if (nValue < 0x800) {
        dst[0] = static_cast<char>(0xC0 | nValue >> 6);
        dst[1] = Following(0);
        return 2;
    }
    if (nValue < 0x10000) {
        dst[0] = static_cast<char>(0xE0 | nValue >> 12);
        dst[1] = Following(6);
        dst[2] = Following(0);
        return 3;
    }
    dst[0] = static_cast<char>(0xF0 | nValue >> 18);
    dst[1] = Following(12);
    dst[2] = Following(6);
    dst[3] = Following(0);
    return 4;
}

template <typename TUnit>
bool IsASCIIBlock(const TUnit* src) {
    constexpr std::uint64_t kHighBits =
        sizeof(TUnit) == sizeof(unsigned short) ? 0xFF80FF80FF80FF80 : 0xFFFFFF80FFFFFF80;
    constexpr std::size_t kWords = kBlock * sizeof(TUnit) / kWord;
    std::uint64_t nAll = 0;
#pragma GCC unroll 8
    for (std::size_t i = 0; i < kWords; ++i) {
        std::uint64_t nWord;
        std::memcpy(&nWord, src + i * (kWord / sizeof(TUnit)), sizeof nWord);
        nAll |= nWord;
    }
    return (nAll & kHighBits) == 0;
}

} // namespace

// Flattened, as the encoder is: a call a character would cost as much as the character.
template <typename TUnit>
[[gnu::flatten]] LCharsetsDecoded LCharsetsDecodePortable(TUnit* dst, const char* src, std::size_t nBytes) {
    const auto* const pSource = reinterpret_cast<const unsigned char*>(src);
    std::size_t nRead = 0;
    std::size_t nWritten = 0;
    while (nRead < nBytes) {
        if (nBytes - nRead >= kBlock &&
            (NotASCII(pSource + nRead) | NotASCII(pSource + nRead + kWord)) == 0) {
            LCharsetsConvertBlock<kBlock>(dst + nWritten, pSource + nRead);
            nRead += kBlock;
            nWritten += kBlock;
            continue;
        }
        if (nBytes - nRead >= kWord) {
            const std::uint64_t nHigh = NotASCII(pSource + nRead);
            if (nHigh == 0) {
                LCharsetsConvertBlock<kWord>(dst + nWritten, pSource + nRead);
                nRead += kWord;
                nWritten += kWord;
                continue;
            }
            const std::size_t nRun = BytesBeforeFirst(nHigh);
            WidenRun(dst + nWritten, pSource + nRead, nRun);
            nRead += nRun;
            nWritten += nRun;
        } else if (pSource[nRead] < 0x80) {
            LCharsetsStoreUnit<TUnit>(dst + nWritten++, pSource[nRead++]);
            continue;
        }
        do {
            const Sequence sequence = DecodeSequence(pSource + nRead, nBytes - nRead);
            if (sequence.nLength == 0)
                return {nRead, nWritten};
            LCharsetsStoreUnit(dst + nWritten++, static_cast<TUnit>(sequence.nValue));
            nRead += sequence.nLength;
        } while (nRead < nBytes && pSource[nRead] >= 0x80);
    }
    return {nRead, nWritten};
}

template <typename TUnit>
[[gnu::flatten]] LCharsetsEncoded LCharsetsEncodePortable(char* dst, std::size_t nRoom, const TUnit* src,
                                                          std::size_t nUnits) {
    std::size_t nRead = 0;
    std::size_t nWritten = 0;
    bool bReplaced = false;
    while (nUnits - nRead >= kBlock && nRoom - nWritten >= kLongest * kBlock) {
        if (IsASCIIBlock(src + nRead)) {
            LCharsetsConvertBlock<kBlock>(dst + nWritten, src + nRead);
            nRead += kBlock;
            nWritten += kBlock;
            continue;
        }
        for (const std::size_t nEnd = nRead + kBlock; nRead < nEnd; ++nRead) {
            const std::uint32_t nUnit = ValueOf(src + nRead);
            nWritten += EncodeValue(dst + nWritten, InRange(nUnit));
            bReplaced |= nUnit > kHighestValue;
        }
    }
    for (; nRead < nUnits; ++nRead) {
        const std::uint32_t nUnit = ValueOf(src + nRead);
        char sequence[kLongest];
        const std::size_t nLength = EncodeValue(sequence, InRange(nUnit));
        if (nLength > nRoom - nWritten)
            break;
        std::memcpy(dst + nWritten, sequence, nLength);
        nWritten += nLength;
        bReplaced |= nUnit > kHighestValue;
    }
    return {nRead, nWritten, bReplaced};
}

template LCharsetsDecoded LCharsetsDecodePortable(wchar_t*, const char*, std::size_t);
template LCharsetsDecoded LCharsetsDecodePortable(unsigned short*, const char*, std::size_t);
template LCharsetsEncoded LCharsetsEncodePortable(char*, std::size_t, const wchar_t*, std::size_t);
template LCharsetsEncoded LCharsetsEncodePortable(char*, std::size_t, const unsigned short*, std::size_t);

constinit const LCharsetsKernels LCharsetsPortableKernels = {
    "portable", LCharsetsDecodePortable<wchar_t>, LCharsetsDecodePortable<unsigned short>,
    LCharsetsEncodePortable<wchar_t>, LCharsetsEncodePortable<unsigned short>};

const LCharsetsKernels& LCharsetsFastestKernels() {
    static const LCharsetsKernels& fastest = []() -> const LCharsetsKernels& {
        LCharsetsKernels const* const* ppWalk = LCharsetsKernelsHere();
        while (ppWalk[1] != nullptr)
            ++ppWalk;
        return **ppWalk;
    }();
    return fastest;
}
