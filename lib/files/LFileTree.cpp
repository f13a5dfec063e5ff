// The operations on whole trees.
#include "files/LFile.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <port/files.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "files/internal/LNewFolder.h"
#include "files/internal/LTreeTarget.h"
#include "files/internal/LTreeWalk.h"

namespace {

constexpr mode_t kAllPermissions = 0777;

// A path as its parent's descriptor and its last name, so that the root of a tree is worked on like every
// entry below it. Separators at the end would make the system follow a link there.
class Root {
public:
    explicit Root(const char* szPath) : sName(szPath) {
        while (sName.size() > 1 && sName.back() == '/')
            sName.pop_back();
        const std::size_t nSlash = sName.rfind('/');
        if (nSlash == std::string::npos || sName.size() == 1)
            return;
        const std::string sParent = sName.substr(0, nSlash + 1);
        sName.erase(0, nSlash + 1);
        parent.reset(port_open(sParent.c_str(), O_SEARCH | O_DIRECTORY));
        bReachable = static_cast<bool>(parent);
    }

    bool IsReachable() const { return bReachable; }
    int GetParent() const { return parent ? parent.get() : AT_FDCWD; }
    const char* GetName() const { return sName.c_str(); }

private:
    std::string sName;
    port::UniqueFd parent;
    bool bReachable = true;
};

class Deletion final : public LTreeVisitor {
public:
    Deletion(bool bDescends, bool bTakesFlagsOff) : bDescend(bDescends), bClearFlags(bTakesFlagsOff) {}

    void VisitFile(int nFolder, const char* szName, unsigned char) override {
        if (unlinkat(nFolder, szName, 0) != 0 && bClearFlags && port_clear_file_flags(nFolder, szName))
            unlinkat(nFolder, szName, 0);
    }
    bool EnterFolder(int, const char*) override { return bDescend; }
    void LeaveFolder(int nFolder, const char* szName) override { unlinkat(nFolder, szName, AT_REMOVEDIR); }

private:
    const bool bDescend;
    const bool bClearFlags;
};

bool Delete(int nParent, const char* szName, Deletion deletion) {
    LTreeWalk(deletion).Walk(nParent, szName);
    return unlinkat(nParent, szName, AT_REMOVEDIR) == 0;
}

bool Delete(const char* szPath, const Deletion& deletion) {
    if (szPath[0] == '\0')
        return false;
    const Root root(szPath);
    return root.IsReachable() && Delete(root.GetParent(), root.GetName(), deletion);
}

// A link is never changed through, whatever takes the place of the entry meanwhile.
void AllowAll(int nFolder, const char* szName) {
    [[maybe_unused]] const int nIgnored = fchmodat(nFolder, szName, 0777, AT_SYMLINK_NOFOLLOW);
}

class Opening final : public LTreeVisitor {
public:
    void VisitFile(int nFolder, const char* szName, unsigned char cType) override {
        if (cType != DT_LNK)
            AllowAll(nFolder, szName);
    }
    // Before it is opened: it may be closed to us so far.
    bool EnterFolder(int nFolder, const char* szName) override {
        AllowAll(nFolder, szName);
        return true;
    }
    void LeaveFolder(int, const char*) override {}
};

// What was copied aside goes into a folder that others have made meanwhile: as a whole where there is nothing yet, else
// file by file.
class Moving final : public LTreeVisitor {
public:
    bool OpenTarget(int nParent, const char* szName) { return target.Open(nParent, szName, false); }

    void VisitFile(int nFolder, const char* szName, unsigned char) override {
        struct stat status;
        if (target.IsOpen() && (fstatat(target.GetTop(), szName, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
                                S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)))
            _Move(nFolder, szName);
    }
    bool EnterFolder(int nFolder, const char* szName) override {
        struct stat status;
        return target.IsOpen() && !_Move(nFolder, szName) &&
               fstatat(nFolder, szName, &status, AT_SYMLINK_NOFOLLOW) == 0 && target.Enter(szName, status);
    }
    void LeaveFolder(int, const char*) override {
        if (target.IsOpen())
            target.Leave();
    }

private:
    bool _Move(int nFolder, const char* szName) const {
        return renameat(nFolder, szName, target.GetTop(), szName) == 0;
    }

