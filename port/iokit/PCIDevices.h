// The devices of the PCI bus, as the kernel shows them, and the names that people gave them.
//
// Thread-safety: reentrant, but for the seam behind it. Blocks with the file system.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace port {

constexpr std::size_t kPCIDeviceLimit = 4096; // devices told
constexpr std::uint32_t kPCIDisplayClass = 0x03;

struct PCIDevice {
    std::uint32_t vendor = 0;
    std::uint32_t device = 0;
    std::uint32_t classCode = 0; // class, subclass and interface, a byte each
};

// The bus addresses of all devices, ascending. False when there is no such bus.
bool listPCIDevices(std::vector<std::string>& addresses);

// The device at a bus address. False when it has gone.
bool readPCIDevice(const std::string& address, PCIDevice& device);

// "Vendor Device" from the table of PCI ids, else the firmware's label of the slot, else "PCI vvvv:dddd".
std::string modelOfPCIDevice(const std::string& address, const PCIDevice& device);

} // namespace port
