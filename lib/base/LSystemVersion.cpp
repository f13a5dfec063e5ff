#include "base/LSystemVersion.h"

#include <CoreServices/CoreServices.h>

#include <cstdint>
#include <port/internal/exported.h>

namespace {

std::uint8_t VersionByte(OSType selector) {
    SInt32 nVersion = 0; // stays when the call fails
    Gestalt(selector, &nVersion);
    return static_cast<std::uint8_t>(nVersion);
}

// True above 10.nMinor.
bool IsSystemLaterThan(std::uint8_t nMinor) {
    constexpr std::uint8_t kMajorOfTen = 10;
    const std::uint8_t nMajor = VersionByte(gestaltSystemVersionMajor);
    return nMajor > kMajorOfTen || (nMajor == kMajorOfTen && VersionByte(gestaltSystemVersionMinor) > nMinor);
}

} // namespace

template <typename>
bool IsOSMacLeopardOrLater() {
    static const bool bIsLeopardOrLater = IsSystemLaterThan(4);
    return bIsLeopardOrLater;
}
template PORT_EXPORTED bool IsOSMacLeopardOrLater<>();

template <typename>
bool IsOSMacSnowLeopardOrLater() {
    static const bool bIsSnowLeopardOrLater = IsSystemLaterThan(5);
    return bIsSnowLeopardOrLater;
}
template PORT_EXPORTED bool IsOSMacSnowLeopardOrLater<>();

template <typename>
bool IsOSMacLionOrLater() {
    static const bool bIsLionOrLater = IsSystemLaterThan(6);
    return bIsLionOrLater;
}
template PORT_EXPORTED bool IsOSMacLionOrLater<>();
