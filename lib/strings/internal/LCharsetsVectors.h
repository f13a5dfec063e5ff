// Vectors of 16 bytes in the compiler's own terms, which every processor's vector unit can do: what the
// portable kernels are written with. They are for processors that keep the lowest byte of a number first.
#pragma once

#include "strings/internal/LCharsetsUnits.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

using LCharsetsBytes = LCharsetsVectorOf<std::uint8_t, 16>::Type;
using LCharsetsWords = LCharsetsVectorOf<std::uint16_t, 8>::Type;
using LCharsetsValues = LCharsetsVectorOf<std::uint32_t, 4>::Type;
using LCharsetsPairs = LCharsetsVectorOf<std::uint64_t, 2>::Type;

template <typename T>
T LCharsetsLoad(const void* p) {
    T loaded;
    std::memcpy(&loaded, p, sizeof loaded);
    return loaded;
}

template <typename T>
void LCharsetsStore(void* p, T stored) {
    std::memcpy(p, &stored, sizeof stored);
}

// Eight bytes of a vector, from number n on, as words; four words, from number n on, as values.
template <int n>
LCharsetsWords LCharsetsWiden(LCharsetsBytes bytes) {
    return LCharsetsWords(__builtin_shufflevector(bytes, LCharsetsBytes{}, n, n + 16, n + 1, n + 17, n + 2,
                                                  n + 18, n + 3, n + 19, n + 4, n + 20, n + 5, n + 21, n + 6,
                                                  n + 22, n + 7, n + 23));
}
template <int n>
LCharsetsValues LCharsetsWiden(LCharsetsWords words) {
    return LCharsetsValues(__builtin_shufflevector(words, LCharsetsWords{}, n, n + 8, n + 1, n + 9, n + 2,
                                                   n + 10, n + 3, n + 11));
}

// Sixteen ASCII bytes as units.
inline void LCharsetsStoreWidened(unsigned short* dst, LCharsetsBytes bytes) {
    LCharsetsStore(dst, LCharsetsWiden<0>(bytes));
    LCharsetsStore(dst + 8, LCharsetsWiden<8>(bytes));
}
inline void LCharsetsStoreWidened(wchar_t* dst, LCharsetsBytes bytes) {
    const LCharsetsWords low = LCharsetsWiden<0>(bytes);
    const LCharsetsWords high = LCharsetsWiden<8>(bytes);
    LCharsetsStore(dst, LCharsetsWiden<0>(low));
    LCharsetsStore(dst + 4, LCharsetsWiden<4>(low));
    LCharsetsStore(dst + 8, LCharsetsWiden<0>(high));
    LCharsetsStore(dst + 12, LCharsetsWiden<4>(high));
}

// Eight ASCII bytes, all of a word, as units.
inline void LCharsetsStoreHalfWidened(unsigned short* dst, std::uint64_t nBytes) {
    LCharsetsStore(dst, LCharsetsWiden<0>(LCharsetsBytes(LCharsetsPairs{nBytes, 0})));
}
inline void LCharsetsStoreHalfWidened(wchar_t* dst, std::uint64_t nBytes) {
    const LCharsetsWords words = LCharsetsWiden<0>(LCharsetsBytes(LCharsetsPairs{nBytes, 0}));
    LCharsetsStore(dst, LCharsetsWiden<0>(words));
    LCharsetsStore(dst + 4, LCharsetsWiden<4>(words));
}

// Every other byte of two vectors.
inline LCharsetsBytes LCharsetsEvenBytes(LCharsetsBytes low, LCharsetsBytes high) {
    return __builtin_shufflevector(low, high, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
}

// Sixteen ASCII units as bytes.
inline LCharsetsBytes LCharsetsLoadNarrowed(const unsigned short* src) {
    return LCharsetsEvenBytes(LCharsetsLoad<LCharsetsBytes>(src), LCharsetsLoad<LCharsetsBytes>(src + 8));
}
inline LCharsetsBytes LCharsetsLoadNarrowed(const wchar_t* src) {
    const auto Even = [src](int n) {
        return LCharsetsEvenBytes(LCharsetsLoad<LCharsetsBytes>(src + n),
                                  LCharsetsLoad<LCharsetsBytes>(src + n + 4));
    };
    return LCharsetsEvenBytes(Even(0), Even(8));
}

// Stores eight ASCII units as bytes.
inline void LCharsetsStoreHalfNarrowed(char* dst, const unsigned short* src) {
    const auto bytes = LCharsetsLoad<LCharsetsBytes>(src);
    LCharsetsStore(dst, LCharsetsPairs(LCharsetsEvenBytes(bytes, bytes))[0]);
}
inline void LCharsetsStoreHalfNarrowed(char* dst, const wchar_t* src) {
    const auto words =
        LCharsetsEvenBytes(LCharsetsLoad<LCharsetsBytes>(src), LCharsetsLoad<LCharsetsBytes>(src + 4));
    LCharsetsStore(dst, LCharsetsPairs(LCharsetsEvenBytes(words, words))[0]);
}

// Masks have all bits of a lane set, or none. Comparing signed lanes is one instruction, unsigned ones three.
inline LCharsetsBytes LCharsetsAtLeast(LCharsetsBytes bytes, int nLeast) {
    using Signed = LCharsetsVectorOf<std::int8_t, 16>::Type;
    return LCharsetsBytes(Signed(bytes ^ 0x80) > static_cast<std::int8_t>(nLeast - 1 - 0x80));
}

// The values of lanes are below half of what they can hold.
inline LCharsetsWords LCharsetsAbove(LCharsetsWords words, int n) {
    return LCharsetsWords(LCharsetsVectorOf<std::int16_t, 8>::Type(words) > static_cast<std::int16_t>(n));
}
inline LCharsetsValues LCharsetsAbove(LCharsetsValues values, int n) {
    return LCharsetsValues(LCharsetsVectorOf<std::int32_t, 4>::Type(values) > n);
}

template <typename TVector>
bool LCharsetsAny(TVector mask) {
    const auto halves = LCharsetsPairs(mask);
    return (halves[0] | halves[1]) != 0;
}

template <typename TVector>
TVector LCharsetsSelect(TVector mask, TVector set, TVector unset) {
    return unset ^ ((set ^ unset) & mask);
}
