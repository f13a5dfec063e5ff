#include "files/LFile.h"
#include "files/internal/LFilePathText.h"

#include <algorithm>
#include <string_view>

#include <port/bsd.h>

namespace {

// Only in a path that no buffer holds can a component other than the last one end the scan.
[[gnu::noinline]] std::string_view FilePartOfLong(const char* szPath) {
    const char* pBegin = szPath;
    const char* pEnd = szPath;
    for (; *pEnd != '\0' && static_cast<std::size_t>(pEnd - pBegin) < LPathLongest; ++pEnd)
        if (LPathIsSeparator(*pEnd))
            pBegin = pEnd + 1;
    return {pBegin, static_cast<std::size_t>(pEnd - pBegin)};
}

inline std::string_view FilePart(const char* szPath) {
    const std::size_t dwLength = strnlen(szPath, LPathBufferSize);
    if (dwLength > LPathLongest) [[unlikely]]
        return FilePartOfLong(szPath);
    const std::size_t dwBegin = LPathBehindLastSeparator(szPath, dwLength);
    return {szPath + dwBegin, dwLength - dwBegin};
}

// The position of the last dot behind the last separator; dwLength when there is none.
std::size_t ExtensionPosition(const char* szPath, std::size_t dwLength) {
    for (std::size_t i = dwLength; i-- != 0 && !LPathIsSeparator(szPath[i]);)
        if (szPath[i] == '.')
            return i;
    return dwLength;
}

} // namespace

unsigned LFile::_MakeFilePath(char* szOut, const char* szFolder, const char* szName,
                              const char* szExtension) {
    std::size_t dwLength = strnlen(szFolder, LPathLongestFolder);
    if (szOut != szFolder)
        std::memcpy(szOut, szFolder, dwLength);
    if (dwLength != 0 && !LPathIsSeparator(szOut[dwLength - 1]))
        szOut[dwLength++] = '/';
    const std::size_t dwFolderLength = dwLength;
    if (szName != nullptr)
        dwLength = LPathAppend(szOut, dwLength, szName);
    if (szExtension != nullptr)
        dwLength = LPathAppend(szOut, dwLength, szExtension);
    szOut[dwLength] = '\0';
    return static_cast<unsigned>(dwLength - dwFolderLength);
}

void LFile::_GetFolderFromPath(char* szOut, const char* szPath) {
    const std::size_t dwBehind = LPathBehindLastSeparator(szPath, strnlen(szPath, LPathBufferSize));
    if (dwBehind > 1)
        LPathStore(szOut, szPath, dwBehind - 1);
    else
        LPathStore(szOut, szPath, szPath[0] == '/' ? 1 : 0);
}

void LFile::_GetBaseFolderFromPath(char* szOut, const char* szPath) {
    std::size_t dwLength = 0;
    while (dwLength < LPathLongest && szPath[dwLength] != '\0' &&
           !(dwLength >= 2 && LPathIsSeparator(szPath[dwLength])))
        ++dwLength;
    if (dwLength == 2 && LPathIsSeparator(szPath[1]))
        --dwLength;
    LPathStore(szOut, szPath, dwLength);
}

void LFile::_GetFileFromPath(char* szOut, const char* szPath) {
    const std::string_view file = FilePart(szPath);
    LPathStore(szOut, file.data(), file.size());
}

void LFile::_GetFileNameFromPath(char* szOut, const char* szPath) {
    const std::string_view file = FilePart(szPath);
    const std::size_t dwDot = ExtensionPosition(file.data(), file.size());
    LPathStore(szOut, file.data(), dwDot != 0 ? dwDot : file.size());
}

void LFile::_GetFileExtensionFromPath(char* szOut, const char* szPath) {
    const std::size_t dwLength = std::strlen(szPath);
    const std::size_t dwDot = ExtensionPosition(szPath, dwLength);
    LPathStore(szOut, szPath + dwDot, std::min(dwLength - dwDot, LPathLongest));
}

void LFile::_ApplyNewFileExtension(char* szOut, const char* szPath, const char* szNewExtension) {
    const std::size_t dwLength = strnlen(szPath, LPathLongest);
    std::size_t dwCut = ExtensionPosition(szPath, dwLength);
    if (dwCut == 0)
        dwCut = dwLength;
    std::memmove(szOut, szPath, dwCut);
    szOut[LPathAppend(szOut, dwCut, szNewExtension)] = '\0';
}

void LFile::GetHumanReadableDriveFromPath(char* szOut, const char* szPath) {
    port_statfs_t volume;
    if (port_statfs(szPath, &volume) == 0) {
        strlcpy(szOut, volume.f_mntonname, LPathBufferSize);
        return;
    }
    if (!LFileIsLetterOrNumber(szPath[0])) {
        LPathStore(szOut, "/", szPath[0] == '/' ? 1 : 0);
        return;
    }
    constexpr std::string_view kMark = ":\\";
    std::size_t dwLength = 0;
    while (dwLength < LPathLongest - kMark.size() && LFileIsLetterOrNumber(szPath[dwLength]))
        ++dwLength;
    std::memmove(szOut, szPath, dwLength);
    LPathStore(szOut + dwLength, kMark.data(), kMark.size());
}
