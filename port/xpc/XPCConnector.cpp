#include "xpc/XPCConnector.h"

#include "xpc/XPCBundledService.h"
#include "xpc/XPCEndpoint.h"

#include <cerrno>

namespace port {
namespace {

constexpr std::chrono::seconds kPatience{5};

} // namespace

void XPCConnector::begin(Clock::time_point now) {
    giveUpAt_ = now + kPatience;
    launched_ = false;
}

XPCConnector::Result XPCConnector::attempt(Clock::time_point now, UniqueFd& socket) {
    socket = xpcConnect(name_);
    if (socket)
        return Result::Connected;
    const int error = errno;
    return now < giveUpAt_ && mayTryAgain(error) ? Result::TryLater : Result::GiveUp;
}

bool XPCConnector::mayTryAgain(int error) {
    if (error == EAGAIN)
        return true;
    if (kind_ == Kind::Bundled && !launched_)
        launched_ = xpcLaunchBundled(name_);
    return launched_;
}

} // namespace port
