// IOKit: the registry of the machine's devices, as far as its PCI devices.
//
// Thread-safety: an object belongs to one thread at a time. All functions but IOServiceMatching and
// IOObjectRelease ask the system and may block with it.
//
// Ownership: what comes back in an output or from IOIteratorNext belongs to the caller, who gives it back with
// IOObjectRelease; a dictionary with CFRelease. Results are kIOReturnSuccess or another number; outputs are null
// on failure.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <port/mach.h>

using IOReturn = kern_return_t;
constexpr IOReturn kIOReturnSuccess = 0;
constexpr IOReturn kIOReturnError = static_cast<IOReturn>(0xE00002BC);
constexpr IOReturn kIOReturnUnsupported = static_cast<IOReturn>(0xE00002C7);

constexpr mach_port_t kIOMasterPortDefault = 0;
using IOOptionBits = std::uint32_t;

using io_object_t = struct _IOObject*;
using io_iterator_t = io_object_t;
using io_registry_entry_t = io_object_t;

#pragma GCC visibility push(default)

// The query for the services of a class, to be consumed by IOServiceGetMatchingServices. Not null.
CFMutableDictionaryRef IOServiceMatching(const char* className);

// An iterator over the services that match, in the order of the registry: that of their bus addresses. Takes
// over the reference to the query. kIOReturnUnsupported for a class other than "IOPCIDevice", kIOReturnError
// where there is no PCI bus to be asked.
kern_return_t IOServiceGetMatchingServices(mach_port_t masterPort, CFDictionaryRef matching,
                                           io_iterator_t* iterator);

// Null when there are no more.
io_object_t IOIteratorNext(io_iterator_t iterator);

kern_return_t IOObjectRelease(io_object_t object); // not null

// The properties of a device: of a graphics device "model", data: a terminated UTF-8 text, from the machine's
// table of PCI ids, else the label that the firmware gives the slot, else "PCI vvvv:dddd"; of others none.
// kIOReturnError for a device that has gone.
kern_return_t IORegistryEntryCreateCFProperties(io_registry_entry_t entry, CFMutableDictionaryRef* properties,
                                                CFAllocatorRef allocator, IOOptionBits options);

#pragma GCC visibility pop
