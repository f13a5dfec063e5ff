// Single steps on text that the files of LCharsets share: the sequence length of UTF-8, and access to units
// that need not be aligned because the text may stand in a byte buffer.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

// Bytes of the sequence that begins with this byte, read from it alone: 1 to 6. A continuation byte is a
// sequence of its own.
constexpr unsigned long LCharsetsSequenceLength(char lead) {
    const unsigned char nLead = static_cast<unsigned char>(lead);
    if (nLead < 0xC0)
        return 1;
    return static_cast<unsigned long>(std::min(std::countl_one(nLead), 6));
}

template <typename TUnit>
TUnit LCharsetsLoadUnit(const TUnit* src) {
    TUnit unit;
    std::memcpy(&unit, src, sizeof unit);
    return unit;
}

template <typename TUnit>
void LCharsetsStoreUnit(TUnit* dst, TUnit unit) {
    std::memcpy(dst, &unit, sizeof unit);
}

// Units before the terminator, at most nMost; nothing behind either is read.
unsigned long LCharsetsUnitCount(const unsigned short* src, unsigned long nMost);
unsigned long LCharsetsUnitCount(const wchar_t* src, unsigned long nMost);

template <typename T, std::size_t N>
struct LCharsetsVectorOf {
    typedef T Type __attribute__((vector_size(N * sizeof(T))));
};

// Converts N units; N is a power of two. The step by way of 16 bits is what lets g++ see that every vector
// unit can do this.
template <std::size_t N, typename TTo, typename TFrom>
void LCharsetsConvertBlock(TTo* dst, const TFrom* src) {
    typename LCharsetsVectorOf<TFrom, N>::Type from;
    std::memcpy(&from, src, sizeof from);
    const auto half = __builtin_convertvector(from, typename LCharsetsVectorOf<unsigned short, N>::Type);
    const auto to = __builtin_convertvector(half, typename LCharsetsVectorOf<TTo, N>::Type);
    std::memcpy(dst, &to, sizeof to);
}

template <typename TTo, typename TFrom>
void LCharsetsConvertUnits(TTo* dst, const TFrom* src, unsigned long nUnits) {
    constexpr unsigned long kBlock = 16;
    unsigned long i = 0;
    for (; nUnits - i >= kBlock; i += kBlock)
        LCharsetsConvertBlock<kBlock>(dst + i, src + i);
    for (; i < nUnits; ++i)
        LCharsetsStoreUnit(dst + i, static_cast<TTo>(LCharsetsLoadUnit(src + i)));
}
