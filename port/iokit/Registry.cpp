#include <IOKit/IOKitLib.h>

#include <string>
#include <utility>
#include <vector>

#include "corefoundation/CFObject.h"
#include "iokit/PCIDevices.h"

// A device by its bus address, or an iterator over those that are still to come.
struct _IOObject {
    std::string address;
    std::vector<std::string> addresses;
    std::size_t next = 0;
};

namespace {

using port::CFRef;

CFMutableDictionaryRef makeDictionary() {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

} // namespace

CFMutableDictionaryRef IOServiceMatching(const char* className) {
    CFMutableDictionaryRef matching = makeDictionary();
    const CFRef<CFStringRef> name(
        CFStringCreateWithCString(kCFAllocatorDefault, className, kCFStringEncodingUTF8));
    if (name)
        CFDictionarySetValue(matching, CFSTR("IOProviderClass"), name.get());
    return matching;
}

kern_return_t IOServiceGetMatchingServices(mach_port_t, CFDictionaryRef matching, io_iterator_t* iterator) {
    *iterator = nullptr;
    const CFRef<CFDictionaryRef> query(matching);
    const CFTypeRef className = CFDictionaryGetValue(query.get(), CFSTR("IOProviderClass"));
    if (className == nullptr || !CFEqual(className, CFSTR("IOPCIDevice")))
        return kIOReturnUnsupported;
    std::vector<std::string> addresses;
    if (!port::listPCIDevices(addresses))
        return kIOReturnError;
    *iterator = new _IOObject{{}, std::move(addresses)};
    return kIOReturnSuccess;
}

io_object_t IOIteratorNext(io_iterator_t iterator) {
    if (iterator->next == iterator->addresses.size())
        return nullptr;
    return new _IOObject{iterator->addresses[iterator->next++], {}};
}

kern_return_t IOObjectRelease(io_object_t object) {
    delete object;
    return kIOReturnSuccess;
}

kern_return_t IORegistryEntryCreateCFProperties(io_registry_entry_t entry, CFMutableDictionaryRef* properties,
                                                CFAllocatorRef, IOOptionBits) {
    *properties = nullptr;
    port::PCIDevice device;
    if (!port::readPCIDevice(entry->address, device))
        return kIOReturnError;
    *properties = makeDictionary();
    if (device.classCode >> 16 != port::kPCIDisplayClass)
        return kIOReturnSuccess;
    const std::string model = port::modelOfPCIDevice(entry->address, device);
    const CFRef<CFDataRef> data(CFDataCreate(kCFAllocatorDefault,
                                             reinterpret_cast<const UInt8*>(model.c_str()),
                                             static_cast<CFIndex>(model.size() + 1)));
    CFDictionarySetValue(*properties, CFSTR("model"), data.get());
    return kIOReturnSuccess;
}
