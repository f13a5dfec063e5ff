// Serves lines over TCP: every line that a client sends comes back to it. Each client has a thread of its
// own, and Ctrl-C ends them all at once.
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <sys/socket.h>
#include <utility>

#include <net/LIPAddress.h>
#include <net/LProcessSocket.h>
#include <net/LTCPListener.h>
#include <threads/LDetachedThread.h>

#include "../Example.h"

namespace {

constexpr Example example{
    "echo", "Usage: echo PORT\n"
            "Sends every line that comes over TCP back to where it came from; Ctrl-C ends it.\n"};

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

// Why the port cannot be had; 0 when it can. A listener tells nobody, and tries again later.
int GetPortError(unsigned short wPort) {
    LIPSocketTCP socket;
    const LIPAddressWithPort anywhere(in_addr{INADDR_ANY}, wPort);
    const int nOn = 1;
    const bool bFree = socket.Create() &&
                       setsockopt(socket.GetDescriptor(), SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof nOn) == 0 &&
                       bind(socket.GetDescriptor(), anywhere.GetSocketAddress(), sizeof(sockaddr_in)) == 0;
    return bFree ? 0 : errno;
}

} // namespace

int main(int argc, char** argv) {
    example.AnswerQuestions(argc, argv);
    const unsigned long dwPort = argc == 2 ? std::strtoul(argv[1], nullptr, 10) : 0;
    if (dwPort == 0 || dwPort > 65535)
        return example.TellUsage();
    if (const int nError = GetPortError(static_cast<unsigned short>(dwPort)); nError != 0) {
        std::fprintf(stderr, "echo: port %lu: %s\n", dwPort, std::strerror(nError));
        return EXIT_FAILURE;
    }
    EchoServer server(static_cast<unsigned short>(dwPort));
    server.Start(31);
    const StopOnInterrupt interrupt(server);
    std::printf("lines on port %lu come back; Ctrl-C ends it\n", dwPort);
    std::fflush(stdout);
    while (!server.GetFinishedSignal().IsSignaled())
        server.GetFinishedSignal().WaitSignal(LNoTimeLimit);
    return EXIT_SUCCESS;
}
