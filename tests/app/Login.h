// A login in a private place: the main application's bundle, the helper's settings, and the helper itself.
//
// Thread-safety: none; the test's main thread. The process table is one for all: while a `Login` lives, no
// other test of this machine has a main application that runs.
#pragma once

#include <AppKit/AppKit.h>
#include <LoginHelperContract.h>
#include <memory>
#include <port/UniqueFd.h>
#include <string>

#include "support/ChildProcess.h"

// Short, for tables.
#define APP LOGINHELPER_APP_NAME
#define VERSION LOGINHELPER_APP_VERSION
#define ID LOGINHELPER_IDENTIFIER
#define HELPER LOGINHELPER_NAME
#define CTL LOGINHELPER_CONTROL

class Login {
public:
    Login();
    // Ends the applications that the helper launched.
    ~Login();

    // Writes the main application's bundle, called `name`, with that version; returns its path.
    std::string MakeBundle(const char* version, const char* name = APP, const char* displayName = APP) const;
    // Writes the helper's settings; the property-list element of the setting may be empty.
    void Store(const std::string& setting, const std::string& path) const;
    // The setting and the stored path as another process sees them: "on /a/path", "off (none)".
    static std::string Stored();

    // The helper with its standard error on the pipe; its standard output, which the application that it
    // launches keeps, is a file.
    static std::unique_ptr<ChildProcess> StartHelper(const std::string& program = HELPER_PROGRAM,
                                                     const char* argument = nullptr);
    // What the launched application has said.
    std::string Said() const;
    static port::References<NSRunningApplication> RunningApplications();

    // Runs loginhelperctl, or another program; the words are the shell's. Its status, and what it says on both outputs.
    static std::pair<int, std::string> Ctl(const std::string& words, const char* program = LOGINHELPERCTL);
    const std::string& Path() const { return place.Path(); }

private:
    PrivatePlace place;
    port::UniqueFd turn;
};
