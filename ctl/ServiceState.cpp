#include "ServiceState.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <port/login_helper.h>
#include <port/runtime_folder.h>
#include <sys/stat.h>
#include <unistd.h>

#include "HelperConversation.h"
#include "RuntimeFolder.h"

namespace {

std::string StepForFolder(const LRuntimeFolder& folder) {
    if (!folder.bExists)
        return "log in anew: the session makes its runtime folder";
    if (folder.nOwner != geteuid())
        return "have an administrator remove " + folder.sPath;
    return (S_ISDIR(folder.dwMode) ? "chmod 0700 " : "rm ") + QuoteForShell(folder.sPath);
}

void ReportFolder(Report& report) {
    const LRuntimeFolder folder = LookAtRuntimeFolder();
    report.AddText("runtimeFolder", "runtime folder", folder.sPath);
    if (folder.bExists) {
        char szMode[16];
        snprintf(szMode, sizeof szMode, "%04o", static_cast<unsigned>(folder.dwMode & 07777));
        report.AddText("runtimeFolderOwner", "its owner", std::to_string(folder.nOwner));
        report.AddText("runtimeFolderMode", "its mode", szMode);
    }
    report.AddOptionalText("runtimeFolderProblem", "its problem", folder.sProblem);
    if (!folder.sProblem.empty())
        report.AddFinding(folder.sProblem, StepForFolder(folder));
    const char* szBase = getenv("XDG_RUNTIME_DIR");
    if (szBase == nullptr || szBase[0] == '\0')
        report.AddFinding("XDG_RUNTIME_DIR is not set: the session's programs use another runtime folder",
                          "export XDG_RUNTIME_DIR=/run/user/$(id -u)");
}

struct Service {
    const char* szWord;
    std::string sText;
    std::string sNextStep = {}; // empty: nothing is wrong
};

// What is known of a service to which nobody answers.
Service UnansweredService(int nError, bool bHelperRuns) {
    if (IsShortage(nError))
        return {"unknown", std::string("cannot be asked: ") + strerror(nError)};
    if (bHelperRuns)
        return {"idle", "not served: the helper that runs is idle"};
    if (nError == ECONNREFUSED)
        return {"stale", "not served: a helper that was killed left its socket, which the next one replaces"};
    return {"none", "not served"};
}

// `helper` is the helper of this login that runs, 0 without one.
Service LookAtService(const Options& options, pid_t helper) {
    const pid_t process = port_service_process(options.szService);
    if (process == -1)
        return UnansweredService(errno, helper != 0);
    HelperConversation conversation(options.szService, options.dwTimeout);
    bool bValue;
    if (conversation.Ask({HelperConversation::Flag(LKeyTestConnection, true)}, bValue) ==
        HelperAnswer::Replied)
        return {"answers", "answers"};
    const std::string sProcess = "process " + std::to_string(process);
    if (helper != 0 && process == helper)
        return {"silent", "the helper, " + sProcess + ", does not reply",
                "kill -KILL " + std::to_string(process)};
    return {"foreign", "taken by " + sProcess + ", which is no helper that replies", "end " + sProcess};
}

} // namespace

void ReportServer(const Options& options, Report& report) {
    port_login_helper_t helper;
    port_login_helper(LHelperIdentifier, &helper);
    report.AddFlag("helperRuns", "helper", helper.process != 0, "runs", "does not run");
    const Service service = LookAtService(options, helper.process);
    report.AddFlag("serviceReachable", "service reachable", std::string("answers") == service.szWord, "yes",
                   "no");
    report.AddChoice("service", "service", service.szWord, service.sText);
    if (!service.sNextStep.empty())
        report.AddFinding("the service: " + service.sText, service.sNextStep);
}

void ReportService(const Options& options, Report& report) {
    ReportFolder(report);
    ReportServer(options, report);
}
