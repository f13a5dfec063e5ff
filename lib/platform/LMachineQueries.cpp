#include "platform/LMachineQueries.h"

#include <IOKit/IOKitLib.h>
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <limits>
#include <port/bsd.h>
#include <port/process.h>
#include <sys/resource.h>

#include "base/LLimits.h"
#include "base/LSystemVersion.h"
#include "platform/LCFRef.h"
#include "platform/LCFString.h"

namespace {

constexpr rlim_t kLargestHeapSize = std::numeric_limits<std::uint32_t>::max();

class DeviceOwner {
public:
    explicit DeviceOwner(io_object_t pDevice) : _pDevice(pDevice) {}
    DeviceOwner(const DeviceOwner&) = delete;
    DeviceOwner& operator=(const DeviceOwner&) = delete;
    ~DeviceOwner() {
        if (_pDevice != nullptr)
            IOObjectRelease(_pDevice);
    }

    io_object_t Get() const { return _pDevice; }

private:
    io_object_t _pDevice;
};

// Adds the model of the device, if it has one.
void AddModel(io_registry_entry_t pDevice, LStringListTemplate<char>& lsDescriptions) {
    CFMutableDictionaryRef pProperties = nullptr;
    if (IORegistryEntryCreateCFProperties(pDevice, &pProperties, kCFAllocatorDefault, 0) != kIOReturnSuccess)
        return;
    const LCFRef<CFDictionaryRef> properties(pProperties);
    const CFTypeRef pModel = CFDictionaryGetValue(properties.Get(), CFSTR("model"));
    if (pModel == nullptr || CFGetTypeID(pModel) != CFDataGetTypeID())
        return;
    const auto pData = static_cast<CFDataRef>(pModel);
    const LCFRef<CFStringRef> text(CFStringCreateWithBytes(
        kCFAllocatorDefault, CFDataGetBytePtr(pData), CFDataGetLength(pData), kCFStringEncodingUTF8, false));
    char szModel[LPathBufferSize];
    LCFString(text.Get()).GetString(szModel, sizeof szModel);
    const std::size_t dwSize = std::strlen(szModel) + 1;
    strlcpy(lsDescriptions.Add(dwSize), szModel, dwSize);
}

unsigned long ClampedHeapSize(rlim_t rlimit::*pLimit) {
    rlimit limits;
    if (getrlimit(RLIMIT_DATA, &limits) != 0)
        return kLargestHeapSize;
    return std::min(limits.*pLimit, kLargestHeapSize);
}

} // namespace

bool LIsOS64Bit() {
    if (!IsOSMacLeopardOrLater())
        return false;
    std::int32_t nIs64Bit = 0;
    std::size_t dwSize = sizeof nIs64Bit;
    return sysctlbyname("hw.optional.x86_64", &nIs64Bit, &dwSize, nullptr, 0) == 0 && nIs64Bit != 0;
}

void LMachineGetGPUDescriptions(LStringListTemplate<char>& lsDescriptions) {
    lsDescriptions.Clear();
    io_iterator_t pIterator = nullptr;
    if (IOServiceGetMatchingServices(kIOMasterPortDefault, IOServiceMatching("IOPCIDevice"), &pIterator) !=
        kIOReturnSuccess)
        return;
    const DeviceOwner iterator(pIterator);
    while (io_object_t pDevice = IOIteratorNext(iterator.Get())) {
        const DeviceOwner device(pDevice);
        AddModel(device.Get(), lsDescriptions);
    }
}

unsigned long LMemoryGetFreeHeapSize() {
    return ClampedHeapSize(&rlimit::rlim_cur);
}

unsigned long LMemoryGetTotalHeapSize() {
    return ClampedHeapSize(&rlimit::rlim_max);
}

std::uint64_t LMemoryGetPhysicalMemorySize() {
    constexpr int kName[] = {CTL_HW, HW_MEMSIZE};
    std::uint64_t qwBytes = 0;
    std::size_t dwSize = sizeof qwBytes;
    return sysctl(kName, std::size(kName), &qwBytes, &dwSize, nullptr, 0) == 0 ? qwBytes : 0;
}

unsigned long LMemoryGetPhysicalMemoryLoad() {
    return 0;
}
