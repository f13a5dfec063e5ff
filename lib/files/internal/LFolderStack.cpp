#include "files/internal/LFolderStack.h"

#include <fcntl.h>
#include <port/bsd.h>
#include <sys/stat.h>
#include <utility>

namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NONBLOCK;

} // namespace

bool LFolderStack::Push(int nParent, const char* szName, bool bFollow) {
    const int nAbove = IsEmpty() ? nParent : GetTop();
    Level level{port::UniqueFd(port_openat(nAbove, szName, kOpenFolder | (bFollow ? 0 : O_NOFOLLOW))), 0, 0,
                0};
    struct stat status;
    if (!level.folder || fstat(level.folder.get(), &status) != 0)
        return false;
    level.device = status.st_dev;
    level.inode = status.st_ino;
    level.mode = status.st_mode;
    loLevels.push_back(std::move(level));
    if (loLevels.size() > kMostOpen)
        loLevels[loLevels.size() - kMostOpen - 1].folder.reset();
    return true;
}

bool LFolderStack::Pop() {
    const Level left = std::move(loLevels.back());
    loLevels.pop_back();
    if (IsEmpty() || loLevels.back().folder || _Reopen(loLevels.back(), left.folder.get()))
        return true;
    loLevels.clear();
    return false;
}

// The way up is only taken when it leads to the folder that it came from.
bool LFolderStack::_Reopen(Level& level, int nChild) const {
    port::UniqueFd folder(port_openat(nChild, "..", kOpenFolder | O_NOFOLLOW));
    struct stat status;
    if (!folder || fstat(folder.get(), &status) != 0 || status.st_dev != level.device ||
        status.st_ino != level.inode)
        return false;
    level.folder = std::move(folder);
    return true;
}
