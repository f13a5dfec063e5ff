#include "coreservices/NodeTable.h"

#include <algorithm>
#include <limits>
#include <string_view>

namespace port {
namespace {

// A name that no path component can take on, since "/" itself has none.
constexpr std::string_view kRootVolumeName = "System";

} // namespace

NodeTable::NodeTable(std::size_t most) : most_(most) {
    struct stat status = {};
    ::lstat("/", &status);
    root_ = identityOf(status);
}

NodeTable& NodeTable::shared() {
    static NodeTable& table = *new NodeTable(kMaxNodes);
    return table;
}

bool NodeTable::walk(std::string_view path, std::vector<Step>& way) {
    for (std::size_t begin = 1; begin < path.size();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        struct stat status = {};
        if (::lstat(std::string(path.substr(0, end)).c_str(), &status) != 0)
            return false;
        way.push_back(
            {identityOf(status), S_ISDIR(status.st_mode), std::string(path.substr(begin, end - begin))});
        begin = end + 1;
    }
    return true;
}

OSErr NodeTable::find(const char* path, CatalogEntry& entry) {
    std::vector<Step> way;
    if (!walk(path, way))
        return fnfErr;
    entry = {fsRtDirID, fsRtParID, std::string(kRootVolumeName)};
    const std::lock_guard lock(mutex_);
    for (const Step& step : way)
        entry = {step.isFolder ? enter(step, entry.id) : 0, entry.id, step.name};
    return noErr;
}

OSErr NodeTable::find(SInt32 id, CatalogEntry& entry) {
    std::string path;
    Node node{fsRtDirID, root_, fsRtParID, std::string(kRootVolumeName)};
    struct stat status = {};
    if (!pathOf(id, path, node) || ::lstat(path.c_str(), &status) != 0 || node.identity != identityOf(status))
        return fnfErr;
    entry = {id, node.parent, node.name};
    return noErr;
}

SInt32 NodeTable::enter(const Step& step, SInt32 parent) {
    if (step.identity == root_)
        return fsRtDirID;
    if (const auto known = identities_.find(step.identity); known != identities_.end()) {
        const auto node = known->second;
        nodes_.splice(nodes_.begin(), nodes_, node);
        node->parent = parent;
        node->name = step.name;
        return node->id;
    }
    if (nodes_.size() == most_) {
        ids_.erase(nodes_.back().id);
        identities_.erase(nodes_.back().identity);
        nodes_.pop_back();
    }
    nodes_.push_front({freeId(), step.identity, parent, step.name});
    ids_[nodes_.front().id] = identities_[step.identity] = nodes_.begin();
    return nodes_.front().id;
}

// Not one that was forgotten, as long as there are others.
SInt32 NodeTable::freeId() {
    do
        lastId_ = lastId_ == std::numeric_limits<SInt32>::max() ? fsRtDirID + 1 : lastId_ + 1;
    while (ids_.contains(lastId_));
    return lastId_;
}

// Parents may be out of date; what the limit ends is a path that has become a circle. `node` stays as it is for "/".
bool NodeTable::pathOf(SInt32 id, std::string& path, Node& node) {
    const std::lock_guard lock(mutex_);
    for (SInt32 step = id; step != fsRtDirID && path.size() < kPortPathSize;) {
        const auto known = ids_.find(step);
        if (known == ids_.end())
            return false;
        if (step == id)
            node = *known->second;
        path.insert(0, known->second->name).insert(0, 1, '/');
        step = known->second->parent;
    }
    if (path.empty())
        path.push_back('/');
    return path.size() < kPortPathSize;
}

} // namespace port
