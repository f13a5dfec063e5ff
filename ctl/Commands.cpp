#include "Commands.h"

#include <Foundation/Foundation.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sysexits.h>

#include "Doctor.h"
#include "HelperConversation.h"
#include "Registration.h"

namespace {

NSRef<NSUserDefaults> HelperSettings() {
    return NSUserDefaults::initWithSuiteName(LHelperIdentifier);
}

void FailUnreachable(const Options& options, Report& report) {
    report.Fail(EX_UNAVAILABLE, std::string("nobody serves ") + options.szService +
                                    "; '" LOGINHELPER_CONTROL
                                    " register' starts a helper, '" LOGINHELPER_CONTROL
                                    " doctor' tells more");
}

void FailSilent(const Options& options, Report& report, const std::string& sWhy) {
    report.Fail(EX_TEMPFAIL, "no reply within " + std::to_string(options.dwTimeout) + " ms" + sWhy);
}

void FailUnasked(Report& report, int nError) {
    report.Fail(EX_OSERR, std::string("the helper cannot be asked: ") + strerror(nError));
}

// Asks one question and reports an answer that is no reply.
bool Ask(const Options& options, Report& report, std::initializer_list<LXPCData> items, bool& bValue,
         const std::string& sWhySilent = "") {
    HelperConversation conversation(options.szService, options.dwTimeout);
    switch (conversation.Ask(items, bValue)) {
    case HelperAnswer::Replied:
        return true;
    case HelperAnswer::Silent:
        FailSilent(options, report, sWhySilent);
        return false;
    case HelperAnswer::Unreachable:
        FailUnreachable(options, report);
        return false;
    case HelperAnswer::Ended:
        report.Fail(EX_UNAVAILABLE, "the helper ended before it replied");
        return false;
    case HelperAnswer::Unasked:
        FailUnasked(report, errno);
        return false;
    }
    return false;
}

void AddSetting(Report& report, bool bOn) {
    report.AddFlag("launchAtLogin", "launch at login", bOn, "on", "off");
}

void FailUnwritten(Report& report, const NSUserDefaults& settings, const char* szWhy) {
    report.Fail(EX_CANTCREAT, std::string("not saved in ") + settings.port_path() + ": " + szWhy);
}

// Tells what is on the disk, whatever the helper has answered. It is to be this path with the setting on, or,
// without a path, the setting off. A damaged file holds no setting.
bool ReportStored(Report& report, const char* szPath) {
    const NSRef<NSUserDefaults> settings = HelperSettings();
    int nError;
    if (!settings->port_isReadable(&nError) && nError != EBADMSG) {
        FailUnwritten(report, *settings, strerror(nError));
        return false;
    }
    const bool bOn = settings->boolForKey(LSettingLaunchAtLogin);
    const NSRef<NSString> path = settings->stringForKey(LSettingMainAppPath);
    AddSetting(report, bOn);
    if (path)
        report.AddText("path", "path", path->UTF8String());
    if (szPath == nullptr ? !bOn : bOn && path && path->isEqualToString(szPath))
        return true;
    if (report.GetStatus() == 0)
        FailUnwritten(report, *settings, "it holds another setting");
    return false;
}

void RemoveSetting(Report& report) {
    const NSRef<NSUserDefaults> settings = HelperSettings();
    settings->removeObjectForKey(LSettingLaunchAtLogin);
    settings->removeObjectForKey(LSettingMainAppPath);
    if (!settings->synchronize())
        FailUnwritten(report, *settings, strerror(errno));
}

void Test(const Options& options, Report& report) {
    bool bValue;
    if (Ask(options, report, {HelperConversation::Flag(LKeyTestConnection, true)}, bValue))
        report.AddFlag("answers", "helper", bValue, "answers", "answers with a refusal");
}

void Identify(const Options& options, Report& report) {
    bool bValue;
    if (Ask(options, report,
            {HelperConversation::Flag(LKeyNewConnection, true),
             HelperConversation::Text(LKeyMainAppBundleId, LMainAppIdentifier),
             HelperConversation::Text(LKeyMainAppBundlePath, options.szBundle)},
            bValue,
            std::string(": the helper does not answer a bundle that is not named \"") + LMainAppDisplayName +
                "\""))
        report.AddFlag("accepted", "identified as the main application", bValue, "yes", "no");
}

bool IsBundle(const std::string& szPath) {
    struct stat info;
    return stat((szPath + "/Contents/Info.plist").c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

void Enable(const Options& options, Report& report) {
    // The helper starts in another folder: it gets a full path without links.
    const std::unique_ptr<char, decltype(&free)> szFull(realpath(options.szPath, nullptr), &free);
    if (szFull == nullptr) {
        report.Fail(EX_NOINPUT, std::string(options.szPath) + ": " + strerror(errno));
        return;
    }
    bool bValue;
    if (!Ask(options, report,
             {HelperConversation::Flag(LKeyLaunchAtLogin, true),
              HelperConversation::Text(LKeyMainAppBundlePath, szFull.get())},
             bValue, ": the helper does not answer a path that is no UTF-8 or has control characters"))
        return;
    if (ReportStored(report, szFull.get()) && !IsBundle(szFull.get()))
        report.Warn(std::string("warning: ") + szFull.get() +
                    " is no application bundle; the next login will launch nothing");
}

// Where nobody serves, nobody keeps the setting in memory either: the file is changed by hand.
void Disable(const Options& options, Report& report) {
    HelperConversation conversation(options.szService, options.dwTimeout);
    bool bValue;
    switch (conversation.Ask({HelperConversation::Flag(LKeyLaunchAtLogin, false)}, bValue)) {
    case HelperAnswer::Silent:
        FailSilent(options, report, "");
        return;
    case HelperAnswer::Unreachable:
    case HelperAnswer::Ended:
        RemoveSetting(report);
        break;
    case HelperAnswer::Unasked:
        FailUnasked(report, errno);
        return;
    case HelperAnswer::Replied:
        break;
    }
    ReportStored(report, nullptr);
}

void Query(const Options& options, Report& report) {
    bool bValue;
    if (Ask(options, report, {HelperConversation::Flag(LKeyQueryLaunchAtLogin, true)}, bValue))
        AddSetting(report, bValue);
}

// The helper ends without a reply: its end is the answer.
void Quit(const Options& options, Report& report) {
    HelperConversation conversation(options.szService, options.dwTimeout);
    bool bValue;
    switch (conversation.Ask({HelperConversation::Flag(LKeyShutdownHelper, true)}, bValue)) {
    case HelperAnswer::Ended:
        report.AddFlag("ended", "helper", true, "ended", "runs");
        return;
    case HelperAnswer::Unreachable:
        report.Fail(EX_UNAVAILABLE, std::string("nobody serves ") + options.szService);
        return;
    case HelperAnswer::Replied:
    case HelperAnswer::Silent:
        report.Fail(EX_TEMPFAIL,
                    "the helper has not ended within " + std::to_string(options.dwTimeout) + " ms");
        return;
    case HelperAnswer::Unasked:
        FailUnasked(report, errno);
        return;
    }
}

void Forget(const Options& /*options*/, Report& report) {
    const NSRef<NSUserDefaults> settings = HelperSettings();
    const bool bRemoved = settings->port_removeAll();
    const int nError = errno;
    report.AddFlag("forgotten", "settings", bRemoved, "removed", "still there");
    if (!bRemoved)
        report.Fail(EX_CANTCREAT, std::string(settings->port_path()) + ": " + strerror(nError));
}

constexpr struct {
    const char* szName;
    void (*Run)(const Options& options, Report& report);
} Commands[] = {{"register", Register}, {"unregister", Unregister}, {"status", Status},   {"test", Test},
                {"identify", Identify}, {"enable", Enable},         {"disable", Disable}, {"query", Query},
                {"quit", Quit},         {"doctor", Doctor},         {"forget", Forget}};

} // namespace

bool RunCommand(const Options& options, Report& report) {
    for (const auto& command : Commands)
        if (strcmp(command.szName, options.szCommand) == 0) {
            command.Run(options, report);
            return true;
        }
    return false;
}
