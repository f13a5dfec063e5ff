// The chain of open folders from the root of a tree down to the one that is being worked on. Everything is
// reached by descriptor and name, so nobody who moves folders or swaps one for a link meanwhile can lead the
// work out of the tree. Internal to the file operations.
//
// Thread-safety: none.
#pragma once

#include <cstddef>
#include <port/UniqueFd.h>
#include <sys/types.h>
#include <vector>

class LFolderStack {
public:
    // Folders kept open at most: a deeper tree reopens its upper folders on the way back.
    static constexpr std::size_t kMostOpen = 64;

    bool IsEmpty() const { return loLevels.empty(); }
    std::size_t GetDepth() const { return loLevels.size(); }
    // The descriptor of the lowest folder.
    int GetTop() const { return loLevels.back().folder.get(); }

    // Opens a folder below the lowest one, or, when the stack is empty, below `nParent`. A symbolic link is not
    // entered unless `bFollow`. False when it cannot be opened; the stack is then unchanged.
    bool Push(int nParent, const char* szName, bool bFollow = false);

    // Leaves the lowest folder. False when the folder above cannot be reached any more, because it was moved:
    // the stack is then empty.
    bool Pop();

    dev_t GetDevice() const { return loLevels.back().device; }
    ino_t GetInode() const { return loLevels.back().inode; }
    // Type and permissions.
    mode_t GetMode() const { return loLevels.back().mode; }

private:
    struct Level {
        port::UniqueFd folder;
        dev_t device;
        ino_t inode;
        mode_t mode;
    };

    bool _Reopen(Level& level, int nChild) const;

    std::vector<Level> loLevels;
};
