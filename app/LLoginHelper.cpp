#include "LLoginHelper.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <unistd.h>

#include "HelperReport.h"
#include "LLoginHelperNotify.h"
#include "LoginHelperContract.h"
#include "base/LLimits.h"
#include "base/LPtr.h"
#include "base/LSystemVersion.h"
#include "platform/LCFBundle.h"
#include "platform/LCFString.h"
#include "platform/LCFURL.h"
#include "strings/LStringFormat.h"
#include "xpc/LXPCServer.h"
#include <port/bsd.h>

namespace {

// In this order: at exit the server is destroyed before the sink that it calls.
LPtr<LLoginHelperNotify> pXpcNotifyee;
LPtr<LXPCMachServer> pXPCServer;

// Events ask for the server on their own threads while another one ends the helper.
constinit std::mutex mutexServer;

// True for the first thread that ends the process.
bool IsEndingThread() {
    static constinit std::atomic<pthread_t> endingThread{};
    pthread_t first{};
    return endingThread.compare_exchange_strong(first, pthread_self()) ||
           pthread_equal(first, pthread_self());
}

// The first thread goes on; later ones must neither destroy anything twice nor return.
void BeginEnding() {
    while (!IsEndingThread())
        pause();
}

void DestroyServer() {
    if (!IsOSMacLionOrLater())
        return;
    BeginEnding();
    LPtr<LXPCMachServer> pEnding; // destroyed without the lock: it waits for events, and those take the lock
    const std::lock_guard lock(mutexServer);
    pEnding.Reset(pXPCServer.Release());
}

// A signal ends the process without asking the delegate. Where another thread is ending it already, that one
// may be waiting for this one to leave `exit`.
struct LServerAtExit {
    LServerAtExit() = default;
    LServerAtExit(const LServerAtExit&) = delete;
    LServerAtExit& operator=(const LServerAtExit&) = delete;
    ~LServerAtExit() {
        if (!IsEndingThread())
            _exit(EXIT_SUCCESS);
        DestroyServer();
    }
};
const LServerAtExit serverAtExit;

void ForgetSetting(NSUserDefaults* pDefaults) {
    pDefaults->removeObjectForKey(LSettingLaunchAtLogin);
    pDefaults->removeObjectForKey(LSettingMainAppPath);
    if (!pDefaults->synchronize())
        HelperReport("the settings could not be saved");
}

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

bool HasExpectedVersion(const LCFBundle& bundle) {
    int nMajor = 0;
    int nMinor = 0;
    bundle.GetVersionNumber(nMajor, nMinor);
    char szVersion[LPathBufferSize];
    tplsnprintf(szVersion, sizeof szVersion, "%d.%d", nMajor, nMinor);
    if (strcmp(szVersion, LMainAppVersion) == 0)
        return true;
    HelperReport("not launched: version %s is not %s", szVersion, LMainAppVersion);
    return false;
}

void ReportMissing(const NSString* pPath) {
    if (pPath == nullptr)
        HelperReport("not launched: launch at login is off");
    else
        HelperReport("not launched: nothing is at %s any more, the setting is forgotten",
                     pPath->UTF8String());
}

} // namespace

LXPCMachServer* LLoginHelper::getXPCServer() const {
    const std::lock_guard lock(mutexServer);
    return pXPCServer.Get();
}

void LLoginHelper::shutdownHelper() {
    DestroyServer();
    exit(EXIT_SUCCESS);
}

void LLoginHelper::startXPCServer() {
    pXPCServer.Reset(new LXPCMachServer(pXpcNotifyee.Get())); // no event can ask for it yet
    pXPCServer->AddKey(LKeyTestConnection, LXPCDataTypeBool);
    pXPCServer->AddKey(LKeyNewConnection, LXPCDataTypeBool);
    pXPCServer->AddKey(LKeyMainAppBundleId, LXPCDataTypeString);
    pXPCServer->AddKey(LKeyMainAppBundlePath, LXPCDataTypeString);
    pXPCServer->AddKey(LKeyLaunchAtLogin, LXPCDataTypeBool);
    pXPCServer->AddKey(LKeyQueryLaunchAtLogin, LXPCDataTypeBool);
    pXPCServer->AddKey(LKeyShutdownHelper, LXPCDataTypeBool);
    HelperReport("%s is running: serving %s", LMainAppDisplayName, LHelperServiceName);
    if (!pXPCServer->Start(LHelperServiceName))
        HelperReport("not serving: the service cannot be created or another helper has it");
}

BOOL LLoginHelper::isMainAppRunning() const {
    for (const auto& pApplication :
         NSRunningApplication::runningApplicationsWithBundleIdentifier(LMainAppIdentifier))
        if (pApplication->localizedName().isEqualToString(LMainAppDisplayName))
            return YES;
    return NO;
}

void LLoginHelper::launchMainApp() {
    NSUserDefaults* pDefaults = NSUserDefaults::standardUserDefaults();
    const NSRef<NSString> pPath = pDefaults->stringForKey(LSettingMainAppPath);
    if (!pPath || !NSFileManager::defaultManager()->fileExistsAtPath(pPath->UTF8String())) {
        ReportMissing(pPath.get());
        ForgetSetting(pDefaults);
        return;
    }
    const char* szPath = pPath->UTF8String();
    const LCFBundle bundle(CreateBundle(szPath));
    if (!bundle) {
        HelperReport("not launched: %s is no bundle", szPath);
        return;
    }
    if (!HasExpectedVersion(bundle))
        return;
    if (!pDefaults->boolForKey(LSettingLaunchAtLogin)) {
        HelperReport("not launched: launch at login is off");
        return;
    }
    HelperReport("launching %s", szPath);
    NSWorkspace::sharedWorkspace()->launchApplication(szPath);
}

void LLoginHelper::applicationDidFinishLaunching(const NSNotification&) {
    if (!IsOSMacLionOrLater()) {
        HelperReport("not launched: the system is older than 10.7");
        shutdownHelper();
    }
    pXpcNotifyee.Reset(new LLoginHelperNotify(this));
    if (isMainAppRunning())
        startXPCServer();
    else
        launchMainApp();
}

void LLoginHelper::applicationWillTerminate(const NSNotification&) {
    DestroyServer();
}
