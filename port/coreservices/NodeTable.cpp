#include "coreservices/NodeTable.h"

#include <algorithm>
#include <port/bsd.h>
#include <string_view>

namespace port {
namespace {

// A name that no path component can take on, since "/" itself has none.
constexpr std::string_view kRootVolumeName = "System";

} // namespace

NodeTable& NodeTable::shared() {
    static NodeTable& table = *new NodeTable;
    return table;
}

NodeTable::NodeTable() {
    struct stat status = {};
    if (::stat("/", &status) != 0)
        status = {};
    nodes_.push_back({{status.st_dev, status.st_ino}, fsRtParID, std::string(kRootVolumeName)});
    ids_[nodes_[0].identity] = fsRtDirID;
    volumes_.push_back({status.st_dev, "/"});
}

OSErr NodeTable::find(const char* path, CatalogEntry& entry) {
    const std::lock_guard lock(mutex_);
    const std::string_view whole(path);
    std::string prefix("/");
    entry.id = fsRtDirID;
    struct stat status = {};
    if (::lstat("/", &status) != 0)
        return fnfErr;
    for (std::size_t begin = 1; begin < whole.size();) {
        const std::size_t end = std::min(whole.find('/', begin), whole.size());
        prefix.assign(whole, 0, end);
        if (::lstat(prefix.c_str(), &status) != 0)
            return fnfErr;
        const OSErr error = enter(status, entry.id, whole.substr(begin, end - begin), entry.id);
        if (error != noErr)
            return error;
        begin = end + 1;
    }
    describe(status, path, entry);
    return noErr;
}

OSErr NodeTable::find(SInt32 id, CatalogEntry& entry) {
    const std::lock_guard lock(mutex_);
    std::string path;
    struct stat status = {};
    if (!pathOf(id, path) || ::lstat(path.c_str(), &status) != 0 ||
        node(id).identity != Identity(status.st_dev, status.st_ino))
        return fnfErr;
    entry.id = id;
    describe(status, path.c_str(), entry);
    return noErr;
}

void NodeTable::describe(const struct stat& status, const char* path, CatalogEntry& entry) {
    entry.parent = node(entry.id).parent;
    entry.name = node(entry.id).name;
    entry.volume = volumeOf(status.st_dev, path);
    entry.isFolder = S_ISDIR(status.st_mode);
}

OSErr NodeTable::enter(const struct stat& status, SInt32 parent, std::string_view name, SInt32& id) {
    const Identity identity(status.st_dev, status.st_ino);
    if (const auto known = ids_.find(identity); known != ids_.end()) {
        id = known->second;
        if (id != fsRtDirID) {
            node(id).parent = parent;
            node(id).name = name;
        }
        return noErr;
    }
    if (nodes_.size() == kMaxNodes)
        return memFullErr;
    nodes_.push_back({identity, parent, std::string(name)});
    id = fsRtDirID + static_cast<SInt32>(nodes_.size() - 1);
    ids_[identity] = id;
    return noErr;
}

SInt16 NodeTable::volumeOf(dev_t device, const char* path) {
    auto place = std::find_if(volumes_.begin(), volumes_.end(),
                              [device](const Volume& volume) { return volume.device == device; });
    if (place == volumes_.end()) {
        port_statfs_t mount;
        const bool known = port_statfs(path, &mount) == 0;
        place = volumes_.insert(place, {device, known ? mount.f_mntonname : ""});
    }
    return static_cast<SInt16>(kRootVolume - (place - volumes_.begin()));
}

bool NodeTable::findVolume(SInt16 volume, std::string& mountPoint) {
    const std::lock_guard lock(mutex_);
    const int index = kRootVolume - volume;
    if (index < 0 || index >= static_cast<int>(volumes_.size()) ||
        volumes_[static_cast<std::size_t>(index)].mountPoint.empty())
        return false;
    mountPoint = volumes_[static_cast<std::size_t>(index)].mountPoint;
    return true;
}

// Parents may be out of date; what the limit ends is a path that has become a circle.
bool NodeTable::pathOf(SInt32 id, std::string& path) const {
    if (id < fsRtDirID || id - fsRtDirID >= static_cast<SInt32>(nodes_.size()))
        return false;
    for (; id != fsRtDirID && path.size() < kPortPathSize; id = node(id).parent)
        path.insert(0, node(id).name).insert(0, 1, '/');
    if (path.empty())
        path.push_back('/');
    return path.size() < kPortPathSize;
}

} // namespace port
