// The login helper's application delegate: at login it launches the main application if the user asked for
// that; while the main application runs it serves the service through which the setting is changed.
//
// Thread-safety: the methods belong to the main thread, but for `getXPCServer` and `shutdownHelper`, which
// the event sink calls from inside its events.
#pragma once

#include <AppKit/AppKit.h>
#include <objc/objc.h>

class LLaunchTurn;
class LXPCMachServer;
struct LLoginFacts;
struct LLoginVerdict;

class LLoginHelper : public NSObject, public NSApplicationDelegate {
public:
    // The server that serves now; null before it was started. It is there as long as the event in which it was
    // asked for.
    LXPCMachServer* getXPCServer() const;

    // Ends the events, destroys the server and ends the process with status 0. A server in which other threads
    // are, and the sink, stay as they are: the process waits for nobody. Of several threads that call it, or end
    // the application meanwhile, one goes on and the others stay here.
    [[noreturn]] void shutdownHelper();

    // Declares the message keys and serves. Returns only when the service cannot be created.
    void startXPCServer();

    // Whether an application with the main application's bundle identifier and display name runs.
    BOOL isMainAppRunning() const;

    // Launches the main application, or forgets the setting, when the verdict on these facts says so and, for a
    // launch, no other helper of this login launches it. Tells what it did and why, and what became of a launch.
    void launchMainApp(const LLoginFacts& facts, const LLoginVerdict& verdict, const LLaunchTurn& turn);

    void applicationDidFinishLaunching(const NSNotification& notification) override;
    void applicationWillTerminate(const NSNotification& notification) override;

protected:
    // What serving needs; before `startXPCServer`.
    void _CreateSink();
};
