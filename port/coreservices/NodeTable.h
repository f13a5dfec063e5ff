// The node ids of this process: each file or folder, known by device and inode, has one, and each volume a
// reference number.
//
// Thread-safety: all operations may be called on any thread; they ask the file system under the table's lock.
#pragma once

#include <CoreServices/CoreServices.h>

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace port {

constexpr std::size_t kMaxNodes = 65536; // handed out by one process
constexpr SInt16 kRootVolume = -100;     // further volumes count down from it

// One object of the catalogue.
struct CatalogEntry {
    SInt32 id = 0;
    SInt32 parent = fsRtParID;
    SInt16 volume = kRootVolume;
    bool isFolder = false;
    std::string name; // of "/" its volume's
};

class NodeTable {
public:
    static NodeTable& shared();

    // The object at an absolute path without links; it and the folders above it get their ids. fnfErr when it
    // does not exist, memFullErr when there are no ids left; `entry` is then unspecified.
    OSErr find(const char* path, CatalogEntry& entry);

    // The object with an id that was handed out. fnfErr when there is none, or when it is no longer where it
    // was last found.
    OSErr find(SInt32 id, CatalogEntry& entry);

    // Where the volume with a number that was told is mounted. False when there is no such number.
    bool findVolume(SInt16 volume, std::string& mountPoint);

private:
    using Identity = std::pair<dev_t, ino_t>;

    struct Node {
        Identity identity;
        SInt32 parent;
        std::string name;
    };

    struct Volume {
        dev_t device;
        std::string mountPoint; // empty when the system could not tell
    };

    NodeTable();
    OSErr enter(const struct stat& status, SInt32 parent, std::string_view name, SInt32& id);
    void describe(const struct stat& status, const char* path, CatalogEntry& entry); // of the node entry.id
    SInt16 volumeOf(dev_t device, const char* path);
    bool pathOf(SInt32 id, std::string& path) const;
    Node& node(SInt32 id) { return nodes_[static_cast<std::size_t>(id - fsRtDirID)]; }
    const Node& node(SInt32 id) const { return nodes_[static_cast<std::size_t>(id - fsRtDirID)]; }

    std::mutex mutex_;
    std::vector<Node> nodes_; // that of id n at n - fsRtDirID
    std::map<Identity, SInt32> ids_;
    std::vector<Volume> volumes_; // that of the number kRootVolume - n at n
};

} // namespace port
