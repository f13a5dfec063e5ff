// The decision at login, in one place for the helper that acts on it and for the doctor that foretells it: the
// facts that it rests on, and what follows from them.
//
// Thread-safety: `DecideLogin` any thread; the collectors belong to the main thread.
#pragma once

#include <string>

class NSUserDefaults;

struct LLoginFacts {
    bool bSystemIsRecent = false;
    bool bOwnBundle = true; // the helper knows its bundle, and by that its settings
    bool bMainAppRuns = false;

    // What is stored, and what is at the stored path. Not looked at while the main application runs. Errors are
    // values of errno, 0 for none.
    int nSettingsError = 0; // of reading the settings; EBADMSG: they are damaged
    bool bSetting = false;
    std::string sPath;       // empty: none is stored
    int nPathError = 0;      // of looking at the path
    bool bBundle = false;    // a folder is there, whose path is not longer than a path may be
    bool bInfo = false;      // its Info.plist can be read
    std::string sIdentifier; // empty: it tells none
    std::string sVersion;    // "major.minor"; empty: it tells none
    std::string sExecutable; // the path; empty: it has none
    int nExecutableError = 0;
    std::string sForeignItem; // the first item on the way there that others may change; else empty
    int nForeignError = 0;    // EPERM, or why that item could not be looked at
};

enum class LLoginAction {
    Quit,    // end at once
    Serve,   // serve the main application that runs
    Launch,  // launch the main application
    Forget,  // launch nothing, and remove what is stored
    Nothing, // launch nothing
};

// What decided, for who wants to say what to do about it.
enum class LLoginReason {
    SystemTooOld,
    OwnBundleUnknown,
    MainAppRuns,
    SettingsDamaged,
    SettingsUnreadable,
    SettingOff,
    PathGone,
    PathUnseen,
    NoBundle,
    OtherVersion,
    NotWhole, // the bundle lacks what a bundle has
    NotExecutable,
    OthersMayChange,
    AllIsThere,
};

struct LLoginVerdict {
    LLoginAction eAction;
    LLoginReason eReason;
    std::string sWhy; // for people: one line without its end
};

// Whether an application with the main application's bundle identifier and display name runs. Reads the
// process table.
bool IsMainApplicationRunning();

// The facts at this moment. `pSettings` is null when the main application runs: nothing else is asked then, so
// nothing else is looked at. Blocks on the disk.
LLoginFacts CollectLoginFacts(const NSUserDefaults* pSettings);

// Whether this program is the helper in its bundle, and the settings of this program are the helper's.
bool IsHelperBundle();

// What a helper does that meets these facts when it starts.
LLoginVerdict DecideLogin(const LLoginFacts& facts);
