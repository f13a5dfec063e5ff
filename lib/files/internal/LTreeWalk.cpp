#include "files/internal/LTreeWalk.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool IsSelfOrParent(const char* szName) {
    return std::strcmp(szName, ".") == 0 || std::strcmp(szName, "..") == 0;
}

// Some file systems do not list the types.
unsigned char TypeOf(int nFolder, const dirent& entry) {
    struct stat status;
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type;
    return fstatat(nFolder, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0
               ? static_cast<unsigned char>(IFTODT(status.st_mode))
               : static_cast<unsigned char>(DT_REG);
}

} // namespace

// Read as a whole before the work begins: what the work adds to the folder or takes out of it does not
// disturb the walk, and the folder need not stay open while deeper ones are worked on.
// Returns why the listing is not whole, or 0.
int LTreeWalk::_Read(int nFolder, Listing& listing) {
    const int nOwn = fcntl(nFolder, F_DUPFD_CLOEXEC, 0);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(nOwn >= 0 ? fdopendir(nOwn) : nullptr, closedir);
    if (stream == nullptr) {
        const int nError = errno;
        if (nOwn >= 0)
            close(nOwn);
        return nError;
    }
    for (;;) {
        errno = 0;
        const dirent* const pEntry = readdir(stream.get());
        if (pEntry == nullptr)
            return errno;
        if (IsSelfOrParent(pEntry->d_name))
            continue;
        listing.sNames.push_back(static_cast<char>(TypeOf(nFolder, *pEntry)));
        listing.sNames.append(pEntry->d_name, std::strlen(pEntry->d_name) + 1);
        ++listing.nEntries;
    }
}

LTreeWalk::Result LTreeWalk::Walk(int nParent, const char* szName, bool bFollow) {
    if (!folders.Push(nParent, szName, bFollow))
        return NotOpened;
    _Begin();
    while (!loListings.empty() && !visitor.IsDone())
        if (!_Step())
            return WayLost;
    return Done;
}

void LTreeWalk::_Begin() {
    Listing& listing = loListings.emplace_back();
    const int nError = _Read(folders.GetTop(), listing);
    visitor.BeginFolder(listing.nEntries, nError);
}

// One entry, or the way back up. False when that is lost.
bool LTreeWalk::_Step() {
    Listing& listing = loListings.back();
    if (listing.nNext == listing.sNames.size()) {
        loListings.pop_back();
        if (!folders.Pop())
            return false;
        if (!loListings.empty())
            visitor.LeaveFolder(folders.GetTop(), loListings.back().GetName());
        return true;
    }
    listing.nCurrent = listing.nNext;
    listing.nNext += std::strlen(listing.GetName()) + 2;
    if (listing.GetType() == DT_DIR)
        _Open(listing.GetName());
    else
        visitor.VisitFile(folders.GetTop(), listing.GetName(), listing.GetType());
    return true;
}

void LTreeWalk::_Open(const char* szName) {
    const int nFolder = folders.GetTop();
    if (!visitor.EnterFolder(nFolder, szName))
        return;
    if (folders.Push(nFolder, szName)) {
        _Begin();
        return;
    }
    visitor.BeginFolder(0, errno);
    visitor.LeaveFolder(nFolder, szName);
}
