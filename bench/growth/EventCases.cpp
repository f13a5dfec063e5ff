// Threads, events, work for the main thread, connections and messages; client and service in one process.
#include "../Driver.h"
#include "Cases.h"

#include <Carbon/Carbon.h>
#include <cstdlib>
#include <cstring>
#include <dispatch/dispatch.h>
#include <memory>
#include <port/main_queue.h>
#include <threads/LProcessEventsHandler.h>
#include <threads/LThread.h>
#include <threads/LThreadRunOnMainThread.h>
#include <xpc/LXPCClient.h>
#include <xpc/LXPCServer.h>

namespace growth {
namespace {

using bench::keep;
using bench::need;
using Work = std::function<void()>;

unsigned handled = 0; // by the main thread

struct Unit final : LThreadRunOnMainThreadData {
    void MainThreadFunction() override { ++handled; }
};

struct Until final : LProcessEventsHandler {
    explicit Until(unsigned theCount) : count(theCount) {}
    bool IsProcessEventHandlerToStop() const override { return handled >= count; }
    const unsigned count;
};

Work posts(unsigned n) {
    LThreadRunOnMainThread::Init();
    const auto target = std::make_shared<LThreadRunOnMainThread>();
    return [=] {
        for (unsigned i = 0; i < n; ++i)
            need(target->RunOnMainThread(new Unit), "a post was refused");
        Until(n).ProcessWaitForeverAndProcessEvents();
    };
}

// Each target has a unit in the queue when it is closed, or all the units are another one's.
template <bool kOwnUnits>
Work closedTargets(unsigned n) {
    LThreadRunOnMainThread::Init();
    const auto other = std::make_shared<LThreadRunOnMainThread>();
    const auto targets = std::make_shared<std::vector<LThreadRunOnMainThread>>(n);
    for (auto& target : *targets)
        need((kOwnUnits ? target : *other).RunOnMainThread(new Unit), "a post was refused");
    return [=] {
        for (auto& target : *targets)
            target.ThreadRunOnMainThreadDestroy();
        keep(other);
    };
}

void postEvent(UInt32 kind) {
    EventRef event = nullptr;
    CreateEvent(nullptr, 0x67726F77, kind, 0, kEventAttributeNone, &event);
    PostEventToQueue(GetMainEventQueue(), event, kEventPriorityStandard);
    ReleaseEvent(event);
}

// Events that nobody handles, while the main thread waits for a signal.
Work eventsInWait(unsigned n) {
    for (unsigned i = 0; i < n; ++i)
        postEvent(7);
    const auto signal = std::make_shared<LSignalObject>();
    return [=] {
        signal->Signal();
        LProcessClearCurrentEvents();
        need(ProcessWaitSignalObjectAndProcessEvents(*signal, 1000) == LProcessWaitSignaled,
             "the wait failed");
    };
}

// Taken out by their kind, the last one posted first.
Work eventsByKind(unsigned n) {
    for (unsigned i = 0; i < n; ++i)
        postEvent(i);
    return [n] {
        for (unsigned i = 0; i < n; ++i) {
            const EventTypeSpec type{0x67726F77, i};
            EventRef event = nullptr;
            need(ReceiveNextEvent(1, &type, 0, true, &event) == noErr, "an event is gone");
            ReleaseEvent(event);
        }
    };
}

Work mainQueueBlocks(unsigned n) {
    return [n] {
        for (unsigned i = 0; i < n; ++i)
            dispatch_async(dispatch_get_main_queue(), [] { ++handled; });
        while (handled < n)
            port_main_queue_drain(100);
    };
}

Work threads(unsigned n) {
    return [n] {
        const auto nothing = [](LProcessInterface& process) { process.ProcessWait(LNoTimeLimit); };
        std::vector<std::unique_ptr<LThreadOf<decltype(nothing)>>> all;
        for (unsigned i = 0; i < n; ++i) {
            all.push_back(std::make_unique<LThreadOf<decltype(nothing)>>(nothing));
            all.back()->Start(31);
        }
    };
}

constexpr char kService[] = "bench.growth";

LXPCData question() {
    LXPCData item;
    std::strncpy(item.szName, "question", sizeof item.szName - 1);
    item.eType = LXPCDataTypeBool;
    item.nValue = 1;
    return item;
}

// Answers every question.
struct Service final : LXPCServerEventNotify {
    LXPCMachServer server{this};

    Service() {
        static char folder[] = "/tmp/growth-XXXXXX";
        need(mkdtemp(folder) != nullptr, "no folder");
        setenv("XDG_RUNTIME_DIR", folder, 1);
        server.AddKey("question", LXPCDataTypeBool);
    }
    void EvConnectionError(long connection, LXPCErrorType) override { server.Disconnect(connection); }
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>&) override {
        LList<LXPCDataListable> reply;
        reply.AddHead(new LXPCDataListable(question()));
        server.SendReply(connection, message, reply);
    }
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {}
    void EvMessageSent(long) override {}
    void EvInvalidConnectionAttempt() override {}
};

// Asks on each of its connections in turn, with the next question when one is answered.
struct Client final : LXPCEventNotify {
    LXPCClient client{this};
    const unsigned connections;
    const unsigned questions;
    unsigned answers = 0;

    Client(unsigned theConnections, unsigned theQuestions)
        : connections(theConnections), questions(theQuestions) {
        client.AddKey("question", LXPCDataTypeBool);
        for (unsigned number = 0; number < connections; ++number)
            client.Connect(kService, number, true);
        ask();
    }
    void ask() {
        const LXPCData item = question();
        client.SendMessage(kService, answers % connections, &item, 1, true);
    }
    void EvConnectionError(long, LXPCErrorType) override { std::abort(); }
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {
        if (++answers == questions)
            finish();
        ask();
    }
    void EvMessageSent(long) override {}
};

Work serve(unsigned connections, unsigned questions) {
    return [=] {
        static Service service;
        dispatch_async(dispatch_get_main_queue(),
                       [=] { static const auto client = std::make_unique<Client>(connections, questions); });
        service.server.Start(kService);
    };
}

Work questionsInARow(unsigned n) {
    return serve(1, n);
}

Work connections(unsigned n) {
    return serve(n, n);
}

} // namespace

std::vector<Case> eventCases() {
    return {
        {"units posted while the main thread is busy", 500, posts},
        {"targets closed with units in the queue", 100, closedTargets<true>, 2.1,
         "looks for its units among those of all; a target that has none does not look"},
        {"targets closed beside units of another one", 100, closedTargets<false>},
        {"events in the queue during a wait", 500, eventsInWait},
        {"events received by their kind, oldest first", 250, eventsByKind},
        {"blocks on the main queue", 500, mainQueueBlocks},
        {"threads at a time", 10, threads},
        {"questions, one after the other", 100, questionsInARow},
        {"connections of a process, each asks once", 8, connections},
    };
}

} // namespace growth
