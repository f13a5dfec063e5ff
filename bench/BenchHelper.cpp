// The idle helper beside a do-nothing poll loop and a service on sd-bus: start to serving, memory,
// threads, wake-ups. And the helper at work: how long others wait while some keep it saving.
#include "Driver.h"
#include "Processes.h"

#include <LoginHelperContract.h>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>
#include <xpc/LXPCClient.h>

extern char** environ;

namespace bench {
namespace {

constexpr int kIdleSeconds = 3;
constexpr double kMostStart = 2e9; // ns
constexpr unsigned kSettleMicroseconds = 100'000;

// On a CPU of its own, where there are two; what it says is not shown.
pid_t spawn(const std::string& program, const char* argument = nullptr) {
    char* const argv[] = {const_cast<char*>(program.c_str()), const_cast<char*>(argument), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    pid_t child = -1;
    const Pinned inherited(0);
    const int error = posix_spawn(&child, program.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    need(error == 0, "the program cannot be started");
    return child;
}

void end(pid_t child) {
    if (child <= 0)
        return;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

bool connects(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return connected;
}

// Connections to the helper, all on the main thread.
struct Peer final : LXPCEventNotify {
    LXPCClient client{this};
    std::function<void(long connection, bool value)> onReply;

    explicit Peer(unsigned long connections) {
        for (const char* key : {LReplyLaunchAtLogin, LReplyQueryLaunchAtLogin})
            client.AddKey(key, LXPCDataTypeBool);
        for (unsigned long number = 1; number <= connections; ++number)
            client.Connect(LHelperServiceName, number, true);
    }
    static LXPCData flag(const char* key, bool value) {
        LXPCData item;
        std::strncpy(item.szName, key, sizeof item.szName - 1);
        item.eType = LXPCDataTypeBool;
        item.nValue = value ? 1 : 0;
        return item;
    }
    void EvConnectionError(long, LXPCErrorType) override { failAndExit("the connection ended"); }
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) override {
        onReply(connection, items.GetFirst()->nValue != 0);
    }
    void EvMessageSent(long) override {}
};

// In a process of its own, whose end is the answer.
void askHelper() {
    measurePair(
        Placement::OneCpu, [] { pause(); },
        []() -> Sample {
            Peer peer(1);
            const LXPCData query = Peer::flag(LKeyQueryLaunchAtLogin, true);
            peer.onReply = [](long, bool) { reportAndExit(0); };
            peer.client.SendMessage(LHelperServiceName, 1, &query, 1, true);
            dispatch_main();
        });
}

// One started service: its private home and runtime folder, and for the helper a running main application.
class Service {
public:
    // Ready means that it answers a connection, or, so that it meets none before it is looked at, that its
    // socket is there.
    enum class Ready { Answers, IsThere };
    explicit Service(const char* program, Ready ready = Ready::IsThere)
        : helper_(std::strcmp(program, BENCH_HELPER) == 0) {
        setenv("HOME", folder_.path().c_str(), 1);
        setenv("XDG_CONFIG_HOME", (folder_.path() + "/config").c_str(), 1);
        setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1);
        socket_ =
            folder_.path() + (helper_ ? std::string("/port-xpc/") + LHelperServiceName + ".sock" : "/socket");
        if (helper_) {
            application_ = spawn(BENCH_MAIN_APPLICATION);
            usleep(50'000);
        }
        const Pinned aside(1); // who looks without pause is not to stand in the way
        const auto start = Clock::now();
        child_ = spawn(program, helper_ ? nullptr : socket_.c_str());
        while (!(ready == Ready::Answers ? connects(socket_) : access(socket_.c_str(), F_OK) == 0))
            if (nanosecondsSince(start) > kMostStart) {
                stop();
                throw Failure("it does not serve");
            }
        startMilliseconds_ = nanosecondsSince(start) * 1e-6;
    }
    ~Service() { stop(); }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Has it answer once: the helper a question, the others a connection.
    void ask() const {
        if (helper_)
            askHelper();
        else
            need(connects(socket_), "no connection");
    }
    double startMilliseconds() const { return startMilliseconds_; }

    // Sum of the numbers behind `name` in a /proc file of the process.
    double sum(const char* file, const char* name) const {
        std::ifstream in("/proc/" + std::to_string(child_) + "/" + file);
        double total = 0;
        for (std::string line; std::getline(in, line);)
            if (line.rfind(name, 0) == 0)
                total += std::strtod(line.c_str() + line.find(':') + 1, nullptr);
        return total;
    }
    // What only this process pays for: its file pages come back from the file.
    double dirtyKib() const { return sum("smaps_rollup", "Private_Dirty"); }
    double residentKib() const { return sum("smaps_rollup", "Rss"); }
    double threads() const { return sum("status", "Threads"); }
    double wakeUps() const {
        double total = 0;
        for (const auto& task :
             std::filesystem::directory_iterator("/proc/" + std::to_string(child_) + "/task"))
            total += sum(("task/" + task.path().filename().string() + "/status").c_str(),
                         "voluntary_ctxt_switches");
        return total;
    }

private:
    void stop() const {
        end(child_);
        end(application_);
    }

    ScratchFolder folder_;
    bool helper_;
    std::string socket_;
    pid_t application_ = -1;
    pid_t child_ = -1;
    double startMilliseconds_ = kUnknown;
};

double startMilliseconds(const char* program) {
    return Service(program, Service::Ready::Answers).startMilliseconds();
}

// A while after the start, or after an answer, when who has answered is still there.
template <double (Service::*kFigure)() const, bool kAsked = false>
double later(const char* program) {
    const Service service(program);
    usleep(kSettleMicroseconds);
    if (kAsked) {
        service.ask();
        usleep(kSettleMicroseconds);
    }
    return (service.*kFigure)();
}

// One more than the wake-ups, so that a ratio to a floor of none is still a number.
double wakeUpsAndOne(const char* program) {
    const Service service(program);
    usleep(200'000);
    const double before = service.wakeUps();
    sleep(kIdleSeconds);
    return 1 + service.wakeUps() - before;
}

constexpr unsigned long kTogglers = 64 / 2; // connections of each of two processes: one may not have them all
constexpr int kWaiting = 16;                // questions of each at a time
constexpr std::size_t kQuestions = 1000;
constexpr auto kWarmUp = std::chrono::milliseconds(500);
constexpr auto kPause = std::chrono::milliseconds(2); // between two questions

// Each connection asks for the other setting as soon as one is saved, with more questions on their way.
void toggle() {
    if (fork() == 0)
        prctl(PR_SET_PDEATHSIG, SIGKILL);
    Peer peer(kTogglers);
    const LXPCData path = [] {
        LXPCData item = Peer::flag(LKeyMainAppBundlePath, false);
        item.eType = LXPCDataTypeString;
        item.nValue = reinterpret_cast<long>(LMainAppDefaultPath);
        return item;
    }();
    peer.onReply = [&](long connection, bool value) {
        LList<LXPCDataListable> items;
        items.AddHead(new LXPCDataListable(Peer::flag(LKeyLaunchAtLogin, !value)));
        items.AddHead(new LXPCDataListable(path));
        peer.client.LXPCBase::SendMessage(connection, items, true);
    };
    const LXPCData off = Peer::flag(LKeyLaunchAtLogin, false);
    for (unsigned long number = 1; number <= kTogglers; ++number)
        for (int waiting = 0; waiting < kWaiting; ++waiting)
            peer.client.SendMessage(LHelperServiceName, number, &off, 1, true);
    dispatch_main();
}

// Of the times from a question to its answer, in ms.
Sample percentile99() {
    std::this_thread::sleep_for(kWarmUp);
    Peer peer(1);
    std::vector<double> times;
    Clock::time_point start;
    const LXPCData query = Peer::flag(LKeyQueryLaunchAtLogin, true);
    const auto ask = [&] {
        std::this_thread::sleep_for(kPause);
        start = Clock::now();
        peer.client.SendMessage(LHelperServiceName, 1, &query, 1, true);
    };
    peer.onReply = [&](long, bool) {
        times.push_back(nanosecondsSince(start) * 1e-6);
        if (times.size() < kQuestions)
            return ask();
        reportAndExit(distribution(times).percentile99);
    };
    ask();
    dispatch_main();
}

Sample answersBeside(const std::function<void()>& others) {
    const Service service(BENCH_HELPER, Service::Ready::Answers);
    return measurePair(Placement::TwoCpus, others, percentile99);
}

Case answersCase() {
    Case result{"helper/answers while others toggle, 99th percentile", "ms", Better::Lower, {}, {6, 1}};
    result.rows.push_back({"floor: alone", [] { return answersBeside([] { pause(); }); }});
    result.rows.push_back({"beside 64 that toggle", [] { return answersBeside(toggle); }, Whose::Ours});
    return result;
}

Case helperCase(const char* name, const char* unit, double (*figure)(const char*), Effort effort) {
    Case result{name, unit, Better::Lower, {}, effort};
    result.rows.push_back({"floor: poll loop", [figure] { return figure(BENCH_POLL_LOOP); }});
    result.rows.push_back(
        {"floor: poll loop, C++ library inside", [figure] { return figure(BENCH_POLL_LOOP_STATIC); }});
#ifdef BENCH_HAVE_SDBUS
    result.rows.push_back({"service on sd-bus", [figure] { return figure(BENCH_SDBUS_SERVICE); }});
#endif
    result.rows.push_back({"login helper", [figure] { return figure(BENCH_HELPER); }, Whose::Ours});
    return result;
}

const Register helper{[](std::vector<Case>& cases) {
    constexpr Effort kFew = {3, 3};
    cases.push_back(helperCase("helper/start to serving", "ms", startMilliseconds, {4}));
    cases.push_back(helperCase("helper/private dirty memory", "KiB", later<&Service::dirtyKib>, kFew));
    cases.push_back(
        helperCase("helper/private dirty memory, just asked", "KiB", later<&Service::dirtyKib, true>, kFew));
    cases.push_back(helperCase("helper/resident memory", "KiB", later<&Service::residentKib>, kFew));
    cases.push_back(
        helperCase("helper/resident memory, just asked", "KiB", later<&Service::residentKib, true>, kFew));
    cases.push_back(answersCase());
    cases.push_back(helperCase("helper/threads", "threads", later<&Service::threads>, {1, 1}));
    cases.push_back(helperCase("helper/wake-ups in 3 s, plus one", "wake-ups", wakeUpsAndOne, {13, 1}));
}};

} // namespace
} // namespace bench
