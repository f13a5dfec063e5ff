#include "coreservices/Volumes.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <port/user.h>
#include <port/bsd.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "coreservices/NodeTable.h"
#include "host/SystemCalls.h"

namespace port {
namespace {

constexpr UInt32 kInternal = 1U << bIsOnInternalBus;
constexpr UInt32 kExternal = 1U << bIsOnExternalBus;
constexpr UInt32 kRemovable = 1U << bIsRemovable;
constexpr UInt16 kUnknownFileSystem = 0xFFFF;
constexpr UInt16 kRemoteFileSystem = 25461;

constexpr std::string_view kNetworkTypes[] = {"nfs",  "nfs4", "cifs",  "smb3", "9p",
                                              "ceph", "afs",  "ncpfs", "coda"};
constexpr std::string_view kNetworkFuseTypes[] = {"fuse.sshfs", "fuse.rclone", "fuse.s3fs", "fuse.davfs",
                                                  "fuse.gvfsd-fuse"};
constexpr std::string_view kExternalBuses[] = {"/usb", "/firewire", "/thunderbolt"};

template <std::size_t Count>
bool contains(const std::string_view (&list)[Count], std::string_view wanted) {
    for (const std::string_view entry : list)
        if (entry == wanted)
            return true;
    return false;
}

// True when the first byte of the file is '1'.
bool saysYes(const std::string& path) {
    const UniqueFd file(sys::open(path.c_str(), O_RDONLY));
    char answer = '0';
    return file && sys::read(file.get(), &answer, 1) == 1 && answer == '1';
}

// Where the block device hangs in the machine; empty for what has none.
std::string blockDevicePath(dev_t device) {
    char link[64];
    char path[PATH_MAX];
    std::snprintf(link, sizeof link, "/sys/dev/block/%u:%u", major(device), minor(device));
    return ::realpath(link, path) != nullptr ? path : "";
}

// A partition asks the disk that it is a part of.
bool isRemovable(const std::string& devicePath) {
    if (devicePath.empty())
        return false;
    return saysYes(devicePath + "/removable") || saysYes(devicePath + "/../removable");
}

} // namespace

bool isNetworkType(std::string_view type) {
    return contains(kNetworkTypes, type) || contains(kNetworkFuseTypes, type);
}

UInt32 volumeAttributes(std::string_view type, std::string_view devicePath, bool removable) {
    if (isNetworkType(type))
        return 0;
    UInt32 attributes = removable ? kRemovable : 0;
    for (const std::string_view bus : kExternalBuses)
        if (devicePath.find(bus) != std::string_view::npos)
            return attributes | kExternal;
    return attributes | kInternal;
}

UInt16 fileSystemIdentifier(std::string_view type, std::uint64_t kernelType) {
    if (contains(kNetworkFuseTypes, type))
        return kRemoteFileSystem;
    const auto low = static_cast<UInt16>(kernelType & 0xFFFF);
    return low == kUnknownFileSystem ? kUnknownFileSystem - 1 : low;
}

} // namespace port

OSErr FSGetVolumeInfo(SInt16 volume, UInt32 index, SInt16* actualVolume, UInt32 which, FSVolumeInfo* info,
                      HFSUniStr255* name, FSRef* root) {
    if (index != 0 || actualVolume != nullptr || name != nullptr || root != nullptr ||
        which != kFSVolInfoFSInfo)
        return paramErr;
    std::string mountPoint;
    port_statfs_t mount;
    struct statfs status = {};
    if (!port::NodeTable::shared().findVolume(volume, mountPoint) ||
        port_statfs(mountPoint.c_str(), &mount) != 0 || ::statfs(mountPoint.c_str(), &status) != 0)
        return nsvErr;
    info->filesystemID =
        port::fileSystemIdentifier(mount.f_fstypename, static_cast<std::uint64_t>(status.f_type));
    return noErr;
}

OSErr PBHGetVolParmsSync(HParamBlockRec* block) {
    HIOParam& parameters = block->ioParam;
    std::string mountPoint;
    port_statfs_t mount;
    struct stat status = {};
    if (!port::NodeTable::shared().findVolume(parameters.ioVRefNum, mountPoint) ||
        port_statfs(mountPoint.c_str(), &mount) != 0 || ::stat(mountPoint.c_str(), &status) != 0)
        return nsvErr;
    const std::string devicePath = port::blockDevicePath(status.st_dev);
    GetVolParmsInfoBuffer answer = {};
    answer.vMVersion = 4;
    answer.vMExtendedAttributes =
        port::volumeAttributes(mount.f_fstypename, devicePath, port::isRemovable(devicePath));
    const std::size_t wanted =
        parameters.ioReqCount > 0 ? static_cast<std::size_t>(parameters.ioReqCount) : 0;
    parameters.ioActCount = static_cast<SInt32>(std::min(wanted, sizeof answer));
    std::memcpy(parameters.ioBuffer, &answer, static_cast<std::size_t>(parameters.ioActCount));
    return noErr;
}

OSErr FSFindFolder(SInt16 volume, OSType folderType, Boolean, FSRef* found) {
    if (volume != kOnSystemDisk || folderType != kVolumesFolderType)
        return fnfErr;
    const auto user = port::userEntry(::getuid());
    if (!user)
        return fnfErr;
    for (const char* parent : {"/run/media/", "/media/"}) {
        const std::string path = parent + user->name;
        Boolean isFolder = false;
        if (FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), found, &isFolder) == noErr &&
            isFolder)
            return noErr;
    }
    return fnfErr;
}
