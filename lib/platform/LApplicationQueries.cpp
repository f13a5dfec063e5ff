#include "platform/LApplicationQueries.h"

#include <AppKit/AppKit.h>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <port/bsd.h>
#include <port/process.h>

#include "base/LLimits.h"
#include "files/LFile.h"
#include "platform/LCFURL.h"

namespace {

constexpr char kAddressBook[] = "/Applications/Address Book.app";
constexpr char kResourcesName[] = "resources";

// Only the first three numbers of the name are passed.
constexpr int kProcessTableName[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL, 0};
constexpr unsigned kProcessTableNameLength = 3;

using ProcessTable = std::unique_ptr<kinfo_proc[]>;

// The processes of the machine; null when there is no memory for them. dwCount is their number.
ProcessTable ReadProcessTable(std::size_t& dwCount) {
    std::size_t dwSize = 0;
    ProcessTable table;
    dwCount = 0;
    if (sysctl(kProcessTableName, kProcessTableNameLength, nullptr, &dwSize, nullptr, 0) != 0)
        return table;
    for (;;) {
        dwSize += dwSize / 10;
        table.reset(); // both tables need not be held at once
        table.reset(new (std::nothrow) kinfo_proc[dwSize / sizeof(kinfo_proc)]);
        if (!table)
            return table;
        std::size_t dwRead = dwSize / sizeof(kinfo_proc) * sizeof(kinfo_proc);
        const bool bRead =
            sysctl(kProcessTableName, kProcessTableNameLength, table.get(), &dwRead, nullptr, 0) == 0;
        if (bRead || errno != ENOMEM) {
            dwCount = dwRead / sizeof(kinfo_proc);
            return table;
        }
    }
}

bool IsFolder(const FSRef& reference) {
    FSCatalogInfo info{};
    return FSGetCatalogInfo(&reference, kFSCatInfoNodeFlags, &info, nullptr, nullptr, nullptr) == noErr &&
           (info.nodeFlags & kFSNodeIsDirectoryMask) != 0;
}

bool IsFolder(const char* szPath) {
    FSRef reference;
    return FSPathMakeRef(reinterpret_cast<const UInt8*>(szPath), &reference, nullptr) == noErr &&
           IsFolder(reference);
}

bool SelectInFinder(const char* szPath) {
    return NSWorkspace::sharedWorkspace()->selectFile(szPath, "");
}

// True when a file in the folder was selected; folders and links are passed over.
bool SelectFirstFileIn(const NSURL& folder) {
    const NSFileManager* const pManager = NSFileManager::defaultManager();
    for (const NSRef<NSURL>& item : pManager->contentsOfDirectoryAtURL(folder)) {
        const char* const szPath = item->fileSystemRepresentation();
        const NSFileType type = pManager->attributesOfItemAtPath(szPath).fileType;
        if (type == NSFileType::None || type == NSFileType::Directory || type == NSFileType::SymbolicLink)
            continue;
        if (SelectInFinder(szPath))
            return true;
    }
    return false;
}

} // namespace

bool LIsApplicationRunning(const char* szName) {
    char szCommand[MAXCOMLEN + 1];
    strlcpy(szCommand, szName, sizeof szCommand);
    std::size_t dwCount = 0;
    const ProcessTable table = ReadProcessTable(dwCount);
    for (std::size_t i = 0; i < dwCount; ++i)
        if (std::strncmp(table[i].kp_proc.p_comm, szCommand, MAXCOMLEN) == 0)
            return true;
    return false;
}

bool LIsApplicationInstalled(const char* szName) {
    char szPath[LPathBufferSize];
    return LFile::GetInstalledApplicationExePath(szPath, szName);
}

bool LGetPSNFromSignature(unsigned long dwSignature, unsigned long dwType, ProcessSerialNumber* pPSN) {
    *pPSN = {0, kNoProcess};
    while (GetNextProcess(pPSN) != procNotFound) {
        ProcessInfoRec info{};
        if (GetProcessInformation(pPSN, &info) == noErr &&
            info.processSignature == static_cast<OSType>(dwSignature) &&
            info.processType == static_cast<OSType>(dwType))
            return true;
    }
    *pPSN = {0, kNoProcess};
    return false;
}

bool LIsApplicationBundled() {
    ProcessSerialNumber psn{};
    FSRef location;
    return GetCurrentProcess(&psn) == noErr && GetProcessBundleLocation(&psn, &location) == noErr &&
           IsFolder(location);
}

void LGetInstalledApplicationResourcesFolder(char* szOut, unsigned long dwSize) {
    CFBundleRef pBundle = CFBundleGetMainBundle();
    const LCFURL url(pBundle != nullptr ? CFBundleCopyResourcesDirectoryURL(pBundle) : nullptr);
    const LCFURL absolute(url ? CFURLCopyAbsoluteURL(url.Get()) : nullptr);
    absolute.GetPath(szOut, dwSize);
}

void LGetInstalledApplicationLXAResourcesFolder(char* szOut) {
    char szFolder[LPathBufferSize];
    LGetInstalledApplicationResourcesFolder(szFolder, sizeof szFolder);
    LFile::_MakeFilePath(szOut, szFolder, szFolder[0] != '\0' ? kResourcesName : "", "");
}

void LRevealInFinder(const char* szPath) {
    if (!NSWorkspace::sharedWorkspace()->port_hasFileViewer())
        return;
    const NSRef<NSURL> url = NSURL::fileURLWithPath(szPath);
    if (url && IsFolder(szPath) && SelectFirstFileIn(*url))
        return;
    SelectInFinder(szPath);
}

void LOpenAddressBook() {
    FSRef reference;
    if (FSPathMakeRef(reinterpret_cast<const UInt8*>(kAddressBook), &reference, nullptr) == noErr)
        LSOpenFSRef(&reference, nullptr);
}
