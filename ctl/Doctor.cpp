#include "Doctor.h"

#include <AppKit/AppKit.h>
#include <Foundation/Foundation.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <port/runtime_folder.h>
#include <sysexits.h>

#include "HelperConversation.h"
#include "base/LLimits.h"
#include "base/LSystemVersion.h"
#include "platform/LCFBundle.h"
#include "platform/LCFURL.h"

namespace {

// What the helper looks at when it starts.
struct LoginFacts {
    bool bSystemIsRecent = false;
    bool bMainAppRuns = false;
    bool bSetting = false;
    std::string szPath; // empty: none is stored
    bool bPathExists = false;
    bool bBundle = false;
    std::string szVersion; // empty: the bundle tells none
};

bool MainAppRuns() {
    for (const auto& application :
         NSRunningApplication::runningApplicationsWithBundleIdentifier(LMainAppIdentifier))
        if (application->localizedName().isEqualToString(LMainAppDisplayName))
            return true;
    return false;
}

void LookAtBundle(LoginFacts& facts) {
    facts.bPathExists = NSFileManager::defaultManager()->fileExistsAtPath(facts.szPath.c_str());
    if (!facts.bPathExists)
        return;
    // What does not fit the helper's own buffer names no bundle to it.
    if (facts.szPath.size() >= LPathBufferSize)
        return;
    LCFURL url;
    url.CreateFromFullPath(facts.szPath.c_str());
    const LCFBundle bundle(url ? CFBundleCreate(nullptr, url.Get()) : nullptr);
    facts.bBundle = static_cast<bool>(bundle);
    int nMajor = 0;
    int nMinor = 0;
    if (bundle.GetVersionNumber(nMajor, nMinor))
        facts.szVersion = std::to_string(nMajor) + "." + std::to_string(nMinor);
}

LoginFacts CollectFacts(const NSUserDefaults& settings) {
    LoginFacts facts;
    facts.bSystemIsRecent = IsOSMacLionOrLater();
    facts.bMainAppRuns = MainAppRuns();
    facts.bSetting = settings.boolForKey(LSettingLaunchAtLogin);
    if (const NSRef<NSString> path = settings.stringForKey(LSettingMainAppPath))
        facts.szPath = path->UTF8String();
    if (!facts.szPath.empty())
        LookAtBundle(facts);
    return facts;
}

struct Action {
    const char* szWord;
    const char* szText;
};
constexpr Action Quit = {"quit", "ends at once"};
constexpr Action Serve = {"serve", "serves"};
constexpr Action Forgetting = {"forget", "launches nothing and forgets the settings"};
constexpr Action Nothing = {"nothing", "launches nothing"};
constexpr Action Launch = {"launch", "launches the application"};

// The helper's decision, in its order.
void AddVerdict(const LoginFacts& facts, Report& report) {
    const auto tell = [&](const Action& action, const std::string& szWhy) {
        report.AddChoice("nextLogin", "next login", action.szWord, action.szText);
        report.AddText("why", "why", szWhy);
    };
    if (!facts.bSystemIsRecent)
        tell(Quit, "the system is older than 10.7");
    else if (facts.bMainAppRuns)
        tell(Serve, "the main application runs already");
    else if (facts.szPath.empty())
        tell(Forgetting, "no path is stored");
    else if (!facts.bPathExists)
        tell(Forgetting, "nothing exists at the stored path");
    else if (!facts.bBundle)
        tell(Nothing, "the stored path is no bundle");
    else if (facts.szVersion.empty())
        tell(Nothing, "the bundle tells no version");
    else if (facts.szVersion != LMainAppVersion)
        tell(Nothing, "version " + facts.szVersion + " is not " + LMainAppVersion);
    else if (!facts.bSetting)
        tell(Nothing, "launch at login is off");
    else
        tell(Launch, "launch at login is on and version " + facts.szVersion + " is there");
}

void AddOptionalText(Report& report, const char* szKey, const char* szLabel, const std::string& szText) {
    if (szText.empty())
        report.AddNone(szKey, szLabel);
    else
        report.AddText(szKey, szLabel, szText);
}

void AddRuntimeFolder(Report& report) {
    char szFolder[PATH_MAX];
    const bool bUsable = port_runtime_folder(szFolder, sizeof(szFolder));
    const std::string szWhy = bUsable ? "" : strerror(errno);
    report.AddText("runtimeFolder", "runtime folder", szFolder);
    AddOptionalText(report, "runtimeFolderProblem", "problem of the runtime folder", szWhy);
}

void AddService(const Options& options, Report& report) {
    HelperConversation conversation(options.szService, options.dwTimeout);
    bool bValue;
    const HelperAnswer answer =
        conversation.Ask({HelperConversation::Flag(LKeyTestConnection, true)}, bValue);
    report.AddFlag("serviceReachable", "service", answer == HelperAnswer::Replied, "answers",
                   answer == HelperAnswer::Silent ? "does not reply" : "not there");
}

NSRef<NSUserDefaults> HelperSettings() {
    return NSUserDefaults::initWithSuiteName(LHelperIdentifier);
}

} // namespace

void Doctor(const Options& options, Report& report) {
    const LoginFacts facts = CollectFacts(*HelperSettings());
    report.AddFlag("launchAtLogin", "launch at login", facts.bSetting, "on", "off");
    AddOptionalText(report, "path", "stored path", facts.szPath);
    report.AddFlag("bundleFound", "bundle", facts.bBundle, "found", "not found");
    AddOptionalText(report, "version", "version", facts.szVersion);
    report.AddFlag("mainApplicationRuns", "main application", facts.bMainAppRuns, "runs", "does not run");
    AddRuntimeFolder(report);
    AddService(options, report);
    AddVerdict(facts, report);
}

void Forget(const Options& /*options*/, Report& report) {
    const NSRef<NSUserDefaults> settings = HelperSettings();
    settings->removeObjectForKey(LSettingLaunchAtLogin);
    settings->removeObjectForKey(LSettingMainAppPath);
    const bool bWritten = settings->synchronize();
    report.AddFlag("forgotten", "settings", bWritten, "removed", "still there");
    if (!bWritten)
        report.Fail(EX_CANTCREAT, "the settings cannot be written");
}
