// The node ids of this process: each folder that is met, known by device and inode, has one. Files have none: only
// what is in a folder is looked up by an id.
//
// Thread-safety: all operations may be called on any thread. They ask the file system, but not under the table's
// lock: a file system that does not answer holds its own callers only.
#pragma once

#include <CoreServices/CoreServices.h>

#include <list>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unordered_map>
#include <utility>
#include <vector>

namespace port {

constexpr std::size_t kMaxNodes = 65536; // of the process's table

// One object of the catalogue.
struct CatalogEntry {
    SInt32 id = 0; // that of a folder
    SInt32 parent = fsRtParID;
    std::string name; // of "/" its volume's
};

class NodeTable {
public:
    // Forgets the folder that was met longest ago when there are more; at least as many as a path has.
    explicit NodeTable(std::size_t most);
    static NodeTable& shared();

    // The object at an absolute path without links; it, if it is a folder, and those above it get their ids.
    // fnfErr when it does not exist; `entry` is then unspecified.
    OSErr find(const char* path, CatalogEntry& entry);

    // The folder with an id that was handed out. fnfErr when there is none, when it was forgotten, or when it
    // is no longer where it was last met.
    OSErr find(SInt32 id, CatalogEntry& entry);

private:
    using Identity = std::pair<dev_t, ino_t>;

    struct Node {
        SInt32 id;
        Identity identity;
        SInt32 parent;
        std::string name;
    };
    using Nodes = std::list<Node>;

    // One component of a path.
    struct Step {
        Identity identity;
        bool isFolder;
        std::string name;
    };

    static Identity identityOf(const struct stat& status) { return {status.st_dev, status.st_ino}; }
    static bool walk(std::string_view path, std::vector<Step>& way);
    SInt32 enter(const Step& step, SInt32 parent);
    SInt32 freeId();
    bool pathOf(SInt32 id, std::string& path, Node& node);

    const std::size_t most_;
    Identity root_;
    std::mutex mutex_;
    SInt32 lastId_ = fsRtDirID;
    Nodes nodes_; // all but "/", the one that was met last in front
    std::unordered_map<SInt32, Nodes::iterator> ids_;
    std::map<Identity, Nodes::iterator> identities_;
};

} // namespace port
