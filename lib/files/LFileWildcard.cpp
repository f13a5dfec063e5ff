#include "files/LFile.h"

namespace {

// The first place from pName on where a run before pPattern can end.
const char* SkipToStart(const char* pName, const char* pPattern) {
    const char first = *pPattern;
    if (first != '*' && first != '?')
        while (*pName != '\0' && *pName != first)
            ++pName;
    return pName;
}

} // namespace

// Only the last "*" that stood for a run is ever tried again. An earlier one with a longer run would reach
// each later place of the pattern no sooner than it was first reached, and all places of the name from there
// on have been tried. This holds also where a "*" was taken for itself: reached at the same character it is
// taken for itself again, reached later it cannot be left sooner.
template <>
bool LFile::IsMatch<char>(const char* pPattern, const char* pName) {
    const char* pBehindStar = nullptr;
    const char* pRunEnd = nullptr;
    while (*pName != '\0') {
        if (*pPattern == *pName || *pPattern == '?') {
            ++pPattern;
            ++pName;
        } else if (*pPattern == '*') {
            if (*++pPattern == '\0')
                return true;
            pBehindStar = pPattern;
            pName = pRunEnd = SkipToStart(pName, pPattern);
        } else if (pBehindStar != nullptr) {
            pPattern = pBehindStar;
            pName = pRunEnd = SkipToStart(pRunEnd + 1, pPattern);
        } else {
            return false;
        }
    }
    while (*pPattern == '*')
        ++pPattern;
    return *pPattern == '\0';
}
