#include "platform/LCFBundle.h"

#include "base/LLimits.h"
#include "platform/LCFString.h"
#include "strings/LStringUtilities.h"

#include <cstdlib>
#include <cstring>

namespace {

// Fills the buffer of LPathBufferSize bytes; empty when the bundle has no version text.
void GetVersionText(CFBundleRef pBundle, char* szVersion) {
    szVersion[0] = '\0';
    if (pBundle == nullptr)
        return;
    const CFTypeRef pValue = CFBundleGetValueForInfoDictionaryKey(pBundle, kCFBundleVersionKey);
    if (pValue != nullptr && CFGetTypeID(pValue) == CFStringGetTypeID())
        LCFString(static_cast<CFStringRef>(pValue)).GetString(szVersion, LPathBufferSize);
}

int ToNumber(const char* szText) {
    return static_cast<int>(std::strtol(szText, nullptr, 10));
}

} // namespace

bool LCFBundle::GetVersionNumber(int& nMajor, int& nMinor) const {
    char szVersion[LPathBufferSize];
    GetVersionText(Get(), szVersion);
    if (szVersion[0] == '\0')
        return false;
    const char* pNumbers = szVersion;
    if (*pNumbers == 'V') {
        const char* const pBlank = std::strchr(pNumbers, ' ');
        pNumbers = pBlank != nullptr ? pBlank + 1 : "";
    }
    char szMajor[LPathBufferSize];
    LStringParserTemplate<char> parser(pNumbers);
    parser.GetToCharacterAndSkip(".", szMajor);
    nMajor = ToNumber(szMajor);
    nMinor = ToNumber(parser.GetPosition());
    return true;
}
