// A server for tests: xpc_host NAME [ID], where an id other than -1 replaces those of its peers. Prints "ready"
// once it serves and "refused" for a refused peer. Answers every message that asks for it with the text it
// received and its counters; some keys make it do more.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <port/internal/seams_xpc.h>
#include <string_view>
#include <unistd.h>

#include "xpc/LXPCServer.h"

namespace {

class HostSink final : public LXPCServerEventNotify {
public:
    LXPCMachServer* pServer = nullptr;

    void EvConnectionError(long connection, LXPCErrorType type) override {
        if (type != LXPCErrorTypeConnectionInterrupted)
            pServer->Disconnect(connection);
    }

    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override {
        LList<LXPCDataListable> reply;
        nMessages++;
        for (const LXPCDataListable* item = items.GetFirst(); item != nullptr; item = item->pNext)
            if (item->eType == LXPCDataTypeString)
                reply.AddHead(CreateXPCData({item->szName, item->eType}, item->nValue, 0));
            else
                Act(item->szName, item->nValue, connection);
        reply.AddHead(CreateXPCData({"MESSAGES", LXPCDataTypeInt64}, nMessages, 0));
        reply.AddHead(CreateXPCData({"SENT", LXPCDataTypeInt64}, nSent, 0));
        pServer->SendReply(connection, message, reply);
    }

    void EvReplyReceived(long /*connection*/, const LList<LXPCDataListable>& /*items*/) override {}
    void EvMessageSent(long /*connection*/) override { nSent++; }
    void EvInvalidConnectionAttempt() override { printf("refused\n"); }

private:
    void Act(std::string_view name, long value, long connection) {
        if (name == "DROP")
            pServer->Disconnect(connection);
        else if (name == "QUIT")
            Shutdown();
        else
            for (long n = 1; n <= value; n++) {
                LList<LXPCDataListable> items;
                items.AddHead(CreateXPCData({"PUSHED", LXPCDataTypeInt64}, n, 0));
                pServer->SendMessage(connection, items, false);
            }
    }

    // The server first, from its own handler, then the process. Events that run on other threads may use the
    // server until its destructor has seen them leave.
    void Shutdown() {
        if (bEnding.exchange(true))
            return;
        delete pServer;
        exit(0);
    }

    std::atomic<long> nMessages = 0;
    std::atomic<long> nSent = 0;
    std::atomic<bool> bEnding = false;
};

HostSink sink;

} // namespace

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    if (argc == 3)
        port_set_raw_peer_pid(atoi(argv[2]));
    sink.pServer = new LXPCMachServer(&sink);
    sink.pServer->AddKey("TEXT", LXPCDataTypeString);
    for (const char* name : {"PUSH", "DROP", "QUIT"})
        sink.pServer->AddKey(name, LXPCDataTypeInt64);
    dispatch_async(dispatch_get_main_queue(), [] { printf("ready\n"); });
    sink.pServer->Start(argv[1]);
    return 69;
}
