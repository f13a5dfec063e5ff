// Questions about applications: whether one runs or is installed, and where this one's resources are; and two
// actions for the user interface.
//
// Thread-safety: reentrant, but for LRevealInFinder and LOpenAddressBook, which belong to the main thread.
// All of it asks the system and may block with it. Nothing reports an error: what cannot be asked is false or
// empty. Paths are UTF-8; a buffer is the caller's and is always terminated.
#pragma once

#include <CoreServices/CoreServices.h>

#pragma GCC visibility push(default)

// True when a process of any user has that command name. Command names have at most 16 characters: of a longer
// name the first 16 count. Exact comparison.
bool LIsApplicationRunning(const char* szName);

// True when an application of that name is installed for the user or for all.
bool LIsApplicationInstalled(const char* szName);

// The first running application with that creator signature and file type, of which the low 32 bits count.
// False, with an empty *pPSN, when there is none.
bool LGetPSNFromSignature(unsigned long dwSignature, unsigned long dwType, ProcessSerialNumber* pPSN);

// True when this process was launched from a bundle folder.
bool LIsApplicationBundled();

// The folder of the resources in the main bundle, never cut inside a character; empty where the system does not tell
// a process its program. A size of 0 writes nothing.
void LGetInstalledApplicationResourcesFolder(char* szOut, unsigned long dwSize);

// The folder "resources" in it, or empty; LPathBufferSize bytes.
void LGetInstalledApplicationLXAResourcesFolder(char* szOut);

// Shows a file in the file viewer, selected in its folder; a folder with the first file in it that can be
// selected, else as a file. Nothing, and the folder is not read, where there is no file viewer.
void LRevealInFinder(const char* szPath);

// Opens the system's address book.
void LOpenAddressBook();

#pragma GCC visibility pop
