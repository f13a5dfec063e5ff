// The loads of the message benchmarks, and who carries them: a raw socket (the floor), sd-bus (the
// peer), the library.
#pragma once

#include "Processes.h"

#include <cstddef>

namespace bench {

constexpr std::size_t kSmallSize = 100; // of a small message
constexpr std::size_t kLargeSize = 64 * 1024;

// How often something is done, and where.
struct Load {
    Placement placement;
    std::size_t count;
    int pause = 0; // ms before each request
};

// Each runs its load once and gives its figure: microseconds of a round trip, messages or connections a second. What
// the pair has used is told where it is asked for.
struct Carrier {
    using Run = Sample (*)(const Load&, PairUse*);
    Run roundTrips;
    Run smallMessages;
    Run largeMessages;
    Run connects;
};

extern const Carrier kRawSocket;
extern const Carrier kLibrary;
extern const Carrier kSdBus; // where it is there

} // namespace bench
