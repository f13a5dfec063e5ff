// Serves lines over TCP: every line that a client sends comes back to it. Each client has a thread of its
// own, and Ctrl-C ends them all at once.
//
// usage: echo PORT
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include <net/LProcessSocket.h>
#include <net/LTCPListener.h>
#include <threads/LDetachedThread.h>

namespace {

constexpr int nClientsMaximum = 100;         // a thread each, with seven descriptors
constexpr unsigned int dwIdleLimit = 600000; // milliseconds until a silent client is left
constexpr unsigned int dwReadLimit = 5000;   // and until one that does not read
std::atomic<int> nClients{0};

// A thread is a process interface: what it waits for ends when it is to stop.
class Conversation : public LDetachedThread {
public:
    explicit Conversation(LIPSocketTCP&& theSocket) : socket(std::move(theSocket)) { ++nClients; }
    ~Conversation() override { --nClients; }

private:
    void ThreadFunction() override {
        char buffer[4096];
        unsigned long dwLength;
        while (ProcessRecvToCharacter(*this, socket, buffer, sizeof buffer, dwLength, "\n", dwIdleLimit) ==
                   LProcessFinished &&
               ProcessSend(*this, socket, buffer, dwLength, dwReadLimit) == LProcessFinished) {
        }
    }

    LIPSocketTCP socket;
};

class EchoServer : public LTCPListener {
public:
    using LTCPListener::LTCPListener;
    // No new conversation begins while the old ones end.
    ~EchoServer() override {
        _StopAndWait();
        conversations.StopThreadsNow();
    }

private:
    // A connection that is not taken over, or whose thread cannot be made, is closed.
    void EvConnection(LIPSocketTCP& socket) override {
        if (nClients >= nClientsMaximum)
            return;
        auto conversation = std::make_unique<Conversation>(std::move(socket));
        if (conversation->StartDetached(conversations, 31))
            static_cast<void>(conversation.release()); // it is the owner's
    }

    LDetachedThreadsOwner conversations;
};

LThread* pRunning = nullptr;

// Setting a signal is one write into a pipe, which a signal handler may do.
void OnInterrupt(int) {
    pRunning->StopThreadSoon();
}

} // namespace

int main(int argc, char** argv) {
    const unsigned long dwPort = argc == 2 ? std::strtoul(argv[1], nullptr, 10) : 0;
    if (dwPort == 0 || dwPort > 65535) {
        std::fprintf(stderr, "usage: echo PORT\n");
        return 64;
    }
    EchoServer server(static_cast<unsigned short>(dwPort));
    pRunning = &server;
    server.Start(31);
    std::signal(SIGINT, OnInterrupt);
    std::signal(SIGTERM, OnInterrupt);
    std::printf("lines on port %lu come back; Ctrl-C ends it\n", dwPort);
    std::fflush(stdout);
    while (!server.GetFinishedSignal().IsSignaled())
        server.GetFinishedSignal().WaitSignal(LNoTimeLimit);
    return 0;
}
