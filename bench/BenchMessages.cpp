// Messages between two processes: a raw socket, sd-bus point to point, and the library's client and server.
#include "Driver.h"
#include "MessageLoad.h"

#include <algorithm>

namespace bench {
namespace {

constexpr std::size_t kRoundTrips = 4000;
constexpr std::size_t kSmallMessages = 100000;
constexpr std::size_t kLargeMessages = 4000;
constexpr std::size_t kConnects = 1500;
constexpr int kNowAndThen = 30; // ms between two requests

using Measure = std::function<Sample(const Carrier&, Placement)>;

void addCase(std::vector<Case>& cases, const std::string& name, const char* unit, Better better,
             Placement placement, const Measure& measure, Effort effort = {3}) {
    Case result{"xpc/" + name, unit, better, {}, effort};
    const auto row = [&](const char* carrierName, const Carrier& carrier, Whose whose = Whose::Others) {
        result.rows.push_back({carrierName, [=] { return measure(carrier, placement); }, whose});
    };
    row("floor: raw Unix stream", kRawSocket);
#ifdef BENCH_HAVE_SDBUS
    row("sd-bus, point to point", kSdBus);
#endif
    row("LXPCClient and LXPCMachServer", kLibrary, Whose::Ours);
    cases.push_back(std::move(result));
}

void addBoth(std::vector<Case>& cases, const std::string& name, const char* unit, Better better,
             const Measure& measure) {
    addCase(cases, name + ", two CPUs", unit, better, Placement::TwoCpus, measure);
    addCase(cases, name + ", one CPU", unit, better, Placement::OneCpu, measure);
}

// With the processor time of both ends for a message.
Sample stream(Carrier::Run run, const Load& load) {
    PairUse use;
    Sample sample = run(load, &use);
    sample.cpu = use.cpu / static_cast<double>(load.count);
    return sample;
}

// What more requests cost more, so that the start does not count.
Sample wakeUps(const Carrier& carrier, Placement placement) {
    constexpr std::size_t kFew = 4;
    constexpr std::size_t kMore = 20;
    PairUse few;
    PairUse many;
    carrier.roundTrips({placement, kFew, kNowAndThen}, &few);
    carrier.roundTrips({placement, kFew + kMore, kNowAndThen}, &many);
    return std::max(many.serverWakeUps - few.serverWakeUps, 0.0) / kMore;
}

const Register messages{[](std::vector<Case>& cases) {
    addBoth(cases, "round trip", "us", Better::Lower, [](const Carrier& carrier, Placement placement) {
        return carrier.roundTrips({placement, kRoundTrips}, nullptr);
    });
    addBoth(cases, "100 bytes one way", "messages/s", Better::Higher,
            [](const Carrier& carrier, Placement placement) {
                return stream(carrier.smallMessages, {placement, kSmallMessages});
            });
    addBoth(cases, "64 KiB one way", "messages/s", Better::Higher,
            [](const Carrier& carrier, Placement placement) {
                return stream(carrier.largeMessages, {placement, kLargeMessages});
            });
    addBoth(cases, "connect, request, reply, close", "connections/s", Better::Higher,
            [](const Carrier& carrier, Placement placement) {
                return carrier.connects({placement, kConnects}, nullptr);
            });
    addCase(cases, "wake-ups of a service that is asked now and then", "wake-ups a request", Better::Lower,
            Placement::TwoCpus, wakeUps, {8, 2});
}};

} // namespace
} // namespace bench
