// Questions about the machine: its kind, its graphics devices, its memory.
//
// Thread-safety: reentrant; a list belongs to its owner. Nothing is kept and nothing reports an error. All of it
// asks the system; only LMachineGetGPUDescriptions may block, with the file system.
#pragma once

#include <cstdint>

#include "strings/LStringList.h"

#pragma GCC visibility push(default)

// True when the processor can run 64-bit programs; false before system version 10.5, without asking it.
bool LIsOS64Bit();

// Empties the list, then fills it with the model of each graphics device, of at most 259 bytes, in the order of
// the system's registry. Stays empty when there is no registry.
void LMachineGetGPUDescriptions(LStringListTemplate<char>& lsDescriptions);

// Bytes: the soft and the hard limit of this process's data, at most 2^32 - 1, which also stands for no limit
// and for one that cannot be read.
unsigned long LMemoryGetFreeHeapSize();
unsigned long LMemoryGetTotalHeapSize();

// Bytes of memory in the machine; 0 when the system does not tell.
std::uint64_t LMemoryGetPhysicalMemorySize();

// Always 0: the load is not measured.
unsigned long LMemoryGetPhysicalMemoryLoad();

#pragma GCC visibility pop
