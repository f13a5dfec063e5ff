// What the path operations share: the limits of a path buffer and bounded writing into it. Internal to this
// folder.
#pragma once

#include "base/LLimits.h"

#include <cstddef>
#include <cstring>

#include "files/internal/LByteBlock.h"

constexpr std::size_t LPathLongest = LPathBufferSize - 1;       // bytes of a path, without its terminator
constexpr std::size_t LPathLongestFolder = LPathBufferSize - 2; // leaves room for the separator behind it

inline bool LPathIsSeparator(char character) {
    return character == '/' || character == '\\';
}

// Where the part behind the last separator of the first dwLength bytes begins; 0 without a separator.
inline std::size_t LPathBehindLastSeparator(const char* szPath, std::size_t dwLength) {
    for (; dwLength >= LByteBlock::kSize; dwLength -= LByteBlock::kSize) {
        const std::uint64_t qwFound = LByteBlock(szPath + dwLength - LByteBlock::kSize).Find('/', '\\');
        if (qwFound != 0)
            return dwLength - LByteBlock::CountBehind(qwFound);
    }
    while (dwLength != 0 && !LPathIsSeparator(szPath[dwLength - 1]))
        --dwLength;
    return dwLength;
}

// Writes as much of the text at dwLength as the path buffer holds, without a terminator; returns the new
// length. The text may overlap the buffer from its own place on.
inline std::size_t LPathAppend(char* szOut, std::size_t dwLength, const char* szText) {
    const std::size_t dwAdded = strnlen(szText, LPathLongest - dwLength);
    std::memmove(szOut + dwLength, szText, dwAdded);
    return dwLength + dwAdded;
}

// Replaces the path buffer by dwLength bytes, at most LPathLongest, that may lie inside it.
inline void LPathStore(char* szOut, const char* pBytes, std::size_t dwLength) {
    std::memmove(szOut, pBytes, dwLength);
    szOut[dwLength] = '\0';
}
