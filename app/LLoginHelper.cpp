#include "LLoginHelper.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dispatch/dispatch.h>
#include <pthread.h>
#include <unistd.h>

#include "HelperReport.h"
#include "LLaunchTurn.h"
#include "LLoginHelperNotify.h"
#include "LoginDecision.h"
#include "LoginHelperContract.h"
#include "RuntimeFolder.h"
#include "base/LPtr.h"
#include "base/LSystemVersion.h"
#include "xpc/LXPCServer.h"

namespace {

// Not destroyed by themselves: an event may be in both when the process ends.
LPtr<LLoginHelperNotify>& pXpcNotifyee = *new LPtr<LLoginHelperNotify>;
LPtr<LXPCMachServer>& pXPCServer = *new LPtr<LXPCMachServer>;

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

// True when no event is in the server any more, nor in the sink, and none will be.
// On any thread: a peer's event, the main loop, or the end of the process. EndEvents does not wait, for the
// event that runs elsewhere may itself be about to end the process; what it is in then stays.
bool DestroyServer() {
    if (!IsOSMacLionOrLater())
        return true;
    BeginEnding();
    if (!pXPCServer)
        return true;
    if (!pXPCServer->EndEvents())
        return false;
    pXPCServer.Reset();
    return true;
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
        if (DestroyServer())
            pXpcNotifyee.Reset();
    }
};
const LServerAtExit serverAtExit;

void ForgetSetting(NSUserDefaults* pDefaults) {
    pDefaults->removeObjectForKey(LSettingLaunchAtLogin);
    pDefaults->removeObjectForKey(LSettingMainAppPath);
    if (!pDefaults->synchronize())
        HelperReport("the settings could not be saved: %s", strerror(errno));
}

// Of the main thread; the other line went out when it is set.
bool bNotServing = false;

void ReportServing() {
    if (!bNotServing)
        HelperReport("serving %s", LHelperServiceName);
}

void ReportNotServing(int nError) {
    bNotServing = true;
    const LRuntimeFolder folder = LookAtRuntimeFolder();
    if (!folder.sProblem.empty())
        HelperReport("not serving: %s", folder.sProblem.c_str());
    else if (nError == EADDRINUSE)
        HelperReport("not serving: another helper or program has %s in %s", LHelperServiceName,
                     folder.sPath.c_str());
    else
        HelperReport("not serving: %s in %s: %s", LHelperServiceName, folder.sPath.c_str(), strerror(nError));
}

void Launch(const char* szPath, const LLaunchTurn& turn) {
    if (const char* szObstacle = turn.GetObstacle()) {
        HelperReport("not launched: %s", szObstacle);
        return;
    }
    HelperReport("launching %s", szPath);
    if (!NSWorkspace::sharedWorkspace()->launchApplication(szPath)) {
        HelperReport("not launched: %s: %s", szPath, strerror(errno));
        return;
    }
    turn.NoteLaunch();
    HelperReport("launched %s", szPath);
}

} // namespace

LXPCMachServer* LLoginHelper::getXPCServer() const {
    return pXPCServer.Get();
}

// Called from events too, on a worker; `exit` then runs while the main thread is in its loop.
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
    // `Start` serves the main queue once it has the service: whoever reads the line may connect.
    dispatch_async(dispatch_get_main_queue(), ReportServing);
    if (!pXPCServer->Start(LHelperServiceName))
        ReportNotServing(errno);
}

BOOL LLoginHelper::isMainAppRunning() const {
    return IsMainApplicationRunning();
}

void LLoginHelper::launchMainApp(const LLoginFacts& facts, const LLoginVerdict& verdict,
                                 const LLaunchTurn& turn) {
    if (verdict.eAction == LLoginAction::Launch) {
        Launch(facts.sPath.c_str(), turn);
        return;
    }
    HelperReport("not launched: %s", verdict.sWhy.c_str());
    if (verdict.eAction == LLoginAction::Forget)
        ForgetSetting(NSUserDefaults::standardUserDefaults());
}

void LLoginHelper::_CreateSink() {
    // Before the server, whose events use it, and for as long as one may run.
    pXpcNotifyee.Reset(new LLoginHelperNotify(this));
}

void LLoginHelper::applicationDidFinishLaunching(const NSNotification&) {
    LLaunchTurn turn; // from a look at what runs until the launched application is among it
    bool bRuns = isMainAppRunning();
    if (!bRuns) {
        turn.Take();
        bRuns = isMainAppRunning(); // by now another helper may have launched it
    }
    LLoginFacts facts = CollectLoginFacts(bRuns ? nullptr : NSUserDefaults::standardUserDefaults());
    facts.bOwnBundle = IsHelperBundle();
    const LLoginVerdict verdict = DecideLogin(facts);
    if (verdict.eAction == LLoginAction::Quit) {
        HelperReport("not launched: %s", verdict.sWhy.c_str());
        shutdownHelper();
    }
    _CreateSink();
    if (verdict.eAction == LLoginAction::Serve) {
        turn.End();
        startXPCServer();
    } else {
        launchMainApp(facts, verdict, turn);
    }
}

void LLoginHelper::applicationWillTerminate(const NSNotification&) {
    DestroyServer();
}
