#include "coreservices/NodeTable.h"
#include "coreservices/VolumeNumbers.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <port/files.h>
#include <sys/stat.h>

static_assert(kPortPathSize >= PATH_MAX, "realpath writes up to PATH_MAX bytes");

namespace port {
namespace {

constexpr FSCatalogInfoBitmap kIds = kFSCatInfoParentDirID | kFSCatInfoNodeID;

bool makePascalString(const std::string& text, unsigned char* out, std::size_t size) {
    if (text.size() > size - 1)
        return false;
    out[0] = static_cast<unsigned char>(text.size());
    text.copy(reinterpret_cast<char*>(out + 1), text.size());
    return true;
}

// What is asked of an object.
struct Answer {
    bool isFolder = false;
    SInt16 volume = 0;
    CatalogEntry entry;
};

// Asks for what is wanted only. A volume that cannot be told has a number all the same, and no answers.
OSErr ask(const FSRef& ref, FSCatalogInfoBitmap which, Answer& answer) {
    struct stat status = {};
    if (::lstat(ref.path, &status) != 0 || status.st_dev != ref.device || status.st_ino != ref.inode)
        return fnfErr;
    answer.isFolder = S_ISDIR(status.st_mode);
    if ((which & kFSCatInfoVolume) != 0) {
        port_statfs_t mount;
        port_statfs(ref.path, &mount);
        answer.volume = VolumeNumbers::shared().numberOf(mount.f_mntonname);
    }
    return (which & kIds) != 0 ? NodeTable::shared().find(ref.path, answer.entry) : noErr;
}

void fillInfo(const Answer& answer, FSCatalogInfoBitmap which, FSCatalogInfo& info) {
    if ((which & kFSCatInfoNodeFlags) != 0)
        info.nodeFlags = answer.isFolder ? kFSNodeIsDirectoryMask : UInt16{0};
    if ((which & kFSCatInfoVolume) != 0)
        info.volume = answer.volume;
    if ((which & kFSCatInfoParentDirID) != 0)
        info.parentDirID = static_cast<UInt32>(answer.entry.parent);
    if ((which & kFSCatInfoNodeID) != 0)
        info.nodeID = static_cast<UInt32>(answer.entry.id);
}

} // namespace
} // namespace port

OSStatus FSPathMakeRef(const UInt8* path, FSRef* ref, Boolean* isDirectory) {
    FSRef found = {};
    struct stat status = {};
    if (::realpath(reinterpret_cast<const char*>(path), found.path) == nullptr ||
        ::lstat(found.path, &status) != 0)
        return fnfErr;
    found.device = status.st_dev;
    found.inode = status.st_ino;
    *ref = found;
    if (isDirectory != nullptr)
        *isDirectory = S_ISDIR(status.st_mode);
    return noErr;
}

OSStatus FSRefMakePath(const FSRef* ref, UInt8* path, UInt32 pathSize) {
    char* const out = reinterpret_cast<char*>(path);
    if (strlcpy(out, ref->path, pathSize) < pathSize)
        return noErr;
    if (pathSize != 0)
        out[0] = '\0';
    return pathTooLongErr;
}

Boolean CFURLGetFSRef(CFURLRef url, FSRef* ref) {
    UInt8 path[kPortPathSize];
    return CFURLGetFileSystemRepresentation(url, true, path, sizeof path) &&
           FSPathMakeRef(path, ref, nullptr) == noErr;
}

OSErr FSGetCatalogInfo(const FSRef* ref, FSCatalogInfoBitmap which, FSCatalogInfo* info, HFSUniStr255* name,
                       FSSpec* spec, FSRef* parent) {
    if (name != nullptr || parent != nullptr)
        return paramErr;
    port::Answer answer;
    const OSErr error = port::ask(*ref, spec == nullptr ? which : ~0U, answer);
    if (error != noErr)
        return error;
    if (spec != nullptr) {
        if (!port::makePascalString(answer.entry.name, spec->name, sizeof spec->name))
            return bdNamErr;
        spec->vRefNum = answer.volume;
        spec->parID = answer.entry.parent;
    }
    if (info != nullptr)
        port::fillInfo(answer, which, *info);
    return noErr;
}

OSErr PBGetCatInfoSync(CInfoPBRec* block) {
    DirInfo& folder = block->dirInfo;
    if (folder.ioFDirIndex != -1)
        return paramErr;
    port::CatalogEntry entry;
    const OSErr error = port::NodeTable::shared().find(folder.ioDrDirID, entry);
    if (error != noErr)
        return error;
    if (folder.ioNamePtr != nullptr && !port::makePascalString(entry.name, folder.ioNamePtr, sizeof(Str255)))
        return bdNamErr;
    folder.ioDrParID = entry.parent;
    return noErr;
}

OSStatus FSCopyObjectSync(const FSRef* source, const FSRef* folder, CFStringRef name, FSRef* target,
                          UInt32 options) {
    char newName[NAME_MAX + 1];
    struct stat status = {};
    if (!CFStringGetCString(name, newName, sizeof newName, kCFStringEncodingUTF8) || newName[0] == '\0' ||
        std::strchr(newName, '/') != nullptr)
        return bdNamErr;
    const port::UniqueFd into(::open(folder->path, O_SEARCH | O_DIRECTORY | O_CLOEXEC));
    if (!into || ::lstat(source->path, &status) != 0)
        return fnfErr;
    if (!S_ISREG(status.st_mode))
        return paramErr;
    if ((options & kFSFileOperationOverwrite) == 0 &&
        ::fstatat(into.get(), newName, &status, AT_SYMLINK_NOFOLLOW) == 0)
        return dupFNErr;
    if (!port_copy_file(AT_FDCWD, source->path, into.get(), newName))
        return ioErr;
    const std::string path = std::string(folder->path) + "/" + newName;
    return target == nullptr ? noErr
                             : FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), target, nullptr);
}
