// The operations on whole trees.
#include "files/LFile.h"

#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <port/files.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "files/internal/LTreeTarget.h"
#include "files/internal/LTreeWalk.h"

namespace {

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
    bool Remove() const { return bReachable && unlinkat(GetParent(), GetName(), AT_REMOVEDIR) == 0; }

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

bool Delete(const char* szPath, Deletion deletion) {
    if (szPath[0] == '\0')
        return false;
    const Root root(szPath);
    if (root.IsReachable())
        LTreeWalk(deletion).Walk(root.GetParent(), root.GetName());
    return root.Remove();
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

class Copying final : public LTreeVisitor {
public:
    bool OpenTarget(const char* szTo) { return target.Open(szTo); }

    void VisitFile(int nFolder, const char* szName, unsigned char cType) override {
        if (!target.IsOpen())
            return;
        if (cType == DT_LNK)
            port_copy_link(nFolder, szName, target.GetTop(), szName);
        else if (cType == DT_REG)
            port_copy_file(nFolder, szName, target.GetTop(), szName);
    }
    bool EnterFolder(int nFolder, const char* szName) override {
        struct stat status;
        return target.IsOpen() && fstatat(nFolder, szName, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
               target.Enter(szName, status);
    }
    void LeaveFolder(int, const char*) override {
        if (target.IsOpen())
            target.Leave();
    }

private:
    LTreeTarget target;
};

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
    if (!ReadsAsFolder(szFrom) || (!ReadsAsFolder(szTo) && !CreateFolderTree(szTo)))
        return;
    Copying copying;
    if (copying.OpenTarget(szTo))
        LTreeWalk(copying).Walk(AT_FDCWD, szFrom, true);
}
