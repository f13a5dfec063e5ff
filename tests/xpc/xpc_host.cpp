// A server for tests: xpc_host NAME [--peer-pid N]. Prints "ready" once it serves, "refused" for a refused
// peer and "error N" for a connection error. Answers every message that asks for it with the names it
// received, its text, and its counters; some keys make it do more.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <port/seams.h>
#include <string>
#include <thread>
#include <unistd.h>

#include "xpc/LXPCServer.h"

namespace {

class HostSink final : public LXPCServerEventNotify {
public:
    LXPCMachServer* pServer = nullptr;

    void EvConnectionError(long connection, LXPCErrorType type) override {
        printf("error %d\n", static_cast<int>(type));
        if (type != LXPCErrorTypeConnectionInterrupted)
            pServer->Disconnect(connection);
    }

    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override {
        std::string names;
        const char* text = "";
        nMessages++;
        for (const LXPCDataListable* item = items.GetFirst(); item != nullptr; item = item->pNext) {
            const std::string name = item->szName;
            names += (names.empty() ? "" : ",") + name;
            if (name == "TEXT" && item->nValue != 0)
                text = reinterpret_cast<const char*>(item->nValue);
            Act(name, item->nValue, connection);
        }
        LList<LXPCDataListable> reply;
        const std::pair<const char*, long> numbers[] = {{"MESSAGES", nMessages}, {"SENT", nSent}};
        for (const auto& [name, value] : numbers)
            reply.AddHead(CreateXPCData({name, LXPCDataTypeInt64}, value, 0));
        reply.AddHead(CreateXPCData({"NAMES", LXPCDataTypeString}, reinterpret_cast<long>(names.c_str()), 0));
        reply.AddHead(CreateXPCData({"TEXT", LXPCDataTypeString}, reinterpret_cast<long>(text), 0));
        pServer->SendReply(connection, message, reply);
    }

    void EvReplyReceived(long /*connection*/, const LList<LXPCDataListable>& /*items*/) override {}
    void EvMessageSent(long /*connection*/) override { nSent++; }
    void EvInvalidConnectionAttempt() override { printf("refused\n"); }

private:
    void Act(const std::string& name, long value, long connection) {
        if (name == "PUSH") {
            for (long n = 1; n <= value; n++) {
                LList<LXPCDataListable> items;
                items.AddHead(CreateXPCData({"PUSHED", LXPCDataTypeInt64}, n, 0));
                pServer->SendMessage(connection, items, false);
            }
        } else if (name == "SLEEP") {
            std::this_thread::sleep_for(std::chrono::milliseconds(value));
        } else if (name == "DROP") {
            pServer->Disconnect(connection);
        } else if (name == "QUIT") {
            Shutdown();
        }
    }

    // As the helper ends: the server first, from its own handler, then the process. Events that run on other
    // threads may use the server until its destructor has seen them leave.
    void Shutdown() {
        while (bEnding.exchange(true))
            pause();
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
    if (argc == 4 && strcmp(argv[2], "--peer-pid") == 0)
        port_set_raw_peer_pid(atoi(argv[3]));
    sink.pServer = new LXPCMachServer(&sink);
    const std::pair<const char*, LXPCDataType> keys[] = {
        {"TEXT", LXPCDataTypeString}, {"BLOB", LXPCDataTypeData}, {"PUSH", LXPCDataTypeInt64},
        {"SLEEP", LXPCDataTypeInt64}, {"DROP", LXPCDataTypeBool}, {"QUIT", LXPCDataTypeBool}};
    for (const auto& [name, type] : keys)
        sink.pServer->AddKey(name, type);
    dispatch_async(dispatch_get_main_queue(), [] { printf("ready\n"); });
    sink.pServer->Start(argv[1]);
    return 69;
}
