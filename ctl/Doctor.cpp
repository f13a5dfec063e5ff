#include "Doctor.h"

#include <Foundation/Foundation.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "HelperStart.h"
#include "LoginDecision.h"
#include "LoginHelperContract.h"
#include "Registration.h"
#include "ServiceState.h"

namespace {

struct Action {
    const char* szWord;
    const char* szText;
};

Action ActionOf(const LLoginVerdict& verdict, const LLoginFacts& facts) {
    switch (verdict.eAction) {
    case LLoginAction::Quit:
        return {"quit", "ends at once"};
    case LLoginAction::Serve:
        return {"serve", "serves"};
    case LLoginAction::Launch:
        return {"launch", "launches the application"};
    case LLoginAction::Forget:
        if (facts.bSetting || !facts.sPath.empty())
            return {"forget", "launches nothing and forgets the settings"};
        return {"forget", "launches nothing"};
    case LLoginAction::Nothing:
        break;
    }
    return {"nothing", "launches nothing"};
}

std::string EnableStep(const std::string& sPath) {
    return "start the application, then: " LOGINHELPER_CONTROL " enable " + QuoteForShell(sPath);
}

std::string StepForWriters(const LLoginFacts& facts) {
    struct stat status;
    const bool bOurs = lstat(facts.sForeignItem.c_str(), &status) == 0 && status.st_uid == geteuid();
    return bOurs ? "chmod go-w " + QuoteForShell(facts.sForeignItem)
                 : "install the application where only you and root may write";
}

// Where a launch is not what the facts lead to.
std::string StepFor(LLoginReason eReason, const LLoginFacts& facts, const char* szSettingsFile) {
    switch (eReason) {
    case LLoginReason::SystemTooOld:
        return "update the system to 10.7 or later";
    case LLoginReason::OwnBundleUnknown:
        return "mount /proc, from which programs know where they are";
    case LLoginReason::SettingsDamaged:
        return LOGINHELPER_CONTROL " forget";
    case LLoginReason::SettingsUnreadable:
        return "ls -ld " + QuoteForShell(szSettingsFile);
    case LLoginReason::SettingOff:
        return EnableStep(facts.sPath.empty() ? LMainAppDefaultPath : facts.sPath);
    case LLoginReason::PathGone:
    case LLoginReason::PathUnseen:
    case LLoginReason::NoBundle:
        return EnableStep(LMainAppDefaultPath);
    case LLoginReason::OtherVersion:
        return std::string("install version ") + LMainAppVersion + " of the application";
    case LLoginReason::NotWhole:
        return "install the application again";
    case LLoginReason::NotExecutable:
        return "chmod u+x " + QuoteForShell(facts.sExecutable);
    case LLoginReason::OthersMayChange:
        return StepForWriters(facts);
    case LLoginReason::MainAppRuns:
    case LLoginReason::AllIsThere:
        break;
    }
    return "";
}

void ReportSettingsFile(Report& report, const LLoginFacts& facts, const char* szSettingsFile) {
    report.AddText("settingsFile", "settings", szSettingsFile);
    const bool bDamaged = facts.nSettingsError == EBADMSG;
    report.AddChoice("settings", "settings are",
                     facts.nSettingsError == 0 ? "readable" : (bDamaged ? "damaged" : "unreadable"),
                     facts.nSettingsError == 0 ? "readable"
                     : bDamaged                ? "damaged"
                                               : strerror(facts.nSettingsError));
}

void ReportSetting(Report& report, const LLoginFacts& facts) {
    report.AddFlag("launchAtLogin", "launch at login", facts.bSetting, "on", "off");
    report.AddOptionalText("path", "stored path", facts.sPath);
    report.AddFlag("bundleFound", "bundle", facts.bBundle, "found", "not found");
    report.AddOptionalText("version", "version", facts.sVersion);
}

void ReportBundle(Report& report, const LLoginFacts& facts) {
    report.AddOptionalText("identifier", "identifier", facts.sIdentifier);
    report.AddOptionalText("executable", "executable", facts.sExecutable);
    report.AddOptionalText("othersMayChange", "others may change", facts.sForeignItem);
    if (facts.bInfo && facts.sIdentifier != LMainAppIdentifier)
        report.AddFinding("the identifier of " + facts.sPath + " is not " + LMainAppIdentifier +
                              ": while it runs no helper knows it",
                          EnableStep(LMainAppDefaultPath));
}

const char* SessionsOf(HelperStart eStart) {
    switch (eStart) {
    case HelperStart::ManagedSessions:
        return " in a session that the service manager runs";
    case HelperStart::OtherSessions:
        return " in a session that the service manager does not run";
    case HelperStart::Never:
    case HelperStart::Always:
        break;
    }
    return "";
}

// What the helper does when it is started, and whether it is. True for a launch.
bool ReportVerdict(Report& report, const LLoginFacts& facts, const char* szSettingsFile, HelperStart eStart) {
    const LLoginVerdict verdict = DecideLogin(facts);
    if (verdict.eAction != LLoginAction::Launch)
        report.AddFinding(verdict.sWhy, StepFor(verdict.eReason, facts, szSettingsFile));
    if (eStart == HelperStart::Never) {
        report.AddChoice("nextLogin", "next login", "nothing", "launches nothing");
        report.AddText("why", "why", "nothing starts the helper");
        return false;
    }
    const Action action = ActionOf(verdict, facts);
    report.AddChoice("nextLogin", "next login", action.szWord,
                     std::string(action.szText) + SessionsOf(eStart));
    report.AddText("why", "why", verdict.sWhy);
    return verdict.eAction == LLoginAction::Launch;
}

// A login begins without the main application, whatever runs now.
LLoginFacts FactsOfNextLogin(const NSUserDefaults& settings) {
    LLoginFacts facts = CollectLoginFacts(&settings);
    facts.bOwnBundle = CFBundleGetMainBundle() != nullptr;
    return facts;
}

} // namespace

void Doctor(const Options& options, Report& report) {
    report.BeginFindings();
    const NSRef<NSUserDefaults> settings = NSUserDefaults::initWithSuiteName(LHelperIdentifier);
    const LLoginFacts facts = FactsOfNextLogin(*settings);
    ReportRegistration(report);
    const HelperStart eStart = ReportHelperStart(report);
    ReportSettingsFile(report, facts, settings->port_path());
    ReportSetting(report, facts);
    ReportBundle(report, facts);
    ReportVerdict(report, facts, settings->port_path(), eStart);
    report.AddFlag("mainApplicationRuns", "main application now", IsMainApplicationRunning(), "runs",
                   "does not run");
    ReportService(options, report);
}

void Status(const Options& options, Report& report) {
    const NSRef<NSUserDefaults> settings = NSUserDefaults::initWithSuiteName(LHelperIdentifier);
    const LLoginFacts facts = FactsOfNextLogin(*settings);
    ReportRegistration(report);
    const HelperStart eStart = ReportHelperStart(report);
    ReportSetting(report, facts);
    if (!ReportVerdict(report, facts, settings->port_path(), eStart))
        report.Fail(EXIT_FAILURE, "");
    ReportServer(options, report);
}
