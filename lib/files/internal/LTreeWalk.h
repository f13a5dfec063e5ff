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
    // After the folder was left, or could not be opened.
    virtual void LeaveFolder(int nFolder, const char* szName) = 0;

protected:
    ~LTreeVisitor() = default;
};

class LTreeWalk {
public:
    explicit LTreeWalk(LTreeVisitor& treeVisitor) : visitor(treeVisitor) {}

    // Walks everything below the folder `szName` in `nParent`; the folder itself is not visited. A link is not
    // entered unless `bFollow`. False when the folder could not be opened, or the way back up was lost.
    bool Walk(int nParent, const char* szName, bool bFollow = false);

private:
    // The names that one folder had when it was opened, and how far the walk has come.
    struct Listing {
        std::string sNames; // for each entry its type, its name and a terminator
        std::size_t nCurrent = 0;
        std::size_t nNext = 0;

        unsigned char GetType() const { return static_cast<unsigned char>(sNames[nCurrent]); }
        const char* GetName() const { return sNames.data() + nCurrent + 1; }
    };

    void _Open(const char* szName);
    bool _Step();
    static void _Read(int nFolder, Listing& listing);

    LTreeVisitor& visitor;
    LFolderStack folders;
    std::vector<Listing> loListings;
};
