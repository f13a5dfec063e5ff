// Both ends in one process: the contract of a connection.
#include "host/SystemCalls.h"
#include "support/MainQueue.h"
#include "xpc/XPCDictionary.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <port/internal/seams_xpc.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr const char* kService = "test.service";

using Lines = std::vector<std::string>;

auto makeMessage(const std::string& text) {
    auto message = port::XPCDictionary::create();
    xpc_dictionary_set_string(message.get(), "text", text.c_str());
    return message;
}

// "invalid", "interrupted", or the text of a message.
std::string describe(xpc_object_t event) {
    if (event == XPC_ERROR_CONNECTION_INVALID)
        return "invalid";
    if (event == XPC_ERROR_CONNECTION_INTERRUPTED)
        return "interrupted";
    const char* const text = xpc_dictionary_get_string(event, "text");
    return text == nullptr ? "no text" : text;
}

// Lines that handlers add from any thread.
class Log {
public:
    void add(const std::string& line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(line);
    }
    Lines lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }
    // The lines once there are that many, or in the end.
    Lines wait(std::size_t count) const {
        WaitFor([&] { return lines().size() >= count; });
        return lines();
    }
    // True once the connection's last event has come.
    bool waitForEnd() const {
        return WaitFor([&] { return !lines().empty() && lines().back() == "invalid"; });
    }

private:
    mutable std::mutex mutex_;
    Lines lines_;
};

// A connection with its events in a log; cancelled at the end, when every handler must have been called.
class Peer {
public:
    explicit Peer(xpc_connection_t connection) : connection_(connection) {
        xpc_connection_set_event_handler(connection_, [this](xpc_object_t event) {
            EXPECT_EQ(xpc_dictionary_get_remote_connection(event), connection_);
            log.add(describe(event));
            if (onEvent)
                onEvent(event);
        });
    }
    explicit Peer(const char* service) : Peer(xpc_connection_create_mach_service(service, nullptr, 0)) {
        resume();
    }
    Peer(Peer&&) = delete;
    ~Peer() {
        xpc_connection_cancel(connection_);
        EXPECT_TRUE(log.waitForEnd());
        EXPECT_EQ(replies.wait(asked_).size(), asked_);
        xpc_release(connection_);
    }

    xpc_connection_t get() const { return connection_; }
    void resume() { xpc_connection_resume(connection_); }
    void send(const std::string& text) { xpc_connection_send_message(connection_, makeMessage(text).get()); }
    // The answer goes to `replies`.
    void ask(const std::string& text) {
        ++asked_;
        xpc_connection_send_message_with_reply(connection_, makeMessage(text).get(), nullptr,
                                               [this](xpc_object_t reply) { replies.add(describe(reply)); });
    }

    Log log;
    Log replies;
    std::function<void(xpc_object_t)> onEvent;

private:
    xpc_connection_t connection_;
    std::atomic<std::size_t> asked_{0};
};

enum class Manner { Answers, IsSilent, Refuses };

// A listener in this process; how it meets its peers may change.
class Service {
public:
    explicit Service(Manner meets = Manner::Answers) : manner(meets) {
        xpc_connection_set_event_handler(listener_, [this](xpc_object_t event) {
            if (xpc_get_type(event) != XPC_TYPE_CONNECTION)
                log_.add(describe(event));
            else if (manner != Manner::Refuses)
                accept(static_cast<xpc_connection_t>(event));
        });
        xpc_connection_resume(listener_);
    }
    Service(Service&&) = delete;
    ~Service() {
        peers.clear();
        xpc_connection_cancel(listener_);
        EXPECT_TRUE(log_.waitForEnd());
        xpc_release(listener_);
    }
    Peer& firstPeer() {
        EXPECT_TRUE(WaitFor([&] { return !peers.empty(); }));
        return *peers.front();
    }

    Manner manner;
    std::vector<std::unique_ptr<Peer>> peers;

private:
    void accept(xpc_connection_t connection) {
        xpc_retain(connection);
        peers.push_back(std::make_unique<Peer>(connection));
        peers.back()->onEvent = [connection](xpc_object_t event) {
            const xpc_object_t reply = xpc_dictionary_create_reply(event);
            EXPECT_EQ(xpc_dictionary_create_reply(event), nullptr) << "a second reply";
            if (reply == nullptr)
                return;
            xpc_dictionary_set_string(reply, "text", describe(event).c_str());
            xpc_connection_send_message(connection, reply);
            xpc_release(reply);
        };
        if (manner == Manner::Answers)
            peers.back()->resume();
    }

    Log log_;
    xpc_connection_t listener_ = xpc_connection_create_mach_service(kService, dispatch_get_main_queue(),
                                                                    XPC_CONNECTION_MACH_SERVICE_LISTENER);
};

class ConnectionTest : public testing::Test {
protected:
    PrivatePlace place;
};

