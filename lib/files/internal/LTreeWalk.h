// A walk through a whole tree, by folder descriptors, that never follows a symbolic link and goes on past what
// fails. Internal to the file operations.
//
// Thread-safety: none.
#pragma once

#include <string>
#include <vector>

#include "files/internal/LFolderStack.h"

// What is done with the entries. Names are single components in the folder `nFolder`.
class LTreeVisitor {
public:
    // An entry that is no folder; `cType` is its type as the folder lists it (DT_REG, DT_LNK ...).
    virtual void VisitFile(int nFolder, const char* szName, unsigned char cType) = 0;
    // Before a folder is opened; false leaves it out.
    virtual bool EnterFolder(int nFolder, const char* szName) = 0;
    // Before the first of the folder's so many entries; `nError` tells why it could not be opened, or read to its
    // end, and is 0 otherwise.
    virtual void BeginFolder(std::size_t, int /*nError*/) {}
    // After the folder was left, or could not be opened.
    virtual void LeaveFolder(int nFolder, const char* szName) = 0;
    // Asked before every entry.
    virtual bool IsDone() const { return false; }

protected:
    ~LTreeVisitor() = default;
};

class LTreeWalk {
public:
    enum Result {
        Done,
        NotOpened, // the folder itself
        WayLost,   // the way back up: a folder was moved meanwhile
    };

    explicit LTreeWalk(LTreeVisitor& treeVisitor) : visitor(treeVisitor) {}

    // Walks everything below the folder `szName` in `nParent`; the folder itself is not visited. A link is not
    // entered unless `bFollow`. BeginFolder is called for the folder itself, too, unless it was not opened.
    Result Walk(int nParent, const char* szName, bool bFollow = false);

private:
    // The names that one folder had when it was opened, and how far the walk has come.
    struct Listing {
        std::string sNames; // for each entry its type, its name and a terminator
        std::size_t nEntries = 0;
        std::size_t nCurrent = 0;
        std::size_t nNext = 0;

        unsigned char GetType() const { return static_cast<unsigned char>(sNames[nCurrent]); }
        const char* GetName() const { return sNames.data() + nCurrent + 1; }
    };

    void _Open(const char* szName);
    void _Begin();
    bool _Step();
    static int _Read(int nFolder, Listing& listing);

    LTreeVisitor& visitor;
    LFolderStack folders;
    std::vector<Listing> loListings;
};
