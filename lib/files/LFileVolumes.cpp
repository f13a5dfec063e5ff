// Questions about volumes.
#include "files/LFile.h"

#include <CoreServices/CoreServices.h>
#include <cstdio>
#include <cstring>
#include <port/bsd.h>

#include "base/LLimits.h"
#include "strings/LStringUtilities.h"

namespace {

constexpr UInt32 kInternalBus = 1U << bIsOnInternalBus;
constexpr UInt32 kExternalBus = 1U << bIsOnExternalBus;
constexpr UInt32 kRemovable = 1U << bIsRemovable;

// File systems that are never local, by their identifier: those of remote services, and one that is no longer
// met.
constexpr unsigned short kRemoteFileSystems[] = {25461, 19016};

struct FileSizeClass {
    const char* szName;
    int nLimit;
};
constexpr FileSizeClass kFileSizeClasses[] = {
    {"NTFS", LFile::FileSizeLimitNone},   {"FAT32", LFile::FileSizeLimitFAT32},
    {"exFAT", LFile::FileSizeLimitNone},  {"FAT16B", LFile::FileSizeLimitFAT32},
    {"FAT16", LFile::FileSizeLimitFAT16}, {"FAT12", LFile::FileSizeLimitFAT16},
    {"FAT", LFile::FileSizeLimitFAT16},
};

struct SizeUnit {
    unsigned nShift;
    const char* szName;
};
constexpr SizeUnit kSizeUnits[] = {{40, "TB"}, {30, "GB"}, {20, "MB"}, {10, "KB"}, {0, "Bytes"}};

bool GetVolume(const char* szPath, SInt16& nVolume) {
    FSRef reference;
    FSCatalogInfo info{};
    if (FSPathMakeRef(reinterpret_cast<const UInt8*>(szPath), &reference, nullptr) != noErr ||
        FSGetCatalogInfo(&reference, kFSCatInfoVolume, &info, nullptr, nullptr, nullptr) != noErr)
        return false;
    nVolume = info.volume;
    return true;
}

bool IsNetwork(unsigned int dwAttributes) {
    return (dwAttributes & (kInternalBus | kExternalBus | kRemovable)) == 0;
}

} // namespace

int LFile::GetVolumeFileSizeLimit(const char* szPath) {
    port_statfs_t status;
    if (port_statfs(szPath, &status) != 0)
        return FileSizeLimitNone;
    char szName[LPathBufferSize];
    strlcpy(szName, status.f_fstypename, sizeof szName);
    strupr(szName);
    if (std::strcmp(szName, "EXFAT") == 0)
        strlcpy(szName, "exFAT", sizeof szName);
    for (const FileSizeClass& row : kFileSizeClasses)
        if (std::strcmp(szName, row.szName) == 0)
            return row.nLimit;
    return FileSizeLimitNone;
}

unsigned short LFile::GetVolumeFileSystemID(const char* szPath) {
    SInt16 nVolume = 0;
    FSVolumeInfo info{};
    if (!GetVolume(szPath, nVolume) ||
        FSGetVolumeInfo(nVolume, 0, nullptr, kFSVolInfoFSInfo, &info, nullptr, nullptr) != noErr)
        return FileSystemUnknown;
    return info.filesystemID;
}

unsigned int LFile::GetVolumeAttributes(const char* szPath) {
    SInt16 nVolume = 0;
    if (!GetVolume(szPath, nVolume))
        return 0;
    GetVolParmsInfoBuffer parameters{};
    HParamBlockRec block{};
    block.ioParam.ioVRefNum = nVolume;
    block.ioParam.ioBuffer = &parameters;
    block.ioParam.ioReqCount = sizeof parameters;
    return PBHGetVolParmsSync(&block) == noErr ? parameters.vMExtendedAttributes : 0;
}

bool LFile::IsNetworkPath(const char* szPath) {
    return IsNetwork(GetVolumeAttributes(szPath));
}

bool LFile::IsOnExternalDrive(const char* szPath) {
    return (GetVolumeAttributes(szPath) & kInternalBus) == 0;
}

bool LFile::IsOnRemovableMedia(const char* szPath) {
    const unsigned int dwAttributes = GetVolumeAttributes(szPath);
    return (dwAttributes & kInternalBus) == 0 || (dwAttributes & kRemovable) != 0;
}

bool LFile::IsOnLocalDrive(const char* szPath) {
    const unsigned short nIdentifier = GetVolumeFileSystemID(szPath);
    if (nIdentifier == FileSystemUnknown)
        return true;
    for (const unsigned short nRemote : kRemoteFileSystems)
        if (nIdentifier == nRemote)
            return false;
    return !IsNetworkPath(szPath);
}

int LFile::GetSizeFormattedBytes(unsigned long long qwBytes, char* szOut) {
    for (const SizeUnit& unit : kSizeUnits)
        if (qwBytes >> unit.nShift != 0 || unit.nShift == 0)
            return std::snprintf(szOut, LPathBufferSize, "%llu %s", qwBytes >> unit.nShift, unit.szName);
    return 0;
}
