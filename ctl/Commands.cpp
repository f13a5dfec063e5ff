#include "Commands.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sysexits.h>

#include "Doctor.h"
#include "HelperConversation.h"

namespace {

// Asks one question and reports an answer that is no reply.
bool Ask(const Options& options, Report& report, std::initializer_list<LXPCData> items, bool& bValue,
         const char* szWhySilent) {
    HelperConversation conversation(options.szService, options.dwTimeout);
    switch (conversation.Ask(items, bValue)) {
    case HelperAnswer::Replied:
        return true;
    case HelperAnswer::Silent:
        report.Fail(EX_TEMPFAIL,
                    "no reply within " + std::to_string(options.dwTimeout) + " ms" + szWhySilent);
        return false;
    case HelperAnswer::Unreachable:
        report.Fail(EX_UNAVAILABLE, std::string("nobody serves ") + options.szService);
        return false;
    case HelperAnswer::Ended:
        report.Fail(EX_UNAVAILABLE, "the helper ended before it replied");
        return false;
    }
    return false;
}

void AddSetting(Report& report, bool bOn) {
    report.AddFlag("launchAtLogin", "launch at login", bOn, "on", "off");
}

void Test(const Options& options, Report& report) {
    bool bValue;
    if (Ask(options, report, {HelperConversation::Flag(LKeyTestConnection, true)}, bValue, ""))
        report.AddFlag("answers", "helper", bValue, "answers", "answers with a refusal");
}

void Identify(const Options& options, Report& report) {
    bool bValue;
    if (Ask(options, report,
            {HelperConversation::Flag(LKeyNewConnection, true),
             HelperConversation::Text(LKeyMainAppBundleId, LMainAppIdentifier),
             HelperConversation::Text(LKeyMainAppBundlePath, options.szBundle)},
            bValue, ": the helper does not answer a bundle that is not named \"Zubeq Free\""))
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
             bValue, ": the helper does not answer a path that is no UTF-8"))
        return;
    AddSetting(report, bValue);
    report.AddText("path", "path", szFull.get());
    if (!IsBundle(szFull.get()))
        report.Warn(std::string("warning: ") + szFull.get() +
                    " is no application bundle; the next login will launch nothing");
}

void Disable(const Options& options, Report& report) {
    bool bValue;
    if (Ask(options, report, {HelperConversation::Flag(LKeyLaunchAtLogin, false)}, bValue, ""))
        AddSetting(report, bValue);
}

void Query(const Options& options, Report& report) {
    bool bValue;
    if (Ask(options, report, {HelperConversation::Flag(LKeyQueryLaunchAtLogin, true)}, bValue, ""))
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
    }
}

constexpr struct {
    const char* szName;
    void (*Run)(const Options& options, Report& report);
} Commands[] = {{"test", Test},   {"identify", Identify}, {"enable", Enable}, {"disable", Disable},
                {"query", Query}, {"quit", Quit},         {"doctor", Doctor}, {"forget", Forget}};

} // namespace

bool RunCommand(const Options& options, Report& report) {
    for (const auto& command : Commands)
        if (strcmp(command.szName, options.szCommand) == 0) {
            command.Run(options, report);
            return true;
        }
    return false;
}
