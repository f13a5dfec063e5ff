#include "xpc/XPCConnector.h"

#include "xpc/XPCBundledService.h"
#include "xpc/XPCEndpoint.h"

#include <cerrno>

namespace port {
namespace {

constexpr std::chrono::seconds kPatience{5};

} // namespace

void XPCConnector::begin(Deadline::Time now) {
    patience_ = Deadline(kPatience, now);
    launched_ = false;
}

// Under the connection's lock, on the thread that resumes or sends, later on a worker: so an attempt does not
// wait, and the pool's clock brings the next one.
XPCConnector::Result XPCConnector::attempt(Deadline::Time now, UniqueFd& socket) {
    socket = xpcConnect(name_);
    if (socket)
        return Result::Connected;
    const int error = errno;
    return !patience_.isPast(now) && mayTryAgain(error) ? Result::TryLater : Result::GiveUp;
}

// Started once: a program that ends at once is not started again and again. While it comes up the name has its
// socket already, and who connects waits in the backlog.
bool XPCConnector::mayTryAgain(int error) {
    if (error == EAGAIN)
        return true;
    if (kind_ == Kind::Bundled && !launched_)
        launched_ = xpcLaunchBundled(name_);
    return launched_;
}

} // namespace port
