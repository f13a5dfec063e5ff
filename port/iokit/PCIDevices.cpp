#include "iokit/PCIDevices.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <port/UniqueFd.h>
#include <port/internal/seams_iokit.h>
#include <string_view>

#include "host/SystemCalls.h"

namespace port {
namespace {

constexpr std::size_t kAttributeSize = 256; // bytes read of one file of sysfs
constexpr std::size_t kLineSize = 512;      // bytes of a line of the table of ids; what is longer is cut
constexpr std::size_t kIdDigits = 4;

const char* devicesFolder = nullptr;
const char* idsFile = nullptr;

std::string pathOf(const std::string& address) {
    return std::string(devicesFolder != nullptr ? devicesFolder : "/sys/bus/pci/devices") + "/" + address;
}

// The content of an attribute without the line's end; empty when there is none.
std::string readAttribute(const std::string& address, const char* name) {
    const UniqueFd file(sys::open((pathOf(address) + "/" + name).c_str(), O_RDONLY | O_NONBLOCK));
    char text[kAttributeSize];
    const ssize_t length = file ? sys::read(file.get(), text, sizeof text) : 0;
    const std::string_view content(text, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    return std::string(content.substr(0, content.find('\n')));
}

bool parseHex(std::string_view text, std::uint32_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    return error == std::errc() && end == text.data() + text.size();
}

bool readNumber(const std::string& address, const char* name, std::uint32_t& number) {
    const std::string text = readAttribute(address, name);
    return text.starts_with("0x") && parseHex(std::string_view(text).substr(2), number);
}

std::unique_ptr<FILE, int (*)(FILE*)> openIds() {
    constexpr std::array kPlaces = {"/usr/share/misc/pci.ids", "/usr/share/hwdata/pci.ids"};
    FILE* file = nullptr;
    if (idsFile != nullptr)
        file = std::fopen(idsFile, "re");
    else
        for (const char* place : kPlaces)
            if (file == nullptr)
                file = std::fopen(place, "re");
    return {file, std::fclose};
}

// The name in a line "iiii  name"; empty when the line is about another id.
std::string_view nameIn(std::string_view line, std::uint32_t id) {
    std::uint32_t number = 0;
    if (line.size() <= kIdDigits || !parseHex(line.substr(0, kIdDigits), number) || number != id)
        return {};
    line.remove_prefix(std::min(line.find_first_not_of(' ', kIdDigits), line.size()));
    return line.substr(0, line.find_last_not_of("\r\n") + 1);
}

// The table has a line for each vendor, those of its devices with one tab before them behind it, those of
// subsystems with two, and comments.
std::string nameInTable(const PCIDevice& device) {
    const auto ids = openIds();
    if (ids == nullptr)
        return "";
    char text[kLineSize];
    std::string vendor;
    while (std::fgets(text, sizeof text, ids.get()) != nullptr) {
        const std::string_view line = text;
        if (line.starts_with('#') || line.starts_with("\n"))
            continue;
        if (vendor.empty()) {
            vendor = nameIn(line, device.vendor);
            continue;
        }
        if (!line.starts_with('\t'))
            return "";
        if (const std::string_view name = nameIn(line.substr(1), device.device); !name.empty())
            return vendor.append(" ").append(name);
    }
    return "";
}

} // namespace

bool listPCIDevices(std::vector<std::string>& addresses) {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(pathOf("").c_str()), ::closedir);
    if (folder == nullptr)
        return false;
    while (const dirent* entry = addresses.size() < kPCIDeviceLimit ? ::readdir(folder.get()) : nullptr)
        if (entry->d_name[0] != '.')
            addresses.emplace_back(entry->d_name);
    std::sort(addresses.begin(), addresses.end());
    return true;
}

bool readPCIDevice(const std::string& address, PCIDevice& device) {
    return readNumber(address, "vendor", device.vendor) && readNumber(address, "device", device.device) &&
           readNumber(address, "class", device.classCode);
}

std::string modelOfPCIDevice(const std::string& address, const PCIDevice& device) {
    std::string model = nameInTable(device);
    if (model.empty())
        model = readAttribute(address, "label");
    if (!model.empty())
        return model;
    char text[32];
    std::snprintf(text, sizeof text, "PCI %04x:%04x", device.vendor, device.device);
    return text;
}

} // namespace port

void port_set_pci_places(const char* folder, const char* ids) {
    port::devicesFolder = folder;
    port::idsFile = ids;
}
