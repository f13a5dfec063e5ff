// A server of the library, in this process, and a peer that sends it the input over its real socket. The
// first byte of the input chooses how many descriptors come with it, the second where it is cut in two. Behind
// an input that ends with a frame comes a question of our own, so that all answers are there when its own is; what
// the server says is read with the reader of a client.
#include "xpc/LXPCServer.h"
#include "xpc/XPCFrameReader.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <port/UniqueFd.h>
#include <port/main_queue.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr const char* kService = "fuzzed";
constexpr std::size_t kMostDescriptors = 20;
constexpr std::chrono::seconds kHang{20};
constexpr std::uint64_t kOwnQuestion = ~std::uint64_t{0};

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

// Whether the server will read what comes behind the stream as a frame of its own, or refuse the stream.
bool EndsWithFrame(std::string_view stream) {
    while (stream.size() >= sizeof(port::XPCFrameHeader)) {
        port::XPCFrameHeader header;
        memcpy(&header, stream.data(), sizeof header);
        if (!header.isValid())
            return true;
        const std::size_t whole = sizeof header + header.bodyBytes;
        if (stream.size() < whole)
            return false;
        stream.remove_prefix(whole);
    }
    return stream.empty();
}

std::string OwnQuestion() {
    const auto question = port::XPCDictionary::create();
    const std::uint64_t yes = 1;
    question->set("a", port::XPCTag::Bool, &yes, sizeof yes);
    port::XPCFrameHeader header = question->header();
    header.kind = port::XPCFrameKind::MessageWantsReply;
    header.replyId = kOwnQuestion;
    std::string frame(reinterpret_cast<const char*>(&header), sizeof header);
    const auto body = question->body();
    return frame.append(reinterpret_cast<const char*>(body.data()), body.size());
}

// What the server says to the peer.
class Answers final : public port::XPCFrameSink {
public:
    explicit Answers(int peerSocket) : peer(peerSocket) {}

    bool frameReceived(port::XPCRef<port::XPCDictionary> frame) override {
        if (frame->kind() != port::XPCFrameKind::Reply || !port::bodyIsValid(frame->header(), frame->body()))
            abort();
        ended |= frame->replyId() == kOwnQuestion;
        return true;
    }
    // True once the own question was answered, or the server has closed the connection.
    bool HaveEnded() {
        pollfd readable = {peer, POLLIN, 0};
        if (ended || poll(&readable, 1, 1) != 1)
            return ended;
        const auto result = reader.readFrom(peer, port::XPCScratch::ofThisThread(), *this);
        if (result == port::XPCReadResult::Refused)
            abort();
        return ended |= result == port::XPCReadResult::Closed;
    }

private:
    const int peer;
    port::XPCFrameReader reader;
    bool ended = false;
};

template <typename Done>
void ServeUntil(Done done) {
    const auto deadline = std::chrono::steady_clock::now() + kHang;
    while (!done()) {
        port_main_queue_drain(0);
        if (std::chrono::steady_clock::now() > deadline)
            abort();
    }
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
    if (EndsWithFrame(bytes)) {
        Send(peer.get(), OwnQuestion(), 0);
        Answers answers(peer.get());
        ServeUntil([&] { return answers.HaveEnded(); });
    }
    shutdown(peer.get(), SHUT_WR);
    ServeUntil([&] {
        if (echo.ended == before)
            port_main_queue_drain(1);
        return echo.ended != before;
    });
    return 0;
}
