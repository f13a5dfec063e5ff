#include "Registration.h"

#include <Foundation/Foundation.h>
#include <ServiceManagement/ServiceManagement.h>
#include <cerrno>
#include <cstring>
#include <port/login_helper.h>
#include <sysexits.h>

#include "HelperConversation.h"
#include "platform/LCFBundle.h"
#include "platform/LCFString.h"
#include "platform/LCFURL.h"

namespace {

bool IsRegistered(const port_login_item_t& entry) {
    return entry.state == PORT_LOGIN_ITEM_ON || entry.state == PORT_LOGIN_ITEM_LEFT;
}

// Whether the user's entry starts the helper that is to be registered: one of another place may stand there still.
bool IsEntryOfBundle(const port_login_helper_t& helper) {
    return IsRegistered(helper.entry) &&
           std::string_view(helper.entry.program).starts_with(std::string(helper.bundle) + "/");
}

// Empty when the bundle tells none.
std::string VersionOf(const char* szBundle) {
    LCFURL url;
    url.CreateFromFullPath(szBundle);
    const LCFBundle bundle(url ? CFBundleCreate(kCFAllocatorDefault, url.Get()) : nullptr);
    int nMajor = 0;
    int nMinor = 0;
    return bundle.GetVersionNumber(nMajor, nMinor) ? std::to_string(nMajor) + "." + std::to_string(nMinor)
                                                   : "";
}

void AddRegistration(Report& report, const port_login_helper_t& helper) {
    report.AddFlag("registered", "registered", IsRegistered(helper.entry), "yes", "no");
    report.AddOptionalText("entry", "user's entry", helper.entry.path);
    report.AddOptionalText("switchedOff", "switched off by",
                           helper.entry.line != nullptr ? helper.entry.line : "");
    report.AddOptionalText("helper", "helper's bundle", helper.bundle);
    report.AddOptionalText("helperVersion", "helper's version",
                           helper.bundle[0] != '\0' ? VersionOf(helper.bundle) : "");
    report.AddOptionalText("obstacle", "obstacle", helper.obstacle);
}

// `nError` is the value of errno with which the call failed.
void FailToRegister(Report& report, const port_login_helper_t& helper, int nError) {
    if (nError == EWOULDBLOCK)
        report.Fail(EX_TEMPFAIL, "another program switches the helper on or off");
    else if (helper.error != 0)
        report.Fail(IsShortage(helper.error) ? EX_OSERR
                    : helper.error == ENOENT ? EX_NOINPUT
                                             : EX_NOPERM,
                    std::string("not registered: ") + helper.obstacle);
    else if (IsEntryOfBundle(helper))
        report.Fail(EX_UNAVAILABLE, std::string("registered, but no helper serves: ") + strerror(nError));
    else
        report.Fail(EX_CANTCREAT,
                    std::string("not registered: the entry cannot be written: ") + strerror(nError));
}

bool RemoveSettings(Report& report) {
    const NSRef<NSUserDefaults> settings = NSUserDefaults::initWithSuiteName(LHelperIdentifier);
    if (settings->port_removeAll())
        return true;
    const int nError = errno;
    report.Fail(EX_CANTCREAT, std::string(settings->port_path()) + ": " + strerror(nError));
    return false;
}

// What an unregistration leaves, for it is not this user's own, or is his word.
void WarnOfEntries(Report& report, const port_login_item_t& own) {
    port_login_item_t session;
    port_session_entry(LHelperSessionEntry, &session);
    port_login_item_t unit;
    port_user_unit(LHelperServiceUnit, &unit);
    if (own.line != nullptr)
        report.Warn(std::string("the entry that you have switched off stays: ") + own.path);
    else if (IsRegistered(session))
        report.Warn(std::string("an entry for all users still starts the helper: ") + session.path);
    else if (unit.state == PORT_LOGIN_ITEM_ON && port_service_manager_runs())
        report.Warn(std::string("a unit still starts the helper: ") + unit.path);
}

} // namespace

void Register(const Options& /*options*/, Report& report) {
    const bool bDone = SMLoginItemSetEnabled(LCFString(LHelperIdentifier).Get(), true);
    const int nError = errno;
    port_login_helper_t helper;
    port_login_helper(LHelperIdentifier, &helper);
    AddRegistration(report, helper);
    if (!bDone)
        FailToRegister(report, helper, nError);
}

void Unregister(const Options& /*options*/, Report& report) {
    const bool bDone = SMLoginItemSetEnabled(LCFString(LHelperIdentifier).Get(), false);
    const int nError = errno;
    port_login_helper_t helper;
    port_login_helper(LHelperIdentifier, &helper);
    report.AddFlag("registered", "registered", IsRegistered(helper.entry), "yes", "no");
    report.AddFlag("helperRuns", "helper", helper.process != 0, "runs", "does not run");
    // A helper that has not ended might save them again.
    if (!bDone)
        report.Fail(nError == EWOULDBLOCK ? EX_TEMPFAIL : EX_CANTCREAT,
                    std::string("the helper cannot be taken off the login: ") + strerror(nError));
    else if (RemoveSettings(report))
        WarnOfEntries(report, helper.entry);
}

void ReportRegistration(Report& report) {
    port_login_helper_t helper;
    port_login_helper(LHelperIdentifier, &helper);
    AddRegistration(report, helper);
}
