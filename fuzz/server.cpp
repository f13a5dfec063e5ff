// A server of the library, in this process, and a peer that sends it the input over its real socket. The
// first byte of the input chooses how many descriptors come with it, the second where it is cut in two.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <port/UniqueFd.h>
#include <port/main_queue.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "xpc/LXPCServer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr const char* kService = "fuzzed";
constexpr std::size_t kMostDescriptors = 20;
constexpr std::chrono::seconds kHang{20};

// Answers each message with what it was sent, and drops connections that have ended.
class Echo final : public LXPCServerEventNotify {
public:
    LXPCMachServer* server = nullptr;
    std::atomic<unsigned> ended = 0;

    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override {
        server->SendReply(connection, message, items);
        for (const LXPCDataListable* item = items.GetFirst(); item != nullptr; item = item->pNext)
            if (item->eType == LXPCDataTypeFD && item->nValue >= 0)
                close(static_cast<int>(item->nValue));
    }
    void EvConnectionError(long connection, LXPCErrorType) override {
        server->Disconnect(connection);
        ended++;
    }
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override { abort(); }
    void EvMessageSent(long) override {}
    void EvInvalidConnectionAttempt() override { abort(); }
};

// What `LXPCMachServer::Start` does, but for the main loop, which the fuzzer keeps.
Echo& StartServer() {
    static char folder[] = "/tmp/fuzz-server-XXXXXX";
    setenv("XDG_RUNTIME_DIR", mkdtemp(folder), 1);
    atexit([] { std::filesystem::remove_all(folder); });
    static Echo& echo = *new Echo;
    echo.server = new LXPCMachServer(&echo);
    for (int type = LXPCDataTypeBool; type <= LXPCDataTypeFD; type++) {
        const char name[] = {static_cast<char>('a' + type - 1), '\0'};
        echo.server->AddKey(name, static_cast<LXPCDataType>(type));
    }
    xpc_connection_t listener = xpc_connection_create_mach_service(kService, dispatch_get_main_queue(),
                                                                   XPC_CONNECTION_MACH_SERVICE_LISTENER);
    xpc_connection_set_event_handler(listener, [](xpc_object_t peer) {
        echo.server->NewConnectionHandler(static_cast<xpc_connection_t>(peer));
    });
    xpc_connection_resume(listener);
    return echo;
}

port::UniqueFd Connect() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s/port-xpc/%s.sock", getenv("XDG_RUNTIME_DIR"),
             kService);
    port::UniqueFd peer(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(peer.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        abort();
    return peer;
}

void Send(int peer, std::string_view bytes, std::size_t descriptors) {
    iovec part = {const_cast<char*>(bytes.data()), bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(kMostDescriptors * sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (descriptors != 0) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(descriptors * sizeof(int));
        cmsghdr* const item = CMSG_FIRSTHDR(&message);
        item->cmsg_level = SOL_SOCKET;
        item->cmsg_type = SCM_RIGHTS;
        item->cmsg_len = CMSG_LEN(descriptors * sizeof(int));
        const std::vector<int> passed(descriptors, STDERR_FILENO);
        memcpy(CMSG_DATA(item), passed.data(), descriptors * sizeof(int));
    }
    if (!bytes.empty())
        sendmsg(peer, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Echo& echo = StartServer();
    if (size < 2)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
    const std::size_t cut = std::min<std::size_t>(data[1], bytes.size());
    const unsigned before = echo.ended;
    const port::UniqueFd peer = Connect();
    Send(peer.get(), bytes.substr(0, cut), data[0] % (kMostDescriptors + 1));
    Send(peer.get(), bytes.substr(cut), 0);
    shutdown(peer.get(), SHUT_WR);
    const auto deadline = std::chrono::steady_clock::now() + kHang;
    while (echo.ended == before) {
        port_main_queue_drain(1);
        if (std::chrono::steady_clock::now() > deadline)
            abort();
    }
    return 0;
}
