#include "StartAtLogin.h"

#include <ServiceManagement/ServiceManagement.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <platform/LCFBundle.h>
#include <platform/LCFString.h>
#include <platform/LCFURL.h>
#include <port/login_helper.h>

#include "HelperQuestion.h"

namespace {

port_login_helper_t LookAtHelper() {
    port_login_helper_t helper;
    port_login_helper(LHelperIdentifier, &helper);
    return helper;
}

bool IsRegistered(const port_login_helper_t& helper) {
    return helper.entry.state == PORT_LOGIN_ITEM_ON || helper.entry.state == PORT_LOGIN_ITEM_LEFT;
}

// Registers the helper of this bundle, or makes sure that it still is and serves. What is wrong; empty when all is
// well.
std::string Register() {
    if (SMLoginItemSetEnabled(LCFString(LHelperIdentifier).Get(), true))
        return "";
    const int nError = errno;
    const port_login_helper_t helper = LookAtHelper();
    return helper.error != 0 ? helper.obstacle : std::string("the helper: ") + std::strerror(nError);
}

// A helper may end at any moment: in an update, or because the user ends it. Then another one is started, and asked
// again.
std::optional<bool> Ask(std::initializer_list<LXPCData> items) {
    const std::optional<bool> answer = HelperQuestion().Ask(items);
    return answer || !Register().empty() ? answer : HelperQuestion().Ask(items);
}

std::string OwnBundle() {
    char szPath[PATH_MAX];
    LCFURL(CFBundleCopyBundleURL(CFBundleGetMainBundle())).GetPath(szPath, sizeof szPath);
    return szPath;
}

std::string VersionOf(const char* szBundle) {
    LCFURL url;
    url.CreateFromFullPath(szBundle);
    int nMajor = 0;
    int nMinor = 0;
    LCFBundle(CFBundleCreate(kCFAllocatorDefault, url.Get())).GetVersionNumber(nMajor, nMinor);
    return std::to_string(nMajor) + "." + std::to_string(nMinor);
}

} // namespace

std::string StartAtLogin::Resume() {
    const port_login_helper_t helper = LookAtHelper();
    if (!IsRegistered(helper))
        return "";
    std::string sTold;
    if (helper.process != 0 && std::strcmp(helper.running, helper.bundle) != 0)
        sTold = "the helper " + VersionOf(helper.running) + " in " + helper.running + " gives way to " +
                VersionOf(helper.bundle) + " of this application";
    const std::string sWrong = Register();
    return sWrong.empty() ? sTold : sWrong;
}

std::string StartAtLogin::Set(bool bOn) {
    if (std::string sWrong = bOn ? Register() : ""; !sWrong.empty())
        return sWrong;
    const std::string sBundle = OwnBundle(); // absolute: the helper starts in another folder
    const std::optional<bool> answer = Ask({HelperQuestion::Flag(LKeyLaunchAtLogin, bOn),
                                            HelperQuestion::Text(LKeyMainAppBundlePath, sBundle.c_str())});
    if (answer != bOn)
        return "the helper did not take the setting";
    // The setting first: an entry for all users may start a helper, too.
    if (!bOn && !SMLoginItemSetEnabled(LCFString(LHelperIdentifier).Get(), false))
        return std::string("the helper: ") + std::strerror(errno);
    return "";
}

bool StartAtLogin::IsOn() {
    return IsRegistered(LookAtHelper()) &&
           Ask({HelperQuestion::Flag(LKeyQueryLaunchAtLogin, true)}).value_or(false);
}

std::string StartAtLogin::Describe() {
    const bool bOn = IsOn();
    const port_login_helper_t helper = LookAtHelper();
    std::string sText = bOn ? "on" : "off";
    if (helper.obstacle[0] != '\0')
        sText += std::string(", and cannot be switched on: ") + helper.obstacle;
    if (helper.process != 0)
        sText += std::string("; the helper ") + VersionOf(helper.running) +
                 (helper.serves ? " serves" : " is idle");
    return sText;
}