    LTreeTarget target;
};

// A folder that is missing in the target takes its name when it is whole; so what is below it need not be cared for one
// by one.
class Copying final : public LTreeVisitor {
public:
    // Into a folder that is made.
    bool MakeTarget(int nParent, const char* szName) {
        if (!newFolder.Make(nParent, szName))
            return false;
        if (target.Open(newFolder.GetParent(), newFolder.GetOwnName(), false))
            return _EnterNew();
        _GiveName();
        return false;
    }
    // Into a folder that is there, unless one was made.
    bool OpenTarget(const char* szTo) { return target.IsOpen() || target.Open(szTo); }
    // Behind the walk.
    void Finish() {
        if (newFolder.IsMade())
            _GiveName();
    }

    void VisitFile(int nFolder, const char* szName, unsigned char cType) override {
        if (!target.IsOpen())
            return;
        if (cType == DT_LNK)
            port_copy_link(nFolder, szName, target.GetTop(), szName);
        else if (cType == DT_REG)
            _CopyFile(nFolder, szName);
    }
    bool EnterFolder(int nFolder, const char* szName) override {
        struct stat status;
        if (!target.IsOpen() || fstatat(nFolder, szName, &status, AT_SYMLINK_NOFOLLOW) != 0)
            return false;
        if (newFolder.IsMade() || target.IsRoot(status) || !newFolder.Make(target.GetTop(), szName)) {
            const bool bEntered = target.Enter(szName, status);
            nLevelsOfNew += bEntered && newFolder.IsMade() ? 1 : 0;
            return bEntered;
        }
        if (target.Enter(newFolder.GetOwnName(), status))
            return _EnterNew();
        _GiveName();
        return false;
    }
    void LeaveFolder(int, const char*) override {
        if (target.IsOpen())
            target.Leave();
        if (newFolder.IsMade() && --nLevelsOfNew == 0)
            _GiveName();
    }

private:
    bool _EnterNew() {
        nLevelsOfNew = 1;
        nGranted = target.GetMode() & kAllPermissions;
        return true;
    }

    void _CopyFile(int nFolder, const char* szName) {
        const int nTarget = target.GetTop();
        if (!newFolder.IsMade() ||
            (!port_copy_new_file(nFolder, szName, nTarget, szName, nGranted) && errno == EEXIST))
            port_copy_file(nFolder, szName, nTarget, szName);
    }

    void _GiveName() {
        if (newFolder.TakeName())
            return;
        const int nParent = newFolder.GetParent();
        Moving moving;
        mkdirat(nParent, newFolder.GetName(), kAllPermissions);
        if (moving.OpenTarget(nParent, newFolder.GetName()))
            LTreeWalk(moving).Walk(nParent, newFolder.GetOwnName());
        Delete(nParent, newFolder.GetOwnName(), Deletion(true, false));
        newFolder.Forget();
    }

    LTreeTarget target;
    LNewFolder newFolder;
    unsigned long nLevelsOfNew = 0; // folders that the work is in, from the new one down
    mode_t nGranted = 0;
};

bool MakeTarget(const char* szTo, Copying& copying) {
    if (szTo[0] == '\0')
        return false;
    const Root root(szTo);
    return root.IsReachable() && copying.MakeTarget(root.GetParent(), root.GetName());
}

bool ReadsAsFolder(const char* szPath) {
    struct stat status;
    return stat(szPath, &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

bool LFile::DeleteFolderTree(const char* szPath) {
    return Delete(szPath, Deletion(true, false));
}

bool LFile::DeleteFolderTreeAlways(const char* szPath) {
    return Delete(szPath, Deletion(true, true));
}

bool LFile::DeleteFolderAndFiles(const char* szPath) {
    return Delete(szPath, Deletion(false, false));
}

void LFile::SetFolderSecurityAllAccess(const char* szPath) {
    const Root root(szPath);
    if (!root.IsReachable())
        return;
    AllowAll(root.GetParent(), root.GetName());
    Opening opening;
    LTreeWalk(opening).Walk(root.GetParent(), root.GetName());
}

void LFile::CopyFolderFiles(const char* szFrom, const char* szTo) {
    if (!ReadsAsFolder(szFrom))
        return;
    Copying copying;
    const bool bThere =
        ReadsAsFolder(szTo) || (_MakeParents(szTo) && MakeTarget(szTo, copying)) || CreateFolderTree(szTo);
    if (!bThere || !copying.OpenTarget(szTo))
        return;
    LTreeWalk(copying).Walk(AT_FDCWD, szFrom, true);
    copying.Finish();
}
