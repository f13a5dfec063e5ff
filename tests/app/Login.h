// A login in a private place: the main application's bundle, the helper's settings, and the helper itself.
//
// Thread-safety: none; the test's main thread. The process table is one for all: while a `Login` lives, no
// other test of this machine has a main application that runs.
#pragma once

#include <Foundation/Foundation.h>
#include <memory>
#include <port/UniqueFd.h>
#include <string>

#include "xpc/ChildProcess.h"

class Login {
public:
    Login();
    Login(const Login&) = delete;
    Login& operator=(const Login&) = delete;
    // Ends the applications that the helper launched.
    ~Login();

    // Writes the main application's bundle, called `name`, with that version; returns its path.
    std::string MakeBundle(const char* version, const char* name = "Zubeq Free",
                           const char* displayName = "Zubeq Free") const;
    // Writes the helper's settings; the property-list element of the setting may be empty.
    void Store(const std::string& setting, const std::string& path) const;
    // The stored path as another process sees it, "(none)" without one, and whether the setting is on.
    static std::string StoredPath();
    static bool StoredSetting();

    // The helper, its standard error on the pipe.
    static std::unique_ptr<ChildProcess> StartHelper();
    // What the launched application wrote down when it started; waits for it.
    std::string LaunchedApplicationSays() const;
    static int RunningApplications();
    const std::string& Path() const { return place.Path(); }

private:
    PrivatePlace place;
    port::UniqueFd turn;
};
