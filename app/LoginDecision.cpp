#include "LoginDecision.h"

#include <AppKit/AppKit.h>
#include <cerrno>
#include <cstring>
#include <port/bsd.h>
#include <sys/stat.h>

#include "LoginHelperContract.h"
#include "base/LLimits.h"
#include "base/LSystemVersion.h"
#include "platform/LCFBundle.h"
#include "platform/LCFString.h"
#include "platform/LCFURL.h"

namespace {

// The bundle at a folder's path; none when there is no folder, or the path is longer than a path may be.
CFBundleRef CreateBundle(const char* szPath) {
    char szBundlePath[LPathBufferSize];
    if (strlcpy(szBundlePath, szPath, sizeof szBundlePath) >= sizeof szBundlePath)
        return nullptr;
    const LCFString lsPath(szBundlePath);
    const LCFURL url(
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, lsPath.Get(), kCFURLPOSIXPathStyle, true));
    return url ? CFBundleCreate(kCFAllocatorDefault, url.Get()) : nullptr;
}

void LookAtBundle(LLoginFacts& facts) {
    const LCFBundle bundle(CreateBundle(facts.sPath.c_str()));
    facts.bBundle = static_cast<bool>(bundle);
    int nMajor = 0;
    int nMinor = 0;
    if (bundle.GetVersionNumber(nMajor, nMinor))
        facts.sVersion = std::to_string(nMajor) + "." + std::to_string(nMinor);
}

void LookAtPath(LLoginFacts& facts) {
    struct stat status;
    facts.nPathError = stat(facts.sPath.c_str(), &status) == 0 ? 0 : errno;
    if (facts.nPathError == 0)
        LookAtBundle(facts);
}

// True when nothing can be there. Of any other failure nobody knows whether it lasts.
bool IsGone(int nPathError) {
    return nPathError == ENOENT || nPathError == ENOTDIR;
}

} // namespace

bool IsMainApplicationRunning() {
    for (const auto& pApplication :
         NSRunningApplication::runningApplicationsWithBundleIdentifier(LMainAppIdentifier))
        if (pApplication->localizedName().isEqualToString(LMainAppDisplayName))
            return true;
    return false;
}

LLoginFacts CollectLoginFacts(const NSUserDefaults& settings, bool bMainAppRuns) {
    LLoginFacts facts;
    facts.bSystemIsRecent = IsOSMacLionOrLater();
    facts.bMainAppRuns = bMainAppRuns;
    if (bMainAppRuns)
        return facts;
    facts.bSetting = settings.boolForKey(LSettingLaunchAtLogin);
    if (const NSRef<NSString> pPath = settings.stringForKey(LSettingMainAppPath))
        facts.sPath = pPath->UTF8String();
    if (!facts.sPath.empty())
        LookAtPath(facts);
    return facts;
}

LLoginVerdict DecideLogin(const LLoginFacts& facts) {
    using enum LLoginAction;
    if (!facts.bSystemIsRecent)
        return {Quit, "the system is older than 10.7"};
    if (facts.bMainAppRuns)
        return {Serve, std::string(LMainAppDisplayName) + " is running"};
    if (facts.sPath.empty())
        return {Forget, facts.bSetting ? "no path is stored" : "launch at login is off"};
    if (IsGone(facts.nPathError))
        return {Forget, "nothing is at " + facts.sPath + " any more, the setting is forgotten"};
    if (facts.nPathError != 0)
        return {Nothing, facts.sPath + " cannot be looked at: " + strerror(facts.nPathError)};
    if (!facts.bBundle)
        return {Nothing, facts.sPath + " is no bundle"};
    if (facts.sVersion.empty())
        return {Nothing, "the bundle tells no version"};
    if (facts.sVersion != LMainAppVersion)
        return {Nothing, "version " + facts.sVersion + " is not " + LMainAppVersion};
    if (!facts.bSetting)
        return {Nothing, "launch at login is off"};
    return {Launch, "launch at login is on and version " + facts.sVersion + " is there"};
}
