// AppKit: the application object without a display, running applications, and launching them.
//
// Ownership and failure: as in <Foundation/Foundation.h>.
#pragma once

#include <sys/types.h>

#include <Foundation/Foundation.h>

#pragma GCC visibility push(default)

// What an application wants to hear; called on the main thread.
class NSApplicationDelegate {
public:
    virtual void applicationDidFinishLaunching(const NSNotification&) {}
    virtual void applicationWillTerminate(const NSNotification&) {}

protected:
    ~NSApplicationDelegate() = default;
};

// The application object. Its methods belong to the main thread.
class NSApplication final : public NSObject {
public:
    static NSApplication* sharedApplication();

    // The delegate is not owned and must live until the process ends. May be null.
    void setDelegate(NSApplicationDelegate* delegate) { delegate_ = delegate; }

    // Tells the delegate that launching is finished, then serves the main loop (main queue, sources) for
    // ever. A handler that the program has for SIGINT or SIGTERM by then is called from the loop, where it may
    // do anything; without one SIGTERM terminates the application from there. What is ignored stays so. While
    // the loop does not come to it, a second signal, or the five seconds after which SIGTERM is sent again,
    // has its effect at once, as if there were no loop.
    [[noreturn]] void run();

    // Tells the delegate, then ends the process with status 0.
    [[noreturn]] void terminate();

private:
    NSApplicationDelegate* delegate_ = nullptr;
};

// Creates the application and the delegate and runs the application; never returns. The delegate is made on
// the main thread before anything else and is kept until the process ends. Descriptors 0, 1 and 2 that were not
// open are the empty device from then on.
using NSApplicationDelegateFactory = NSApplicationDelegate* (*)();
int NSApplicationMain(int argc, char* argv[], NSApplicationDelegateFactory makeDelegate);

// A process of this user whose executable lies in an application bundle, as it was when it was asked for.
class NSRunningApplication final : public NSObject {
public:
    // The running applications with that bundle identifier, the newest first; empty when there is none. Reads
    // the process table, one call a process, and the bundles' property lists.
    static port::References<NSRunningApplication>
    runningApplicationsWithBundleIdentifier(const char* identifier);

    // Whether one of them has that name. Looks no further than the newest that has.
    static bool port_isRunning(const char* identifier, const char* localizedName);

    // The bundle's display name, else its name, else the folder's name without ".app".
    const NSString& localizedName() const { return *localizedName_; }
    pid_t processIdentifier() const { return processIdentifier_; }

private:
    NSRunningApplication(NSRef<NSString> localizedName, pid_t processIdentifier)
        : localizedName_(std::move(localizedName)), processIdentifier_(processIdentifier) {}

    NSRef<NSString> localizedName_;
    pid_t processIdentifier_;
};

class NSWorkspace final : public NSObject {
public:
    static NSWorkspace* sharedWorkspace();

    // Starts the application bundle at that absolute path, unless a copy of it runs already. True when it
    // runs or its program was started; blocks until that is known, not for the application itself, up to 2 s
    // longer for a service manager that does not answer. False with errno: EINVAL for a relative path, ENOENT
    // for a bundle without a program, or what kept the program from being executed.
    // The application gets a session and, where the user's service manager keeps scopes, a scope of its own;
    // default signals; no descriptor but 0 (empty), 1 and 2 (those of this process where they are files or
    // devices, else empty); the home folder as working folder; and LAUNCHED_AT_LOGIN=1 in its environment. It
    // outlives this process.
    bool launchApplication(const char* fullPath);

    // Whether the session has a file viewer, which is started if it does not run; blocks until that is known, up to
    // 6 s. Who wants to try several files asks first: each costs a process.
    bool port_hasFileViewer();
    // Shows the file in a window of the session's file viewer, selected in its folder. A relative path starts at
    // the working folder; the root of the window is the viewer's own choice, whatever rootFullPath says. False
    // without a session bus, or when no viewer takes the request; blocks until one has, up to 6 s.
    bool selectFile(const char* fullPath, const char* rootFullPath);
};

#pragma GCC visibility pop
