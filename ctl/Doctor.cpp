#include "Doctor.h"

#include <Foundation/Foundation.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <port/runtime_folder.h>
#include <sysexits.h>

#include "HelperConversation.h"
#include "LoginDecision.h"

namespace {

struct Action {
    const char* szWord;
    const char* szText;
};

Action ActionOf(LLoginAction eAction) {
    switch (eAction) {
    case LLoginAction::Quit:
        return {"quit", "ends at once"};
    case LLoginAction::Serve:
        return {"serve", "serves"};
    case LLoginAction::Launch:
        return {"launch", "launches the application"};
    case LLoginAction::Forget:
        return {"forget", "launches nothing and forgets the settings"};
    case LLoginAction::Nothing:
        break;
    }
    return {"nothing", "launches nothing"};
}

void AddVerdict(const LLoginVerdict& verdict, Report& report) {
    const Action action = ActionOf(verdict.eAction);
    report.AddChoice("nextLogin", "next login", action.szWord, action.szText);
    report.AddText("why", "why", verdict.sWhy);
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
    // A login begins without the main application, whatever runs now.
    const LLoginFacts facts = CollectLoginFacts(*HelperSettings(), false);
    report.AddFlag("launchAtLogin", "launch at login", facts.bSetting, "on", "off");
    AddOptionalText(report, "path", "stored path", facts.sPath);
    report.AddFlag("bundleFound", "bundle", facts.bBundle, "found", "not found");
    AddOptionalText(report, "version", "version", facts.sVersion);
    report.AddFlag("mainApplicationRuns", "main application", IsMainApplicationRunning(), "runs",
                   "does not run");
    AddRuntimeFolder(report);
    AddService(options, report);
    AddVerdict(DecideLogin(facts), report);
}
