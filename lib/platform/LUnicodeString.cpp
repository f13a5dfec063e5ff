#include "platform/LUnicodeString.h"

#include "platform/LCFString.h"
#include "strings/LStringUtilities.h"

namespace {

template <typename T>
void CopyText(const unsigned short* pText, LStringLongTemplate<T>& lsOut) {
    lsOut.SetLength(0);
    if (pText == nullptr)
        return;
    const auto nBytes = static_cast<CFIndex>(lstrlen(pText) * sizeof *pText);
    const LCFRef<CFStringRef> string(CFStringCreateWithBytes(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(pText), nBytes, kCFStringEncodingUnicode, false));
    LCFString(string.Get()).GetString(lsOut);
}

} // namespace

void LUnicodeString::GetString(LStringLongTemplate<char>& lsOut) const {
    CopyText(pHeld, lsOut);
}

void LUnicodeString::GetString(LStringLongTemplate<wchar_t>& lsOut) const {
    CopyText(pHeld, lsOut);
}