Lines numbered(std::size_t count, const std::string& sender = "") {
    Lines lines;
    for (std::size_t i = 0; i < count; ++i)
        lines.push_back(sender + std::to_string(i));
    return lines;
}

// Some messages are large, so both sides send more than the socket holds; calls take and give only pieces.
TEST_F(ConnectionTest, EachThreadsMessagesRepliesAndBarriersKeepTheirOrder) {
    constexpr std::size_t kEach = 1000;
    const Lines senders{"a", "b", "c", "d"};
    const std::string large(60000, 'x');
    port::sys::setHook([](auto) {
        static std::atomic<std::size_t> calls{0};
        return port::sys::Verdict{0, ++calls % 3 == 0 ? 50 + calls % 5000 : ~std::size_t{0}};
    });
    Service service;
    Log barriers;
    Peer client(kService);
    std::vector<std::thread> threads;
    for (const std::string& sender : senders) {
        threads.emplace_back([&] {
            for (const std::string& line : numbered(kEach, sender)) {
                client.ask(line.back() == '7' ? line + large : line);
                xpc_connection_send_barrier(client.get(), [&barriers, line] { barriers.add(line); });
            }
        });
    }
    for (const Log* log : {&client.replies, &barriers, &service.firstPeer().log})
        EXPECT_EQ(log->wait(senders.size() * kEach).size(), senders.size() * kEach);
    for (auto& thread : threads)
        thread.join();
    Serve(20);
    port::sys::setHook(nullptr);
    for (const Log* log : {&client.replies, &barriers, &service.firstPeer().log}) {
        for (const std::string& sender : senders) {
            Lines lines = log->lines();
            std::erase_if(lines, [&](const std::string& line) { return line[0] != sender[0]; });
            for (std::string& line : lines)
                line = line.substr(0, line.find('x'));
            EXPECT_EQ(lines, numbered(kEach, sender));
        }
    }
}

TEST_F(ConnectionTest, HoldsBackInOrderUntilItIsResumed) {
    constexpr std::size_t kEach = 2000;
    Service service(Manner::IsSilent);
    Log barriers;
    Peer client(xpc_connection_create_mach_service(kService, nullptr, 0));
    for (std::size_t all = kEach; all <= 2 * kEach; all += kEach) {
        for (std::size_t i = all - kEach; i < all; ++i)
            client.ask(std::to_string(i));
        xpc_connection_send_barrier(client.get(), [&] { barriers.add("handed over"); });
        Serve(30);
        if (all == kEach) {
            EXPECT_TRUE(service.peers.empty() && barriers.lines().empty());
            client.resume();
            Serve(30);
        }
        EXPECT_EQ(service.firstPeer().log.lines(), numbered(all - kEach));
        service.firstPeer().resume();
        EXPECT_EQ(client.replies.wait(all), numbered(all));
        xpc_connection_suspend(service.firstPeer().get());
    }
    EXPECT_EQ(barriers.wait(2).size(), 2U);
    service.firstPeer().resume();
}

TEST_F(ConnectionTest, CancelGivesRepliesBarriersAndTheHandlerOneEnd) {
    Service service(Manner::IsSilent);
    Log barriers;
    Peer client(kService);
    client.ask("first");
    Peer& peer = service.firstPeer();
    const auto sendBoth = [&](const std::string& text, std::size_t number) {
        client.send(text);
        xpc_connection_send_barrier(client.get(), [&, number] { barriers.add(std::to_string(number)); });
    };
    for (std::size_t i = 0; i < 99; ++i)
        sendBoth(std::string(60000, 'x'), i);
    Serve(20);
    EXPECT_LT(barriers.lines().size(), 99U) << "nobody reads";
    xpc_connection_cancel(client.get());
    xpc_connection_cancel(client.get());
    client.ask("after");
    sendBoth("after", 99);
    EXPECT_EQ(barriers.wait(100), numbered(100));
    EXPECT_EQ(client.replies.wait(2), Lines(2, "invalid"));
    EXPECT_EQ(client.log.wait(1), Lines{"invalid"});
    port_inject_error_event(client.get(), XPC_ERROR_CONNECTION_INTERRUPTED);
    Serve(30);
    EXPECT_EQ(client.log.lines(), Lines{"invalid"});
    peer.resume();
    EXPECT_TRUE(peer.log.waitForEnd());
    EXPECT_EQ(peer.log.lines()[0], "first");
}

TEST_F(ConnectionTest, CancelFromTheOwnHandlerStopsEverythingBehindIt) {
    Service service;
    Peer client(kService);
    Peer& peer = service.firstPeer();
    peer.onEvent = [&](xpc_object_t) { xpc_connection_cancel(peer.get()); };
    for (const std::string& line : numbered(500))
        client.send(line);
    EXPECT_EQ(client.log.wait(1), Lines{"interrupted"});
    EXPECT_TRUE(peer.log.waitForEnd());
    Serve(20);
    EXPECT_EQ(peer.log.lines(), (Lines{"0", "invalid"}));
    EXPECT_EQ(client.log.lines(), Lines{"interrupted"});
}

