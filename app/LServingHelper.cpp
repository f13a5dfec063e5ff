#include "LServingHelper.h"

#include <cstdlib>
#include <port/idle.h>
#include <sysexits.h>

#include "HelperReport.h"
#include "LoginDecision.h"
#include "base/LSystemVersion.h"

namespace {

constexpr unsigned kIdleSeconds = 5; // a start takes milliseconds, so that a helper is not kept for long

void EndIdle() {
    HelperReport("nobody asks any more: ending");
    NSApplication::sharedApplication()->terminate();
}

} // namespace

void LServingHelper::applicationDidFinishLaunching(const NSNotification&) {
    if (!IsOSMacLionOrLater()) {
        HelperReport("not serving: the system is older than 10.7");
        shutdownHelper();
    }
    if (!IsHelperBundle()) {
        HelperReport("not serving: cannot find my own bundle");
        exit(EX_UNAVAILABLE);
    }
    _CreateSink();
    if (!port_when_idle(kIdleSeconds, EndIdle))
        HelperReport("no timer: serving without end");
    startXPCServer();
    exit(EX_UNAVAILABLE);
}
