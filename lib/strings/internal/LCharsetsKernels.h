// The inner loops of LCharsets: length-bounded conversion between UTF-8 and wider units, in one portable form
// and in forms for the vector units of particular processors. All give the same results; they differ in
// speed.
//
// Thread-safety: the kernels are constant and keep no state.
#pragma once

#include <cstddef>

struct LCharsetsDecoded {
    std::size_t nRead;    // bytes
    std::size_t nWritten; // units
};

struct LCharsetsEncoded {
    std::size_t nRead;    // units
    std::size_t nWritten; // bytes
    bool bReplaced;       // a value outside 0 to 0x10FFFF was written as U+FFFD
};

// No kernel reads outside the source or stores a terminator.
struct LCharsetsKernels {
    const char* szName;

    // Decode the longest prefix of nBytes bytes that consists of whole well-formed sequences; the 16-bit form
    // keeps the low 16 bits of each value. dst has room for one unit more than characters begin in the
    // source, by their lead bytes alone; what stands in it behind the units of the prefix is unspecified.
    LCharsetsDecoded (*DecodeTo32)(wchar_t* dst, const char* src, std::size_t nBytes);
    LCharsetsDecoded (*DecodeTo16)(unsigned short* dst, const char* src, std::size_t nBytes);

    // Encode nUnits units, none of them 0, as far as whole sequences fit in nRoom bytes; the rest of the room
    // is unspecified.
    LCharsetsEncoded (*EncodeFrom32)(char* dst, std::size_t nRoom, const wchar_t* src, std::size_t nUnits);
    LCharsetsEncoded (*EncodeFrom16)(char* dst, std::size_t nRoom, const unsigned short* src,
                                     std::size_t nUnits);
};

// The kernels that this processor can run, slowest first; a null ends the list. The portable form is always
// there.
const LCharsetsKernels* const* LCharsetsKernelsHere();

// The fastest of them.
const LCharsetsKernels& LCharsetsFastestKernels();

// The portable form, with which the others also finish what does not fill a vector.
extern const LCharsetsKernels LCharsetsPortableKernels;
extern const LCharsetsKernels LCharsetsAVX512Kernels;

// The portable kernels under the name of their unit type: wchar_t or unsigned short.
template <typename TUnit>
LCharsetsDecoded LCharsetsDecodePortable(TUnit* dst, const char* src, std::size_t nBytes);
template <typename TUnit>
LCharsetsEncoded LCharsetsEncodePortable(char* dst, std::size_t nRoom, const TUnit* src, std::size_t nUnits);

// What the library converts with: names and the like are too short to pay for the way to the fastest kernels.
constexpr std::size_t LCharsetsShortText = 64; // bytes of UTF-8
template <typename TUnit>
LCharsetsDecoded LCharsetsDecode(TUnit* dst, const char* src, std::size_t nBytes) {
    if (nBytes < LCharsetsShortText)
        return LCharsetsDecodePortable(dst, src, nBytes);
    if constexpr (sizeof(TUnit) == sizeof(wchar_t))
        return LCharsetsFastestKernels().DecodeTo32(dst, src, nBytes);
    else
        return LCharsetsFastestKernels().DecodeTo16(dst, src, nBytes);
}
template <typename TUnit>
LCharsetsEncoded LCharsetsEncode(char* dst, std::size_t nRoom, const TUnit* src, std::size_t nUnits) {
    if (nUnits < LCharsetsShortText / 2)
        return LCharsetsEncodePortable(dst, nRoom, src, nUnits);
    if constexpr (sizeof(TUnit) == sizeof(wchar_t))
        return LCharsetsFastestKernels().EncodeFrom32(dst, nRoom, src, nUnits);
    else
        return LCharsetsFastestKernels().EncodeFrom16(dst, nRoom, src, nUnits);
}