TEST_F(ConnectionTest, AServiceThatGoesInterruptsOnceAndItsSuccessorIsReached) {
    auto service = std::make_unique<Service>(Manner::IsSilent);
    Peer client(kService);
    client.ask("never answered");
    xpc_connection_cancel(service->firstPeer().get());
    service->firstPeer().resume();
    service.reset();
    EXPECT_EQ(client.replies.wait(1), Lines{"interrupted"});
    service = std::make_unique<Service>();
    client.ask("second");
    EXPECT_EQ(client.replies.wait(2), (Lines{"interrupted", "second"}));
    Serve(20);
    EXPECT_EQ(client.log.lines(), Lines{"interrupted"});
    service.reset();
    client.log.wait(2);
    client.ask("nobody");
    client.ask("still nobody");
    EXPECT_EQ(client.replies.wait(4), (Lines{"interrupted", "second", "invalid", "invalid"}));
    EXPECT_EQ(client.log.wait(3), (Lines{"interrupted", "interrupted", "invalid"}));
}

// The host program plays both the main application and its service.
TEST_F(ConnectionTest, ABundledServiceIsStartedWhenItIsFirstNeeded) {
    namespace fs = std::filesystem;
    const fs::path main = place.Path() + "/Main.app/Contents/MacOS/main";
    const fs::path service =
        place.Path() + "/Main.app/Contents/XPCServices/test.bundled.xpc/Contents/MacOS/bundled";
    for (const fs::path& program : {main, service}) {
        fs::create_directories(program.parent_path());
        fs::copy_file(HostPath("xpcport_host"), program);
    }
    EXPECT_EQ(ChildProcess({main, "test.bundled"}).Wait(), 0);
    EXPECT_EQ(ChildProcess({main, "test.unknown"}).Wait(), 1);
}

TEST_F(ConnectionTest, AListenerWithoutDescriptorsTurnsPeersAwayAndRecovers) {
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    Service service;
    Peer client(kService); // it has its descriptor, the listener finds none for its end
    const int lowestFree = dup(STDIN_FILENO);
    close(lowestFree);
    const rlimit tight{static_cast<rlim_t>(lowestFree), usual.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    EXPECT_EQ(client.log.wait(1), Lines{"interrupted"});
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
    service.manner = Manner::Refuses;
    client.ask("refused");
    EXPECT_EQ(client.replies.wait(1), Lines{"interrupted"});
    service.manner = Manner::Answers;
    client.ask("again");
    EXPECT_EQ(client.replies.wait(2), (Lines{"interrupted", "again"}));
}

TEST_F(ConnectionTest, AListenerThatIsNeverToldFailsAndOneThatCannotAcceptPauses) {
    using port::sys::Call;
    static std::atomic<int> attempts{0};
    port::sys::setHook([](auto call) { return port::sys::Verdict{call == Call::Watch ? ENOSPC : 0}; });
    EXPECT_EQ(xpc_connection_create_mach_service(kService, nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER),
              nullptr);
    EXPECT_EQ(errno, ENOSPC);
    port::sys::setHook(
        [](auto call) { return port::sys::Verdict{call == Call::Accept && ++attempts != 0 ? ENFILE : 0}; });
    Service service;
    Peer client(kService);
    client.ask("waits");
    Serve(350);
    EXPECT_LT(attempts, 30);
    port::sys::setHook(nullptr);
    EXPECT_EQ(client.replies.wait(1), Lines{"waits"});
}

TEST_F(ConnectionTest, RepliesReachAHandlerThatWaitsAndAConnectionThatIsLetGo) {
    Service service;
    Peer client(kService);
    client.onEvent = [&](xpc_object_t event) {
        if (describe(event) == "go") {
            client.ask("inner");
            for (int i = 0; i < 1000 && client.replies.lines().empty(); ++i)
                usleep(5000);
            EXPECT_EQ(client.replies.lines(), Lines{"inner"});
        }
    };
    service.firstPeer().send("go");
    EXPECT_EQ(client.log.wait(1), Lines{"go"});
    const auto connection = xpc_connection_create_mach_service(kService, nullptr, 0);
    xpc_connection_set_event_handler(connection, [](xpc_object_t) {});
    xpc_connection_resume(connection);
    Log replies;
    xpc_connection_send_message_with_reply(connection, makeMessage("last").get(), nullptr,
                                           [&](xpc_object_t reply) { replies.add(describe(reply)); });
    xpc_release(connection);
    EXPECT_EQ(replies.wait(1), Lines{"last"});
}

} // namespace
