#include "strings/LString.h"

#include <cstddef>
#include <cstring>
#include <functional>
#include <utility>

template class LStringLongBase<char>;
template class LStringLongBase<unsigned short>;
template class LStringLongBase<wchar_t>;

void LStringLongTemplate<char>::Assign(LStringLongTemplate& other) {
    if (&other == this)
        return;
    pData = std::move(other.pData);
    dwLength = std::exchange(other.dwLength, 0);
    dwCapacity = std::exchange(other.dwCapacity, 0);
}

LStringLongTemplate<char>& LStringLongTemplate<char>::operator=(const char* s) {
    const unsigned long dwNewLength = s != nullptr ? std::strlen(s) : 0;
    port::Unique<char[]> pNew = _Allocate(dwNewLength + 1);
    if (dwNewLength != 0)
        std::memcpy(pNew.get(), s, dwNewLength);
    pNew[dwNewLength] = 0;
    pData = std::move(pNew);
    dwLength = static_cast<std::uint32_t>(dwNewLength);
    dwCapacity = dwLength + 1;
    return *this;
}

void LStringLongTemplate<char>::Append(const char* s) {
    const unsigned long dwAdded = s != nullptr ? std::strlen(s) : 0;
    const bool bOwn = pData && !std::less<>()(s, pData.get()) && std::less<>()(s, pData.get() + dwCapacity);
    std::ptrdiff_t const nOffset = bOwn ? s - pData.get() : 0;
    GrowToSize(dwLength + dwAdded + 1);
    if (dwAdded != 0)
        std::memcpy(pData.get() + dwLength, bOwn ? pData.get() + nOffset : s, dwAdded);
    SetLength(dwLength + static_cast<std::uint32_t>(dwAdded));
}
