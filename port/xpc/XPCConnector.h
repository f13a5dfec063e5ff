// A client's way to its service: attempt after attempt, for some seconds, while there is hope.
//
// Thread-safety: none; the connection's lock covers it.
#pragma once

#include "host/Deadline.h"

#include <chrono>
#include <port/UniqueFd.h>
#include <string>
#include <utility>

namespace port {

class XPCConnector {
public:
    // A bundled service is started when nobody serves the name.
    enum class Kind { Named, Bundled };
    enum class Result {
        Connected,
        TryLater, // after kRetryAfter: the service has too many waiting, or is on its way up
        GiveUp,
    };
    static constexpr std::chrono::milliseconds kRetryAfter{2};

    XPCConnector(Kind kind, std::string name) : kind_(kind), name_(std::move(name)) {}
    // From now on there is time.
    void begin(Deadline::Time now);
    // One attempt, which does not block. `socket` is set when Connected.
    Result attempt(Deadline::Time now, UniqueFd& socket);

private:
    bool mayTryAgain(int error);

    const Kind kind_;
    const std::string name_;
    Deadline patience_{std::chrono::milliseconds::zero()}; // since `begin`
    bool launched_ = false;                                // since `begin`
};

} // namespace port
