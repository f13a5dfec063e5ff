#include "coreservices/Volumes.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <port/UniqueFd.h>
#include <port/user.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <vector>

#include "coreservices/VolumeNumbers.h"
#include "host/SystemCalls.h"

namespace port {
namespace {

constexpr UInt32 kInternal = 1U << bIsOnInternalBus;
constexpr UInt32 kExternal = 1U << bIsOnExternalBus;
constexpr UInt32 kRemovable = 1U << bIsRemovable;
constexpr UInt16 kUnknownFileSystem = 0xFFFF;
constexpr UInt16 kRemoteFileSystem = 25461;

constexpr unsigned kMaxLayers = 8; // of devices that stand on others
constexpr std::size_t kMaxDisks = 64;

// As the system's table of mounts calls them; those in user space behind kFuse.
constexpr std::string_view kNetworkTypes[] = {
    "9p",    "afs", "beegfs", "beegfs_nodev", "ceph",  "cifs", "coda",  "glusterfs", "gpfs",     "lustre",
    "ncpfs", "nfs", "nfs4",   "prl_fs",       "pvfs2", "smb3", "smbfs", "vboxsf",    "virtiofs", "wekafs"};
constexpr std::string_view kFuse = "fuse";
constexpr std::string_view kNetworkFuseTypes[] = {
    "afpfs",    "blobfuse",  "blobfuse2", "ceph",      "ceph-fuse",  "curlftpfs",  "cvmfs2",
    "davfs",    "fuse_dfs",  "gcsfuse",   "glusterfs", "goofys",     "gvfsd-fuse", "juicefs",
    "kio-fuse", "lizardfs",  "mfs",       "moosefs",   "mount-s3",   "rclone",     "s3fs",
    "saunafs",  "seaweedfs", "smbnetfs",  "sshfs",     "vmhgfs-fuse"};
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
    return saysYes(devicePath + "/removable") || saysYes(devicePath + "/../removable");
}

bool isExternal(const std::string& devicePath) {
    return std::any_of(std::begin(kExternalBuses), std::end(kExternalBuses),
                       [&](std::string_view bus) { return devicePath.find(bus) != std::string::npos; });
}

// Adds the devices that the device stands on, or itself when it is a disk of its own, or a part of one.
void addDisks(const std::string& devicePath, unsigned layers, std::vector<std::string>& disks) {
    const std::size_t before = disks.size();
    for (const std::string& folder : {devicePath + "/slaves/", devicePath + "/../slaves/"}) {
        const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder.c_str()), ::closedir);
        while (const dirent* entry =
                   open && layers != 0 && disks.size() < kMaxDisks ? ::readdir(open.get()) : nullptr) {
            char path[PATH_MAX];
            if (entry->d_name[0] != '.' && ::realpath((folder + entry->d_name).c_str(), path) != nullptr)
                addDisks(path, layers - 1, disks);
        }
    }
    if (disks.size() == before)
        disks.push_back(devicePath);
}

// Some file systems have no device of their own for the system, only one that they were mounted from.
std::string devicePathOf(const port_statfs_t& mount, dev_t device) {
    struct stat source = {};
    std::string path = blockDevicePath(device);
    if (path.empty() && mount.f_mntfromname[0] == '/' && ::stat(mount.f_mntfromname, &source) == 0 &&
        S_ISBLK(source.st_mode))
        path = blockDevicePath(source.st_rdev);
    return path;
}

// One without a name of its own tells by what it was mounted from: "host:folder" or an address.
bool isNetworkFuse(const port_statfs_t& mount) {
    std::string_view type = mount.f_fstypename;
    if (!type.starts_with(kFuse))
        return false;
    type.remove_prefix(kFuse.size());
    return type.empty() ? std::strchr(mount.f_mntfromname, ':') != nullptr
                        : type.front() == '.' && contains(kNetworkFuseTypes, type.substr(1));
}

bool isNetwork(const port_statfs_t& mount) {
    return contains(kNetworkTypes, mount.f_fstypename) || isNetworkFuse(mount);
}

// The volume with a number that was told, as it is now.
bool findVolume(SInt16 number, std::string& mountPoint, port_statfs_t& mount) {
    return VolumeNumbers::shared().find(number, mountPoint) && port_statfs(mountPoint.c_str(), &mount) == 0 &&
           mountPoint == mount.f_mntonname;
}

} // namespace

UInt32 volumeAttributes(const port_statfs_t& mount, const std::string& devicePath) {
    if (isNetwork(mount))
        return 0;
    std::vector<std::string> disks;
    if (!devicePath.empty())
        addDisks(devicePath, kMaxLayers, disks);
    return (std::any_of(disks.begin(), disks.end(), isRemovable) ? kRemovable : 0) |
           (std::any_of(disks.begin(), disks.end(), isExternal) ? kExternal : kInternal);
}

UInt16 fileSystemIdentifier(const port_statfs_t& mount, std::uint64_t kernelType) {
    if (isNetworkFuse(mount))
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
    if (!port::findVolume(volume, mountPoint, mount) || ::statfs(mountPoint.c_str(), &status) != 0)
        return nsvErr;
    info->filesystemID = port::fileSystemIdentifier(mount, static_cast<std::uint64_t>(status.f_type));
    return noErr;
}

OSErr PBHGetVolParmsSync(HParamBlockRec* block) {
    HIOParam& parameters = block->ioParam;
    std::string mountPoint;
    port_statfs_t mount;
    struct stat status = {};
    if (!port::findVolume(parameters.ioVRefNum, mountPoint, mount) ||
        ::stat(mountPoint.c_str(), &status) != 0)
        return nsvErr;
    GetVolParmsInfoBuffer answer = {};
    answer.vMVersion = 4;
    answer.vMExtendedAttributes = port::volumeAttributes(mount, port::devicePathOf(mount, status.st_dev));
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
        const std::string path = std::string(parent) + user->pw_name;
        Boolean isFolder = false;
        if (FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), found, &isFolder) == noErr &&
            isFolder)
            return noErr;
    }
    return fnfErr;
}
