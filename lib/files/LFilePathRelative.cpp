#include "files/LFile.h"
#include "files/internal/LFilePathText.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include <port/bsd.h>

namespace {

constexpr std::size_t kNowhere = ~std::size_t{0};
constexpr std::size_t kStepLength = 3; // bytes of "../"

bool IsAbsolute(const char* szPath) {
    if (LPathIsSeparator(szPath[0]))
        return true;
    while (*szPath != '\0' && *szPath != ':' && !LPathIsSeparator(*szPath))
        ++szPath;
    return *szPath == ':';
}

// Takes the last component off the folder, with the separator in front of it; returns the new length.
std::size_t StepUp(char* szFolder, std::size_t dwLength) {
    if (LPathIsSeparator(szFolder[dwLength - 1]))
        --dwLength;
    const std::size_t dwBehind = LPathBehindLastSeparator(szFolder, dwLength);
    if (dwBehind == 1)
        szFolder[0] = '/';
    const std::size_t dwLeft = dwBehind > 1 ? dwBehind - 1 : dwBehind;
    szFolder[dwLeft] = '\0';
    return dwLeft;
}

// How many bytes both texts have in common, from their first one on.
std::size_t CommonLength(std::string_view first, std::string_view second) {
    const std::size_t dwShorter = std::min(first.size(), second.size());
    std::size_t dwLength = 0;
    for (std::uint64_t a, b; dwLength + sizeof a <= dwShorter; dwLength += sizeof a) {
        std::memcpy(&a, first.data() + dwLength, sizeof a);
        std::memcpy(&b, second.data() + dwLength, sizeof b);
        if (a != b)
            break;
    }
    while (dwLength < dwShorter && first[dwLength] == second[dwLength])
        ++dwLength;
    return dwLength;
}

// Writes dwSteps times "..", each with the mark, then the rest of a path, cut to the buffer.
void StoreSteps(char* szOut, std::size_t dwSteps, char mark, std::string_view rest) {
    const char step[kStepLength] = {'.', '.', mark};
    const std::size_t dwEnd = std::min(dwSteps * kStepLength, LPathLongest);
    for (std::size_t i = 0; i < dwEnd; ++i)
        szOut[i] = step[i % kStepLength];
    LPathStore(szOut + dwEnd, rest.data(), std::min(rest.size(), LPathLongest - dwEnd));
}

} // namespace

void LFile::MakeAbsoluteFilePath(char* szOut, const char* szBase, const char* szRelative,
                                 const char* szExtension) {
    if (IsAbsolute(szRelative)) {
        _MakeFilePath(szOut, "", szRelative, szExtension);
        return;
    }
    char szStepped[LPathBufferSize];
    std::size_t dwBase = kNowhere; // not copied yet
    const char* pRest = szRelative;
    for (;;) {
        if (pRest[0] == '.' && LPathIsSeparator(pRest[1])) {
            pRest += 2;
            continue;
        }
        if (pRest[0] != '.' || pRest[1] != '.' || !LPathIsSeparator(pRest[2]))
            break;
        if (dwBase == kNowhere) {
            dwBase = std::min(strlcpy(szStepped, szBase, sizeof szStepped), LPathLongest);
            szBase = szStepped;
        }
        if (dwBase < 2)
            break;
        dwBase = StepUp(szStepped, dwBase);
        pRest += kStepLength;
    }
    _MakeFilePath(szOut, szBase, pRest, szExtension);
}

bool LFile::GetRelativePathFromAbsolutePath(char* szOut, const char* szBase, const char* szPath) {
    const std::string_view base(szBase);
    const std::string_view path(szPath);
    const std::size_t dwCommon = CommonLength(base, path);
    const std::size_t dwMark = LPathBehindLastSeparator(szBase, dwCommon); // 0 without a common separator
    const bool bWholeBase = dwCommon == base.size();
    const bool bPathGoesOn = LPathIsSeparator(szPath[dwCommon]);
    if (bWholeBase && bPathGoesOn) {
        StoreSteps(szOut, 0, '/', path.substr(dwCommon + 1));
        return true;
    }
    if (dwMark == 0 || (bWholeBase && dwMark == dwCommon)) {
        StoreSteps(szOut, 0, '/', path.substr(dwMark));
        return true;
    }
    // A separator at the base's very end marks the folder itself and is no step.
    const char* const pBaseRest = szBase + std::min(dwCommon, base.size() - 1);
    const auto nMore = std::count_if(pBaseRest, szBase + base.size() - 1, LPathIsSeparator);
    const std::size_t dwSteps = 1 + static_cast<std::size_t>(nMore);
    if (dwSteps * kStepLength + path.size() - dwMark > LPathBufferSize) {
        szOut[0] = '\0';
        return false;
    }
    StoreSteps(szOut, dwSteps, szPath[dwMark - 1], path.substr(dwMark));
    return true;
}

bool LFile::MakeRelativeFolder(char* szOut, const char* szBase, const char* szPath) {
    char szFolder[LPathBufferSize];
    std::string_view base(szBase);
    if (!base.ends_with('/')) {
        const std::size_t dwLength = LPathAppend(szFolder, 0, szBase);
        base = {szFolder, LPathAppend(szFolder, dwLength, "/")};
    }
    const std::string_view path(szPath);
    std::size_t dwCommon = CommonLength(base, path);
    const auto bEndsHere = [=](std::string_view text) {
        return dwCommon == text.size() || text[dwCommon] == '/';
    };
    if (!bEndsHere(base) || !bEndsHere(path))
        dwCommon = base.substr(0, dwCommon).rfind('/') + 1;
    const std::string_view baseRest = base.substr(dwCommon);
    const auto nSteps = std::count(baseRest.begin(), baseRest.end(), '/');
    std::string_view rest = path.substr(dwCommon);
    if (rest.starts_with('/'))
        rest.remove_prefix(1);
    StoreSteps(szOut, static_cast<std::size_t>(nSteps), '/', rest);
    return true;
}

bool LFile::MakeRelativeFilePath(char* szOut, const char* szBase, const char* szPath) {
    return MakeRelativeFolder(szOut, szBase, szPath);
}
