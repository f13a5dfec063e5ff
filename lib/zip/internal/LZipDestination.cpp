#include "zip/internal/LZipDestination.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

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
    // True also where nobody can tell. A folder that is missing has none.
    bool Find(const char* szFolder) {
        const LTreeWalk::Result eResult = LTreeWalk(*this).Walk(AT_FDCWD, szFolder, true);
        if (eResult == LTreeWalk::NotOpened)
            return errno != ENOENT;
        return bFound || eResult != LTreeWalk::Done;
    }

    void VisitFile(int nFolder, const char* szName, unsigned char cType) override {
        struct stat status;
        bFound = cType == DT_LNK && fstatat(nFolder, szName, &status, 0) == 0 && S_ISDIR(status.st_mode);
    }
    bool EnterFolder(int, const char*) override { return true; }
    void BeginFolder(std::size_t nEntries, int nError) override {
        nNames += nEntries;
        bFound = nError != 0 || nNames > kMostNames;
    }
    void LeaveFolder(int, const char*) override {}
    bool IsDone() const override { return bFound; }

private:
    std::size_t nNames = 0;
    bool bFound = false;
};

// Walks a private folder and the destination side by side.
class SideBySide : public LTreeVisitor {
public:
    // False when something is in the way.
    bool Walk(const std::string& sPrivate, const std::string& sFolder) {
        return there.Push(AT_FDCWD, sFolder.c_str(), true) &&
               LTreeWalk(*this).Walk(AT_FDCWD, sPrivate.c_str()) == LTreeWalk::Done && bFree;
    }

    bool EnterFolder(int nFolder, const char* szName) override {
        struct stat status;
        if (fstatat(there.GetTop(), szName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            bFree = errno == ENOENT && Take(nFolder, szName) && bFree;
            return false;
        }
        // The archive may have closed its folder, whose own entries are still to be reached.
        if (fchmodat(nFolder, szName, kOwnerOnly, 0) == 0 && S_ISDIR(status.st_mode) &&
            there.Push(there.GetTop(), szName))
            return true;
        bFree = false;
        return false;
    }
    void BeginFolder(std::size_t, int nError) override { bFree = nError == 0 && bFree; }
    void LeaveFolder(int, const char*) override { bFree = there.Pop() && bFree; }
    bool IsDone() const override { return there.IsEmpty(); }

protected:
    ~SideBySide() = default;
    // A file, or a folder that the destination does not have.
    virtual bool Take(int nFolder, const char* szName) = 0;

    LFolderStack there;
    bool bFree = true;
};

class Check final : public SideBySide {
public:
    void VisitFile(int, const char*, unsigned char) override {}

private:
    bool Take(int, const char*) override { return true; }
};

class Move final : public SideBySide {
public:
    void VisitFile(int nFolder, const char* szName, unsigned char) override {
        bFree = Take(nFolder, szName) && bFree;
    }

private:
    bool Take(int nFolder, const char* szName) override {
        return renameat(nFolder, szName, there.GetTop(), szName) == 0;
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

bool LZipDestination::MoveIn() const {
    return sPath == sFolder || (Check().Walk(sPath, sFolder) && Move().Walk(sPath, sFolder));
}
