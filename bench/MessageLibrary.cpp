// The library's side of the message benchmarks: LXPCMachServer in one process, LXPCClient in the other, both
// with their main threads in the main loop, as an application has it.
#include "Driver.h"
#include "MessageLoad.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dispatch/dispatch.h>
#include <memory>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <xpc/LXPCClient.h>
#include <xpc/LXPCServer.h>

namespace bench {
namespace {

constexpr char kService[] = "bench.messages";
constexpr unsigned long kNumber = 1;

LXPCData Item(const char* name, LXPCDataType type, long value, unsigned long size = 0) {
    LXPCData item{};
    std::strncpy(item.szName, name, sizeof item.szName - 1);
    item.eType = type;
    item.nValue = value;
    item.dwSize = size;
    return item;
}

// Answers every message that wants a reply; one-way messages are only received.
struct Server final : LXPCServerEventNotify {
    LXPCMachServer* pServer = nullptr;

    void EvConnectionError(long connection, LXPCErrorType) override { pServer->Disconnect(connection); }
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override {
        if (items.GetFirst()->eType != LXPCDataTypeBool)
            return;
        LList<LXPCDataListable> reply;
        auto* pItem = new LXPCDataListable;
        static_cast<LXPCData&>(*pItem) = Item("answer", LXPCDataTypeBool, 1);
        reply.AddHead(pItem);
        pServer->SendReply(connection, message, reply);
    }
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {}
    void EvMessageSent(long) override {}
    void EvInvalidConnectionAttempt() override { std::_Exit(1); }
};

void serve() {
    Server sink;
    LXPCMachServer server(&sink);
    sink.pServer = &server;
    server.AddKey("question", LXPCDataTypeBool);
    server.AddKey("text", LXPCDataTypeString);
    server.AddKey("data", LXPCDataTypeData);
    server.Start(kService);
}

// What a client does when a reply comes, or when a message was handed over.
struct Client final : LXPCEventNotify {
    LXPCClient client{this};
    std::function<void()> onReply;
    std::atomic<std::size_t> sent{0};
    bool disconnects = false; // and hears of it

    explicit Client(std::function<void(Client&)> start) {
        client.AddKey("answer", LXPCDataTypeBool);
        connect();
        start(*this);
    }
    void connect() {
        if (!client.Connect(kService, kNumber, true))
            failAndExit("no connection");
    }
    void ask() {
        const LXPCData items[] = {
            Item("question", LXPCDataTypeBool, 1),
            Item("text", LXPCDataTypeString, reinterpret_cast<long>("a string of an ordinary length")),
        };
        client.SendMessage(kService, kNumber, items, 2, true);
    }

    void EvConnectionError(long, LXPCErrorType) override {
        if (!disconnects)
            failAndExit("the connection ended");
    }
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override { onReply(); }
    void EvMessageSent(long) override {
        sent.fetch_add(1, std::memory_order_release);
        sent.notify_one();
    }
};

// Runs the two ends in a runtime folder of their own; the client waits until the server's socket is there.
Sample measure(Placement placement, const std::function<Sample()>& client, PairUse* use) {
    const ScratchFolder folder;
    const std::string path = folder.path() + "/port-xpc/" + kService + ".sock";
    setenv("XDG_RUNTIME_DIR", folder.path().c_str(), 1);
    return measurePair(
        placement, serve,
        [&] {
            const timespec pauseTime{0, 10'000'000};
            do
                nanosleep(&pauseTime, nullptr);
            while (access(path.c_str(), F_OK) != 0);
            return client();
        },
        use);
}

Sample roundTrips(const Load& load, PairUse* use) {
    const auto work = [&]() -> Sample {
        std::vector<double> times;
        Clock::time_point start;
        Client client([&](Client& self) {
            self.onReply = [&] {
                times.push_back(nanosecondsSince(start) / 1000);
                if (times.size() == load.count)
                    reportAndExit(distribution(times));
                pauseFor(load.pause);
                start = Clock::now();
                self.ask();
            };
            start = Clock::now();
            self.ask();
        });
        dispatch_main();
    };
    return measure(load.placement, work, use);
}

// Sends the messages with at most `window` on their way, then asks once: the reply tells that all
// arrived.
Sample stream(const Load& load, PairUse* use, std::size_t window, const LXPCData& item) {
    const auto work = [&]() -> Sample {
        Clock::time_point start;
        Client client([&](Client& self) {
            self.onReply = [&] {
                reportAndExit(static_cast<double>(load.count) / (nanosecondsSince(start) * 1e-9));
            };
        });
        dispatch_async(dispatch_get_main_queue(), [&] {
            start = Clock::now();
            for (std::size_t sent = 1; sent <= load.count; ++sent) {
                client.client.SendMessage(kService, kNumber, &item, 1, false);
                for (std::size_t done; sent - (done = client.sent.load(std::memory_order_acquire)) > window;)
                    client.sent.wait(done);
            }
            client.ask();
        });
        dispatch_main();
    };
    return measure(load.placement, work, use);
}

Sample smallMessages(const Load& load, PairUse* use) {
    static const std::string text(kSmallSize, 'x');
    return stream(load, use, 2048, Item("text", LXPCDataTypeString, reinterpret_cast<long>(text.c_str())));
}

Sample largeMessages(const Load& load, PairUse* use) {
    static const std::string data(kLargeSize, 'x');
    return stream(load, use, 16,
                  Item("data", LXPCDataTypeData, reinterpret_cast<long>(data.data()), kLargeSize));
}

Sample connects(const Load& load, PairUse* use) {
    const auto work = [&]() -> Sample {
        std::size_t done = 0;
        const auto start = Clock::now();
        Client client([&](Client& self) {
            self.disconnects = true;
            self.onReply = [&] {
                if (++done == load.count)
                    reportAndExit(static_cast<double>(load.count) / (nanosecondsSince(start) * 1e-9));
                self.client.Disconnect(kService, kNumber);
                self.connect();
                self.ask();
            };
            self.ask();
        });
        dispatch_main();
    };
    return measure(load.placement, work, use);
}

} // namespace

const Carrier kLibrary = {roundTrips, smallMessages, largeMessages, connects};

} // namespace bench
