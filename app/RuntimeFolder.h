// The folder of the service's socket, as the helper tells of it when it cannot serve, and the doctor before.
//
// Thread-safety: any thread; the environment must not change meanwhile.
#pragma once

#include <string>
#include <sys/types.h>

struct LRuntimeFolder {
    std::string sPath;
    bool bExists = false;
    uid_t nOwner = 0; // this and the mode: of what is there, a link not followed
    mode_t dwMode = 0;
    std::string sProblem; // why no service can have its socket there; empty when one can, or could make it
};

// Looks without making anything.
LRuntimeFolder LookAtRuntimeFolder();
