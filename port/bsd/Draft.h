// A new file that takes its name when it is whole.
//
// Thread-safety: none.
#pragma once

#include <port/UniqueFd.h>
#include <string>
#include <sys/types.h>

#include "host/OwnName.h"

namespace port {

// Until then it has no name at all, so that nothing is left of it whenever the process ends. Where the file system
// has no nameless files, and for the moment in which a target is replaced, it has one of its own beside the target,
// ".copy-PID-N".
class Draft {
public:
    // The target's folder, which stays open, or AT_FDCWD, and its name there, which may be a path then.
    Draft(int folder, const char* target);

    // Makes the file, empty; `mode` is under the process's mask. False with errno.
    bool open(mode_t mode);
    int fd() const { return fd_.get(); }

    // False with EEXIST when the name is taken, or may be.
    bool takeFreeName();
    // Replaces what has the name, but no folder.
    bool replace();

private:
    bool link(const char* name) const;

    const std::string target_;
    const std::string place_; // the folder that the target is in, as a path from folder()
    OwnName name_;
    UniqueFd fd_;
};

} // namespace port
