// Long runs: at their end memory, descriptors and threads are what they were near the beginning.
//
// usage: soak [PART-OF-A-NAME]     0: nothing grew; 1: something did, or was not done
#include "../Processes.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dispatch/dispatch.h>
#include <filesystem>
#include <fstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <threads/LProcessEventsHandler.h>
#include <threads/LThread.h>
#include <threads/LThreadRunOnMainThread.h>
#include <unistd.h>
#include <xpc/LXPCClient.h>
#include <xpc/LXPCServer.h>

namespace soak {
namespace {

using bench::need;

constexpr unsigned kMessages = 10'000'000;
constexpr unsigned kConnections = 100'000;
constexpr unsigned kThreads = 100'000;
constexpr unsigned kPosts = 1'000'000;
constexpr unsigned kWarm = 10;     // the first look comes after a tenth of a run
constexpr long kMostGrowth = 1024; // KiB; what the heap keeps differs by as much
constexpr unsigned kWindow = 2048; // messages on their way
constexpr unsigned kUnits = 1000;  // posted at a time
constexpr char kService[] = "bench.soak";

// What a process holds.
struct State {
    long kib = 0;
    long descriptors = 0;
    long threads = 0;
};

long countOf(const std::string& folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

State stateOf(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    State state;
    std::ifstream in(folder + "/status");
    for (std::string line; std::getline(in, line);)
        if (line.starts_with("VmRSS:"))
            state.kib = std::atol(line.c_str() + std::strlen("VmRSS:"));
    state.descriptors = countOf(folder + "/fd");
    state.threads = countOf(folder + "/task");
    return state;
}

bool report(const char* run, const char* who, const State& before, const State& after) {
    const bool bGrew = after.kib > before.kib + kMostGrowth || after.descriptors > before.descriptors + 1 ||
                       after.threads > before.threads + 1;
    std::printf("%-28s %-8s %7ld -> %7ld KiB  %4ld -> %4ld descriptors  %3ld -> %3ld threads%s\n", run, who,
                before.kib, after.kib, before.descriptors, after.descriptors, before.threads, after.threads,
                bGrew ? "   GREW" : "");
    std::fflush(stdout);
    return !bGrew;
}

// ---- In one process ----

// `round` is done so often; looked at after a part of them and at the end.
bool runAlone(const char* name, unsigned rounds, const std::function<void()>& round) {
    State before;
    for (unsigned i = 0; i < rounds; ++i) {
        if (i == rounds / kWarm)
            before = stateOf(getpid());
        round();
    }
    return report(name, "", before, stateOf(getpid()));
}

bool threads() {
    return runAlone("100,000 threads", kThreads, [] {
        LThreadOf thread([](LProcessInterface&) {});
        thread.Start(31);
        need(thread.GetFinishedSignal().WaitSignal(LNoTimeLimit), "no thread");
    });
}

unsigned handled = 0; // by the main thread

struct Unit final : LThreadRunOnMainThreadData {
    void MainThreadFunction() override { ++handled; }
};

struct Until final : LProcessEventsHandler {
    bool IsProcessEventHandlerToStop() const override { return handled >= kUnits; }
};

bool posts() {
    LThreadRunOnMainThread::Init();
    return runAlone("1,000,000 posts", kPosts / kUnits, [] {
        LThreadRunOnMainThread target;
        handled = 0;
        LThreadOf poster([&](LProcessInterface&) {
            for (unsigned i = 0; i < kUnits; ++i)
                target.RunOnMainThread(new Unit);
        });
        poster.Start(31);
        Until().ProcessWaitForeverAndProcessEvents();
        poster.GetFinishedSignal().WaitSignal(LNoTimeLimit);
        target.ThreadRunOnMainThreadDestroy();
    });
}

// ---- Between two processes ----

LXPCData item(const char* szKey) {
    LXPCData data;
    std::strncpy(data.szName, szKey, sizeof data.szName - 1);
    data.eType = LXPCDataTypeBool;
    data.nValue = 1;
    return data;
}

// Answers questions; what is told it only receives, and what is left open it never answers.
struct Service final : LXPCServerEventNotify {
    LXPCMachServer server{this};

    Service() {
        for (const char* szKey : {"question", "told", "open"})
            server.AddKey(szKey, LXPCDataTypeBool);
    }
    void EvConnectionError(long connection, LXPCErrorType) override { server.Disconnect(connection); }
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override {
        if (std::strcmp(items.GetFirst()->szName, "question") != 0)
            return;
        LList<LXPCDataListable> reply;
        reply.AddHead(new LXPCDataListable(item("answer")));
        server.SendReply(connection, message, reply);
    }
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {}
    void EvMessageSent(long) override {}
    void EvInvalidConnectionAttempt() override { std::_Exit(EXIT_FAILURE); }
};

// The client's side of a run, on the main queue; it looks at both processes.
class Client : public LXPCEventNotify {
public:
    Client(const char* theName, unsigned theRounds, pid_t theService)
        : name(theName), rounds(theRounds), service(theService) {
        client.AddKey("answer", LXPCDataTypeBool);
    }
    virtual ~Client() = default;
    void connect() { need(client.Connect(kService, 1, true), "no connection"); }
    void send(const char* szKey, bool bAsks) {
        const LXPCData data = item(szKey);
        client.SendMessage(kService, 1, &data, 1, bAsks);
    }

    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvMessageSent(long) override {}

protected:
    // After each round.
    void look(unsigned done) {
        if (ours.kib == 0 && done >= rounds / kWarm) {
            ours = stateOf(getpid());
            theirs = stateOf(service);
        }
        if (done < rounds)
            return;
        usleep(200'000); // what the other end has still to close
        const bool bPassed = report(name, "client", ours, stateOf(getpid()));
        std::_Exit(report(name, "service", theirs, stateOf(service)) && bPassed ? EXIT_SUCCESS
                                                                                : EXIT_FAILURE);
    }

    LXPCClient client{this};
    const char* const name;
    const unsigned rounds;
    const pid_t service;
    State ours;
    State theirs;
};

// Messages that nobody answers, a window of them at a time, behind a question that is never answered either.
class Teller final : public Client {
public:
    explicit Teller(pid_t process) : Client("10,000,000 messages", kMessages, process) {
        connect();
        send("open", true);
        tell();
    }
    void EvConnectionError(long, LXPCErrorType) override { std::_Exit(EXIT_FAILURE); }
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {
        told += kWindow;
        look(told);
        tell();
    }

private:
    void tell() {
        for (unsigned i = 1; i < kWindow; ++i)
            send("told", false);
        send("question", true);
    }
    unsigned told = 0;
};

class Connector final : public Client {
public:
    explicit Connector(pid_t process) : Client("100,000 connections", kConnections, process) { ask(); }
    void EvConnectionError(long, LXPCErrorType) override {} // of those that it has ended
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {
        client.Disconnect(kService, 1);
        look(++done);
        ask();
    }

private:
    void ask() {
        connect();
        send("question", true);
    }
    unsigned done = 0;
};

template <typename One>
bool betweenTwo() {
    const bench::ScratchFolder folder;
    setenv("XDG_RUNTIME_DIR", folder.path().c_str(), 1);
    const auto child = [](auto body) {
        const pid_t process = fork();
        if (process == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            body();
        }
        return process;
    };
    const pid_t service = child([] {
        Service served;
        served.server.Start(kService);
        std::_Exit(EXIT_FAILURE);
    });
    while (!std::filesystem::exists(folder.path() + "/port-xpc/" + kService + ".sock"))
        usleep(1000);
    const pid_t client = child([service] {
        const One one(service);
        dispatch_main();
    });
    int status = 0;
    waitpid(client, &status, 0);
    kill(service, SIGKILL);
    waitpid(service, nullptr, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

constexpr struct {
    const char* name;
    bool (*run)();
} kRuns[] = {{"messages", betweenTwo<Teller>},
             {"connections", betweenTwo<Connector>},
             {"threads", threads},
             {"posts", posts}};

// In a process of its own, so that none sees what another has left.
bool runApart(bool (*run)()) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        std::_Exit(run() ? EXIT_SUCCESS : EXIT_FAILURE);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

} // namespace
} // namespace soak

int main(int argc, char** argv) {
    bool bPassed = true;
    for (const auto& one : soak::kRuns)
        if (argc < 2 || std::strstr(one.name, argv[1]) != nullptr) {
            const auto start = bench::Clock::now();
            const bool bOne = soak::runApart(one.run);
            std::printf("%-28s %s after %.0f s\n", one.name, bOne ? "done" : "FAILED",
                        bench::nanosecondsSince(start) * 1e-9);
            bPassed = bOne && bPassed;
        }
    return bPassed ? EXIT_SUCCESS : EXIT_FAILURE;
}
