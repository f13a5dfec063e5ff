// The portable encoder. Text of mixed lengths is encoded without a jump that depends on it: the bytes of each
// value are worked out side by side and stored one behind the other, with what the length does not ask for,
// which the next value overwrites.
#include "strings/internal/LCharsetsKernels.h"
#include "strings/internal/LCharsetsVectors.h"

#include <bit>
#include <type_traits>

namespace {

using Words = LCharsetsWords;
using Values = LCharsetsValues;
using Pairs = LCharsetsPairs;

constexpr std::size_t kStretch = 32; // units that are encoded alike, by the largest of them
constexpr std::size_t kBlock = 8;    // units that are looked at together for being ASCII
constexpr std::size_t kLongest = 4;  // bytes of a sequence
template <typename TUnit>
constexpr std::size_t kLongestOf = sizeof(TUnit) == sizeof(std::uint16_t) ? 3 : kLongest;
constexpr std::uint32_t kHighestValue = 0x10FFFF;
constexpr std::uint32_t kReplacement = 0xFFFD;

template <typename TUnit, std::size_t N>
using UnitsOf = typename LCharsetsVectorOf<std::make_unsigned_t<TUnit>, N>::Type;

// ---- One value ----

template <typename TUnit>
std::uint32_t ValueOf(const TUnit* src) {
    return LCharsetsLoad<std::make_unsigned_t<TUnit>>(src);
}

std::size_t LengthOf(std::uint32_t nUnit) {
    return 1U + (nUnit >= 0x80) + (nUnit >= 0x800) + (nUnit >= 0x10000 && nUnit <= kHighestValue);
}

// The length of the sequence at dst, which has room for it.
std::size_t EncodeValue(char* dst, std::uint32_t nValue, bool* pReplaced) {
    const auto Following = [&nValue](int nShift) {
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
    if (nValue > kHighestValue) {
        *pReplaced = true;
        nValue = kReplacement;
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

// ---- Values side by side ----

// The bits that are set in any of N units, those of several units side by side.
template <std::size_t N, typename TUnit>
std::uint64_t BitsOf(const TUnit* src) {
    constexpr std::size_t kLanes = sizeof(Pairs) / sizeof(TUnit);
    auto all = LCharsetsLoad<Pairs>(src);
#pragma GCC unroll 8
    for (std::size_t i = kLanes; i < N; i += kLanes)
        all |= LCharsetsLoad<Pairs>(src + i);
    return all[0] | all[1];
}

template <typename TUnit>
bool IsBelow(std::uint64_t nBits, std::uint32_t nPowerOfTwo) {
    constexpr std::uint64_t kEachUnit =
        sizeof(TUnit) == sizeof(std::uint16_t) ? 0x0001000100010001 : 0x0000000100000001;
    return (nBits & kEachUnit * static_cast<std::make_unsigned_t<TUnit>>(-nPowerOfTwo)) == 0;
}

// Stores four sequences, of up to four bytes each, one behind the other. Returns their bytes; up to three
// more are overwritten.
std::size_t StoreFour(char* dst, Pairs sequences, Pairs lengths) {
    char* pTo = dst;
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) {
        LCharsetsStore(pTo, static_cast<std::uint32_t>(sequences[i / 2] >> 32 * (i % 2)));
        pTo += lengths[i / 2] >> 32 * (i % 2) & 0xFF;
    }
    return static_cast<std::size_t>(pTo - dst);
}

// Eight values below 0x800. Returns as StoreFour.
template <typename TUnit>
std::size_t EncodeWords(char* dst, const TUnit* src) {
    UnitsOf<TUnit, 8> units;
    std::memcpy(&units, src, sizeof units);
    const Words value = __builtin_convertvector(units, Words);
    const Words two = value >> 6 | (value & 0x3F) << 8 | 0x80C0;
    const Words isTwo = LCharsetsAbove(value, 0x7F);
    // By twos: the second one moves up to the first.
    const auto both = Values(LCharsetsSelect(isTwo, two, value));
    const auto length = Values(1 - isTwo);
    const Values isTwoFirst = LCharsetsAbove(length & 0xFF, 1);
    const auto sequences = Pairs(LCharsetsSelect(isTwoFirst, both, (both & 0xFF) | both >> 8));
    const auto lengths = Pairs((length & 0xFF) + (length >> 16));
    return StoreFour(dst, sequences, lengths);
}

// Four values, of at most three bytes or of any length. Returns as StoreFour.
template <int nLongest, typename TUnit>
std::size_t EncodeValues(char* dst, const TUnit* src, bool* pReplaced) {
    Values value = __builtin_convertvector(LCharsetsLoad<UnitsOf<TUnit, 4>>(src), Values);
    if constexpr (nLongest == 4) {
        const auto outside = Values(value > kHighestValue);
        *pReplaced |= LCharsetsAny(outside);
        value = LCharsetsSelect(outside, Values{} + kReplacement, value);
    }
    const Values last = value & 0x3F;
    const Values middle = value >> 6 & 0x3F;
    const Values two = value >> 6 | last << 8 | 0x80C0;
    const Values three = value >> 12 | middle << 8 | last << 16 | 0x8080E0;
    const Values isTwo = LCharsetsAbove(value, 0x7F);
    const Values isThree = LCharsetsAbove(value, 0x7FF);
    Values sequence = LCharsetsSelect(isTwo, LCharsetsSelect(isThree, three, two), value);
    Values length = 1 - isTwo - isThree;
    if constexpr (nLongest == 4) {
        const Values four = value >> 18 | (value >> 12 & 0x3F) << 8 | middle << 16 | last << 24 | 0x808080F0;
        const Values isFour = LCharsetsAbove(value, 0xFFFF);
        sequence = LCharsetsSelect(isFour, four, sequence);
        length -= isFour;
    }
    return StoreFour(dst, Pairs(sequence), Pairs(length));
}

// ---- The text ----

// As long as whole stretches are left and have room.
template <typename TUnit>
LCharsetsEncoded EncodeStretches(char* dst, std::size_t nRoom, const TUnit* src, std::size_t nUnits) {
    std::size_t nRead = 0;
    std::size_t nWritten = 0;
    bool bReplaced = false;
    while (nUnits - nRead >= kStretch && nRoom - nWritten >= kLongest * kStretch) {
        const std::uint64_t nBits = BitsOf<kStretch>(src + nRead);
        const std::size_t nEnd = nRead + kStretch;
        if (IsBelow<TUnit>(nBits, 0x80)) {
            for (std::size_t i = 0; i < kStretch; i += 2 * kBlock)
                LCharsetsStore(dst + nWritten + i, LCharsetsLoadNarrowed(src + nRead + i));
            nWritten += kStretch;
        } else if (IsBelow<TUnit>(nBits, 0x800)) {
            for (std::size_t i = nRead; i < nEnd; i += 8)
                nWritten += EncodeWords(dst + nWritten, src + i);
        } else if (sizeof(TUnit) == sizeof(std::uint16_t) || IsBelow<TUnit>(nBits, 0x10000)) {
            for (std::size_t i = nRead; i < nEnd; i += 4)
                nWritten += EncodeValues<3>(dst + nWritten, src + i, &bReplaced);
        } else {
            for (std::size_t i = nRead; i < nEnd; i += 4)
                nWritten += EncodeValues<4>(dst + nWritten, src + i, &bReplaced);
        }
        nRead = nEnd;
    }
    return {nRead, nWritten, bReplaced};
}

// As many of the last nLeft of nUnits units as are looked at together, if they are ASCII. Less than a block
// is taken together with what stands before it.
template <typename TUnit>
std::size_t EncodeASCII(char* dst, const TUnit* src, std::size_t nLeft, std::size_t nUnits) {
    if (nLeft >= 2 * kBlock) {
        if (!IsBelow<TUnit>(BitsOf<2 * kBlock>(src), 0x80))
            return 0;
        LCharsetsStore(dst, LCharsetsLoadNarrowed(src));
        return 2 * kBlock;
    }
    const std::size_t nBefore = nLeft < kBlock ? kBlock - nLeft : 0;
    if (nUnits < kBlock || !IsBelow<TUnit>(BitsOf<kBlock>(src - nBefore), 0x80))
        return 0;
    LCharsetsStoreHalfNarrowed(dst - nBefore, src - nBefore);
    return kBlock - nBefore;
}

// A text that has room whatever it is.
template <typename TUnit>
LCharsetsEncoded EncodeAll(char* dst, const TUnit* src, std::size_t nUnits) {
    std::size_t nRead = 0;
    std::size_t nWritten = 0;
    bool bReplaced = false;
    while (nRead < nUnits) {
        const std::size_t nASCII = EncodeASCII(dst + nWritten, src + nRead, nUnits - nRead, nUnits);
        if (nASCII != 0) {
            nRead += nASCII;
            nWritten += nASCII;
            continue;
        }
        while (nRead < nUnits && ValueOf(src + nRead) < 0x80)
            dst[nWritten++] = static_cast<char>(ValueOf(src + nRead++));
        while (nRead < nUnits && ValueOf(src + nRead) >= 0x80)
            nWritten += EncodeValue(dst + nWritten, ValueOf(src + nRead++), &bReplaced);
    }
    return {nRead, nWritten, bReplaced};
}

// Value by value, as much as has room.
template <typename TUnit>
[[gnu::noinline]] LCharsetsEncoded EncodeWhatFits(char* dst, std::size_t nRoom, const TUnit* src,
                                                  std::size_t nUnits) {
    LCharsetsEncoded done = {0, 0, false};
    for (; done.nRead < nUnits; ++done.nRead) {
        const std::uint32_t nUnit = ValueOf(src + done.nRead);
        if (LengthOf(nUnit) > nRoom - done.nWritten)
            break;
        done.nWritten += EncodeValue(dst + done.nWritten, nUnit, &done.bReplaced);
    }
    return done;
}

template <typename TUnit>
[[gnu::flatten]] LCharsetsEncoded EncodeShort(char* dst, std::size_t nRoom, const TUnit* src,
                                              std::size_t nUnits) {
    return nRoom >= kLongestOf<TUnit> * nUnits ? EncodeAll(dst, src, nUnits)
                                               : EncodeWhatFits(dst, nRoom, src, nUnits);
}

template <typename TUnit>
[[gnu::noinline, gnu::flatten]] LCharsetsEncoded EncodeLong(char* dst, std::size_t nRoom, const TUnit* src,
                                                            std::size_t nUnits) {
    const LCharsetsEncoded done = EncodeStretches(dst, nRoom, src, nUnits);
    const LCharsetsEncoded rest =
        EncodeShort(dst + done.nWritten, nRoom - done.nWritten, src + done.nRead, nUnits - done.nRead);
    return {done.nRead + rest.nRead, done.nWritten + rest.nWritten, done.bReplaced || rest.bReplaced};
}

} // namespace

template <typename TUnit>
[[gnu::flatten]] LCharsetsEncoded LCharsetsEncodePortable(char* dst, std::size_t nRoom, const TUnit* src,
                                                          std::size_t nUnits) {
    if (std::endian::native == std::endian::little && nUnits >= kStretch)
        return EncodeLong(dst, nRoom, src, nUnits);
    return EncodeShort(dst, nRoom, src, nUnits);
}

template LCharsetsEncoded LCharsetsEncodePortable(char*, std::size_t, const wchar_t*, std::size_t);
template LCharsetsEncoded LCharsetsEncodePortable(char*, std::size_t, const unsigned short*, std::size_t);
