// Messages between two processes, and TCP; what both ends do is counted together.
#include "Operations.h"

#include "../MessageLoad.h"

#include <algorithm>
#include <net/LProcessSocket.h>
#include <sys/socket.h>
#include <threads/LThread.h>

namespace counts {
namespace {

using bench::Carrier;
using bench::need;
using bench::Placement;

Work load(Carrier::Run run) {
    return [run](unsigned times) { run({Placement::OneCpu, times}, nullptr); };
}

// Of the service, while nobody counts its calls. The median of three, each what more requests cost more.
Counts wakeUps(const Carrier& carrier) {
    constexpr std::size_t kFew = 4;
    constexpr std::size_t kMore = 20;
    constexpr int kPause = 30; // ms
    double times[3];
    for (double& wakeUpsOfRequest : times) {
        bench::PairUse few;
        bench::PairUse many;
        carrier.roundTrips({Placement::OneCpu, kFew, kPause}, &few);
        carrier.roundTrips({Placement::OneCpu, kFew + kMore, kPause}, &many);
        wakeUpsOfRequest = (many.serverWakeUps - few.serverWakeUps) / kMore;
    }
    std::sort(std::begin(times), std::end(times));
    Counts counts;
    counts.wakeUps = std::max(times[1], 0.0);
    return counts;
}

// The same socket at both ends; every call asks the thread whether to stop.
void tcpRoundTrips(unsigned times) {
    int ends[2];
    need(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0, "no sockets");
    char message[100] = {};
    const auto sendOne = [&](LProcessInterface& process, int end) {
        return ProcessSend(process, LIPSocketTCPRef(end), message, sizeof message, 10000) == LProcessFinished;
    };
    const auto receiveOne = [&](LProcessInterface& process, int end) {
        char received[sizeof message];
        unsigned long got = 0;
        return ProcessRecvReady(process, LIPSocketTCPRef(end), received, sizeof received, got, 10000) ==
               LProcessFinished;
    };
    LThreadOf answers([&](LProcessInterface& process) {
        for (unsigned i = 0; i < times; ++i)
            if (!receiveOne(process, ends[1]) || !sendOne(process, ends[1]))
                return;
    });
    unsigned done = 0;
    LThreadOf asks([&](LProcessInterface& process) {
        while (done < times && sendOne(process, ends[0]) && receiveOne(process, ends[0]))
            ++done;
    });
    answers.Start(31);
    asks.Start(31);
    asks.GetFinishedSignal().WaitSignal(LNoTimeLimit);
    need(done == times, "the connection ended");
}

} // namespace

std::vector<Operation> messageOperations() {
    const auto& raw = bench::kRawSocket;
    const auto& ours = bench::kLibrary;
    return {
        {"request and reply, both sides", counted(load(ours.roundTrips)), counted(load(raw.roundTrips))},
        {"100 bytes one way, both sides", counted(load(ours.smallMessages), 1000, 5000),
         counted(load(raw.smallMessages), 1000, 5000)},
        {"64 KiB one way, both sides", counted(load(ours.largeMessages)), counted(load(raw.largeMessages))},
        {"connect, ask, reply, close, both sides", counted(load(ours.connects)), counted(load(raw.connects))},
        {"a request now and then", [&] { return wakeUps(ours); }, [&] { return wakeUps(raw); }},
        {"`ProcessSend` and `ProcessRecvReady` there and back", counted(tcpRoundTrips), {}},
    };
}

} // namespace counts
