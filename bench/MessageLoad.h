// The four loads of the message benchmarks, and who carries them: a raw socket (the floor), sd-bus (the
// peer), the library.
#pragma once

#include "Processes.h"

#include <cstddef>

namespace bench {

constexpr std::size_t kRoundTrips = 4000;
constexpr std::size_t kSmallMessages = 100000; // of kSmallSize bytes
constexpr std::size_t kLargeMessages = 4000;   // of kLargeSize bytes
constexpr std::size_t kConnects = 1500;
constexpr std::size_t kSmallSize = 100;
constexpr std::size_t kLargeSize = 64 * 1024;

// Each runs its load once and gives its figure: microseconds of a round trip, messages or connections a second, for
// streams with the processor time.
struct Carrier {
    Sample (*roundTrip)(Placement);
    Sample (*smallMessages)(Placement);
    Sample (*largeMessages)(Placement);
    Sample (*connects)(Placement);
    Sample (*wakeUps)(Placement); // of the server, for a request now and then
};

extern const Carrier kRawSocket;
extern const Carrier kLibrary;
#if BENCH_HAVE_SDBUS
extern const Carrier kSdBus;
#endif

} // namespace bench
