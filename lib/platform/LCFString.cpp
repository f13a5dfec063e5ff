#include "platform/LCFString.h"

#include "strings/LCharsets.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

namespace {

constexpr unsigned long kUTF8PerUnit = 6;

// What counts as valid is the platform's to say, and its two constructors need not agree.
CFStringRef CreateFromUTF8(const char* szText) {
    const unsigned long dwLength = std::strlen(szText);
    const CFStringRef pWhole =
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(szText),
                                static_cast<CFIndex>(dwLength), kCFStringEncodingUTF8, false);
    if (pWhole != nullptr)
        return pWhole;
    const CFStringRef pText = CFStringCreateWithCString(kCFAllocatorDefault, szText, kCFStringEncodingUTF8);
    if (pText != nullptr)
        return pText;
    LStringLongTemplate<unsigned short> lsValidPart;
    lsValidPart.GrowToSize(dwLength + 1);
    LCopyUnicodeFromUTF8(lsValidPart.GetData(), szText, dwLength + 1);
    const unsigned short* const pUnits = lsValidPart.GetData();
    return CFStringCreateWithCharacters(kCFAllocatorDefault, pUnits,
                                        std::find(pUnits, pUnits + dwLength, 0) - pUnits);
}

} // namespace

LCFString::LCFString(const char* szText) : pHeld(CreateFromUTF8(szText)) {}

LCFString::LCFString(CFStringRef pString) : pHeld(pString) {
    if (pString != nullptr)
        CFRetain(pString);
}

void LCFString::SetString(const char* szText) {
    pHeld.Reset(CreateFromUTF8(szText));
}

void LCFString::GetString(char* szOut, unsigned long dwSize) const {
    if (dwSize == 0)
        return;
    LStringLongTemplate<char> lsText;
    GetString(lsText);
    utf8strlcpy(szOut, lsText.GetText(), dwSize);
}

void LCFString::GetString(LStringLongTemplate<char>& lsOut) const {
    lsOut.SetLength(0);
    if (!pHeld)
        return;
    lsOut.GrowToSize(static_cast<unsigned long>(CFStringGetLength(Get())) * kUTF8PerUnit + 1);
    CFStringGetCString(Get(), lsOut.GetData(), lsOut.GetCapacity(), kCFStringEncodingUTF8);
    lsOut.SetLength(static_cast<std::uint32_t>(std::strlen(lsOut.GetData())));
}

void LCFString::GetString(wchar_t* szOut, unsigned long dwSize) const {
    if (dwSize == 0)
        return;
    LStringLongTemplate<wchar_t> lsText;
    GetString(lsText);
    const std::size_t dwKept = std::min<unsigned long>(lsText.GetLength(), dwSize - 1);
    std::wmemcpy(szOut, lsText.GetText(), dwKept);
    szOut[dwKept] = L'\0';
}

void LCFString::GetString(LStringLongTemplate<wchar_t>& lsOut) const {
    lsOut.SetLength(0);
    if (!pHeld)
        return;
    const CFIndex nUnits = CFStringGetLength(Get());
    const unsigned long dwSize = static_cast<unsigned long>(nUnits) + 1;
    LStringLongTemplate<unsigned short> lsUnits;
    lsUnits.GrowToSize(dwSize);
    CFStringGetCharacters(Get(), CFRangeMake(0, nUnits), lsUnits.GetData());
    lsUnits.SetLength(static_cast<std::uint32_t>(nUnits));
    lsOut.GrowToSize(dwSize + 1);
    LCopyUTF32FromUnicode(lsOut.GetData(), lsUnits.GetData(), dwSize);
    lsOut.SetLength(static_cast<std::uint32_t>(std::wcslen(lsOut.GetData())));
}
