#include "zip/internal/LZipDestination.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files/LFile.h"
#include "files/internal/LFolderStack.h"
#include "files/internal/LTreeWalk.h"

namespace {

constexpr char kPrivateName[] = "/.extract-XXXXXX";
constexpr std::size_t kMostNames = 65536; // looked through
constexpr mode_t kOwnerOnly = 0700;

// Looks for links that lead to folders.
class LinkSearch final : public LTreeVisitor {
public:
    // True also where nobody can tell.
    bool Find(const char* szFolder) {
        LTreeWalk(*this).Walk(AT_FDCWD, szFolder, true);
        return bFound;
    }

    void VisitFile(int nFolder, const char* szName, unsigned char cType) override {
        struct stat status;
        _Count();
        if (!bFound && cType == DT_LNK)
            bFound = fstatat(nFolder, szName, &status, 0) == 0 && S_ISDIR(status.st_mode);
    }
    bool EnterFolder(int nFolder, const char* szName) override {
        _Count();
        bFound = bFound || faccessat(nFolder, szName, R_OK | X_OK, AT_EACCESS) != 0;
        return !bFound;
    }
    void LeaveFolder(int, const char*) override {}

private:
    void _Count() { bFound = bFound || ++nNames > kMostNames; }

    std::size_t nNames = 0;
    bool bFound = false;
};

// Walks a private folder and the destination side by side.
class SideBySide : public LTreeVisitor {
public:
    // False when something is in the way.
    bool Walk(const std::string& sPrivate, const std::string& sFolder) {
        if (!there.Push(AT_FDCWD, sFolder.c_str(), true))
            return false;
        LTreeWalk(*this).Walk(AT_FDCWD, sPrivate.c_str());
        return bFree;
    }

    bool EnterFolder(int nFolder, const char* szName) override {
        struct stat status;
        if (there.IsEmpty())
            return false;
        if (fstatat(there.GetTop(), szName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            bFree = errno == ENOENT && TakeFolder(nFolder, szName) && bFree;
            return false;
        }
        // The archive may have closed its folder, whose own entries are still to be reached.
        if (fchmodat(nFolder, szName, kOwnerOnly, 0) == 0 && S_ISDIR(status.st_mode) &&
            there.Push(there.GetTop(), szName))
            return true;
        bFree = false;
        return false;
    }
    void LeaveFolder(int, const char*) override { bFree = !there.IsEmpty() && there.Pop() && bFree; }

protected:
    ~SideBySide() = default;
    // A folder that the destination does not have.
    virtual bool TakeFolder(int nFolder, const char* szName) = 0;

    LFolderStack there;
    bool bFree = true;
};

class Check final : public SideBySide {
public:
    void VisitFile(int, const char*, unsigned char) override {}

private:
    bool TakeFolder(int, const char*) override { return true; }
};

class Move final : public SideBySide {
public:
    void VisitFile(int nFolder, const char* szName, unsigned char) override {
        bFree = TakeFolder(nFolder, szName) && bFree;
    }
    // A folder that could not be read, or not to its end, is not empty.
    void LeaveFolder(int nFolder, const char* szName) override {
        SideBySide::LeaveFolder(nFolder, szName);
        bFree = unlinkat(nFolder, szName, AT_REMOVEDIR) == 0 && bFree;
    }

private:
    bool TakeFolder(int nFolder, const char* szName) override {
        return !there.IsEmpty() && renameat(nFolder, szName, there.GetTop(), szName) == 0;
    }
};

} // namespace

LZipDestination::LZipDestination(const char* szFolder) : sFolder(szFolder), sPath(szFolder) {
    if (!LinkSearch().Find(szFolder))
        return;
    sPath += kPrivateName;
    if (mkdtemp(sPath.data()) == nullptr)
        sPath.clear();
}

LZipDestination::~LZipDestination() {
    if (!sPath.empty() && sPath != sFolder)
        LFile::DeleteFolderTreeAlways(sPath.c_str());
}

// What was not walked through is still there.
bool LZipDestination::MoveIn() const {
    if (sPath == sFolder)
        return true;
    return Check().Walk(sPath, sFolder) && Move().Walk(sPath, sFolder) && rmdir(sPath.c_str()) == 0;
}
