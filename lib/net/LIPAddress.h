// IPv4 endpoints: one address with a port, and one port at several addresses that are tried in order.
//
// Thread-safety: as plain values. Nothing here asks a name service.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#pragma GCC visibility push(default)

// Bytes of an address as text, terminator included.
constexpr unsigned long LIPAddressTextSize = INET_ADDRSTRLEN;

// The addresses that a multi-homed endpoint holds at most.
constexpr unsigned int LIPAddressMaximum = 16;

// The layout of `sockaddr_in`, which system calls take as it is. The address INADDR_NONE marks an endpoint
// that is not resolved.
class LIPAddressWithPort : public sockaddr_in {
public:
    LIPAddressWithPort() : LIPAddressWithPort(in_addr{INADDR_NONE}, 0) {}
    // The address in network byte order, the port in that of the host.
    LIPAddressWithPort(in_addr address, unsigned short wPort);
    // From four decimal numbers ("127.0.0.1"); any other text leaves the endpoint unresolved.
    LIPAddressWithPort(const char* szAddress, unsigned short wPort);

    bool IsResolved() const { return sin_addr.s_addr != INADDR_NONE; }
    const sockaddr* GetSocketAddress() const;
    // In the host's byte order.
    unsigned short GetPort() const { return ntohs(sin_port); }
    // The address as four decimal numbers, in LIPAddressTextSize bytes; empty when it is not resolved.
    void GetText(char* szOut) const;
};

class LIPAddressMultiHomedWithPort {
public:
    // No address yet; the port in the host's byte order.
    explicit LIPAddressMultiHomedWithPort(unsigned short wThePort) : wPort(wThePort) {}

    // Adds an address behind the others: in network byte order, or from four decimal numbers. False, and
    // nothing is added, when there are LIPAddressMaximum already or the text is no address.
    bool Add(in_addr address);
    bool Add(const char* szAddress);

    unsigned int GetCount() const { return dwCount; }
    // The endpoint of the address `dwIndex`, which is below the count.
    LIPAddressWithPort GetAddress(unsigned int dwIndex) const { return {addresses[dwIndex], wPort}; }

private:
    unsigned short wPort;
    unsigned int dwCount = 0;
    in_addr addresses[LIPAddressMaximum];
};

#pragma GCC visibility pop
