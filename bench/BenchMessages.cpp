// Messages between two processes: a raw socket, sd-bus point to point, and the library's client and server.
#include "Driver.h"
#include "MessageLoad.h"

namespace bench {
namespace {

using Load = Sample (*Carrier::*)(Placement);

Case messageCase(const char* name, const char* unit, Better better, Load load, Placement placement,
                 Effort effort = {3}) {
    Case result{name, unit, better, {}, effort};
    const auto row = [&](const char* carrierName, const Carrier& carrier, Whose whose = Whose::Others) {
        const auto run = carrier.*load;
        result.rows.push_back({carrierName, [run, placement] { return run(placement); }, whose});
    };
    row("floor: raw Unix stream", kRawSocket);
#if BENCH_HAVE_SDBUS
    row("sd-bus, point to point", kSdBus);
#endif
    row("LXPCClient and LXPCMachServer", kLibrary, Whose::Ours);
    return result;
}

const Register messages{[](std::vector<Case>& cases) {
    constexpr auto two = Placement::TwoCpus;
    constexpr auto one = Placement::OneCpu;
    cases.push_back(messageCase("xpc/round trip, two CPUs", "us", Better::Lower, &Carrier::roundTrip, two));
    cases.push_back(messageCase("xpc/round trip, one CPU", "us", Better::Lower, &Carrier::roundTrip, one));
    cases.push_back(messageCase("xpc/100 bytes one way, two CPUs", "messages/s", Better::Higher,
                                &Carrier::smallMessages, two));
    cases.push_back(messageCase("xpc/100 bytes one way, one CPU", "messages/s", Better::Higher,
                                &Carrier::smallMessages, one));
    cases.push_back(messageCase("xpc/64 KiB one way, two CPUs", "messages/s", Better::Higher,
                                &Carrier::largeMessages, two));
    cases.push_back(messageCase("xpc/64 KiB one way, one CPU", "messages/s", Better::Higher,
                                &Carrier::largeMessages, one));
    cases.push_back(messageCase("xpc/connect, request, reply, close, two CPUs", "connections/s",
                                Better::Higher, &Carrier::connects, two));
    cases.push_back(messageCase("xpc/connect, request, reply, close, one CPU", "connections/s",
                                Better::Higher, &Carrier::connects, one));
    cases.push_back(messageCase("xpc/wake-ups of a service that is asked now and then", "wake-ups a request",
                                Better::Lower, &Carrier::wakeUps, two, {0, 3}));
}};

} // namespace
} // namespace bench
