#include "net/LIPAddress.h"

namespace {

// Only the plain form: `inet_addr` would take "010.1" for 8.0.0.1.
in_addr AddressFromText(const char* szAddress) {
    in_addr address;
    return inet_pton(AF_INET, szAddress, &address) == 1 ? address : in_addr{INADDR_NONE};
}

} // namespace

LIPAddressWithPort::LIPAddressWithPort(in_addr address, unsigned short wPort) : sockaddr_in{} {
    sin_family = AF_INET;
    sin_port = htons(wPort);
    sin_addr = address;
}

LIPAddressWithPort::LIPAddressWithPort(const char* szAddress, unsigned short wPort)
    : LIPAddressWithPort(AddressFromText(szAddress), wPort) {}

const sockaddr* LIPAddressWithPort::GetSocketAddress() const {
    return reinterpret_cast<const sockaddr*>(static_cast<const sockaddr_in*>(this));
}

void LIPAddressWithPort::GetText(char* szOut) const {
    *szOut = '\0';
    if (IsResolved())
        inet_ntop(AF_INET, &sin_addr, szOut, LIPAddressTextSize);
}

bool LIPAddressMultiHomedWithPort::Add(in_addr address) {
    if (dwCount >= LIPAddressMaximum)
        return false;
    addresses[dwCount++] = address;
    return true;
}

bool LIPAddressMultiHomedWithPort::Add(const char* szAddress) {
    const in_addr address = AddressFromText(szAddress);
    return address.s_addr != INADDR_NONE && Add(address);
}
