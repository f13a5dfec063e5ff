// A folder that is filled under a name of its own, ".copy-PID-N", and takes its name when it is whole: who looks
// there finds all of it or nothing. Internal to the file operations.
//
// Thread-safety: none.
#pragma once

#include <port/UniqueFd.h>
#include <string>

class LNewFolder {
public:
    LNewFolder() = default;
    LNewFolder(const LNewFolder&) = delete;
    LNewFolder& operator=(const LNewFolder&) = delete;
    // What has come into it by then stays.
    ~LNewFolder() { TakeName(); }

    // Makes it, empty, 0777 under the process's mask, in a folder in which nothing has the name. False when something
    // has, or when it cannot be made.
    bool Make(int nParentFolder, const char* szName);

    bool IsMade() const { return !sOwnName.empty(); }
    // While it is made: the folder that it is in, and the names.
    int GetParent() const { return parent.get(); }
    const char* GetOwnName() const { return sOwnName.c_str(); }
    const char* GetName() const { return sName.c_str(); }

    // Gives it its name; it is nobody's then. False, and it is as it was, when something else has the name by now, an
    // empty folder aside, and when it is not made.
    bool TakeName();
    // Leaves it to the caller, who has copied or removed what is in it.
    void Forget() { sOwnName.clear(); }

private:
    port::UniqueFd parent;
    std::string sName;
    std::string sOwnName;
};
