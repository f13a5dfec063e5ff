#include "LoginDecision.h"

#include <AppKit/AppKit.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <port/bsd.h>
#include <port/trust.h>
#include <sys/stat.h>
#include <unistd.h>

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

std::string TextOf(CFStringRef pText) {
    const NSRef<NSString> text = NSString::stringWithCFString(pText);
    return text ? text->UTF8String() : "";
}

// Empty when the bundle has none.
std::string ExecutableOf(CFBundleRef pBundle) {
    const LCFURL url(CFBundleCopyExecutableURL(pBundle));
    UInt8 szPath[PATH_MAX];
    if (!url || !CFURLGetFileSystemRepresentation(url.Get(), true, szPath, sizeof szPath))
        return "";
    return reinterpret_cast<const char*>(szPath);
}

// Both files decide what runs: the property list names the executable.
void LookForWriters(LLoginFacts& facts) {
    for (const std::string& sFile : {facts.sExecutable, facts.sPath + "/Contents/Info.plist"}) {
        char szItem[PATH_MAX];
        if (port_only_ours(sFile.c_str(), szItem, sizeof szItem))
            continue;
        facts.nForeignError = errno;
        facts.sForeignItem = szItem;
        return;
    }
}

void LookAtBundle(LLoginFacts& facts) {
    const LCFBundle bundle(CreateBundle(facts.sPath.c_str()));
    if (!bundle)
        return;
    facts.bBundle = true;
    facts.bInfo = CFDictionaryGetCount(CFBundleGetInfoDictionary(bundle.Get())) != 0;
    facts.sIdentifier = TextOf(CFBundleGetIdentifier(bundle.Get()));
    int nMajor = 0;
    int nMinor = 0;
    if (bundle.GetVersionNumber(nMajor, nMinor))
        facts.sVersion = std::to_string(nMajor) + "." + std::to_string(nMinor);
    facts.sExecutable = ExecutableOf(bundle.Get());
    if (facts.sExecutable.empty())
        return;
    facts.nExecutableError = access(facts.sExecutable.c_str(), X_OK) == 0 ? 0 : errno;
    LookForWriters(facts);
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

std::string CannotLookAt(const std::string& sPath, int nError) {
    return sPath + " cannot be looked at: " + strerror(nError);
}

// Everything speaks for the launch; what is launched must be there, and be what this user left there.
LLoginVerdict DecideLaunch(const LLoginFacts& facts) {
    using enum LLoginAction;
    using enum LLoginReason;
    if (facts.sExecutable.empty())
        return {Nothing, NotWhole, facts.sPath + " has no executable"};
    if (facts.nExecutableError != 0)
        return {Nothing, NotExecutable,
                facts.sExecutable + " cannot be executed: " + strerror(facts.nExecutableError)};
    if (facts.nForeignError == EPERM)
        return {Nothing, OthersMayChange, "others may change " + facts.sForeignItem};
    if (facts.nForeignError != 0)
        return {Nothing, PathUnseen, CannotLookAt(facts.sForeignItem, facts.nForeignError)};
    return {Launch, AllIsThere, "launch at login is on and version " + facts.sVersion + " is there"};
}

// Of the right version, or nothing is launched.
LLoginVerdict DecideBundle(const LLoginFacts& facts) {
    using enum LLoginAction;
    using enum LLoginReason;
    if (!facts.bBundle)
        return {Nothing, NoBundle, facts.sPath + " is no bundle"};
    if (!facts.bInfo)
        return {Nothing, NotWhole, facts.sPath + "/Contents/Info.plist is missing or damaged"};
    if (facts.sVersion.empty())
        return {Nothing, NotWhole, "the bundle tells no version"};
    if (facts.sVersion != LMainAppVersion)
        return {Nothing, OtherVersion, "version " + facts.sVersion + " is not " + LMainAppVersion};
    if (!facts.bSetting)
        return {Nothing, SettingOff, "launch at login is off"};
    return DecideLaunch(facts);
}

} // namespace

bool IsMainApplicationRunning() {
    return NSRunningApplication::port_isRunning(LMainAppIdentifier, LMainAppDisplayName);
}

LLoginFacts CollectLoginFacts(const NSUserDefaults* pSettings) {
    LLoginFacts facts;
    facts.bSystemIsRecent = IsOSMacLionOrLater();
    facts.bMainAppRuns = pSettings == nullptr;
    if (facts.bMainAppRuns)
        return facts;
    if (!pSettings->port_isReadable(&facts.nSettingsError))
        return facts;
    facts.bSetting = pSettings->boolForKey(LSettingLaunchAtLogin);
    if (const NSRef<NSString> pPath = pSettings->stringForKey(LSettingMainAppPath))
        facts.sPath = pPath->UTF8String();
    if (!facts.sPath.empty())
        LookAtPath(facts);
    return facts;
}

bool IsHelperBundle() {
    CFBundleRef pBundle = CFBundleGetMainBundle();
    return pBundle != nullptr && TextOf(CFBundleGetIdentifier(pBundle)) == LHelperIdentifier;
}

LLoginVerdict DecideLogin(const LLoginFacts& facts) {
    using enum LLoginAction;
    using enum LLoginReason;
    if (!facts.bSystemIsRecent)
        return {Quit, SystemTooOld, "the system is older than 10.7"};
    if (!facts.bOwnBundle)
        return {Nothing, OwnBundleUnknown, "cannot find my own bundle"};
    if (facts.bMainAppRuns)
        return {Serve, MainAppRuns, std::string(LMainAppDisplayName) + " is running"};
    if (facts.nSettingsError == EBADMSG)
        return {Nothing, SettingsDamaged, "the settings are damaged"};
    if (facts.nSettingsError != 0)
        return {Nothing, SettingsUnreadable,
                std::string("the settings cannot be read: ") + strerror(facts.nSettingsError)};
    if (facts.sPath.empty())
        return {Forget, SettingOff, facts.bSetting ? "no path is stored" : "launch at login is off"};
    if (IsGone(facts.nPathError))
        return {Forget, PathGone, "nothing is at " + facts.sPath + " any more, the setting is forgotten"};
    if (facts.nPathError != 0)
        return {Nothing, PathUnseen, CannotLookAt(facts.sPath, facts.nPathError)};
    return DecideBundle(facts);
}
