// The other end of every connection is a program that is not ours: Python's sockets.
#include "base/LDeadline.h"
#include "host/SystemCalls.h"
#include "net/LProcessSocket.h"
#include "net/LTCPListener.h"
#include "support/ChildProcess.h"
#include "support/Recorder.h"
#include "support/SignalStorm.h"
#include "threads/LDetachedThread.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace {

using namespace std::string_literals;

LProcessInterfaceVoid plain;

// Listens on a port of 127.0.0.1 and runs for each connection `c` that it accepts the next of the statements.
// Without any its queue is full after one connection, and it answers no other.
struct Python : ChildProcess {
    explicit Python(std::vector<std::string> words = {})
        : ChildProcess((words.insert(words.begin(), {PYTHON, "-u", "-c", szProgram}), words)),
          wPort(static_cast<unsigned short>(std::stoi(ReadLine()))) {}
    LIPSocketTCP Connect() const {
        LIPSocketTCP socket;
        EXPECT_EQ(ProcessConnect(plain, socket, {"127.0.0.1", wPort}, 5000), LProcessFinished);
        return socket;
    }
    static constexpr const char* szProgram =
        "import socket, sys, time\n"
        "l = socket.create_server(('127.0.0.1', 0), backlog=len(sys.argv) - 1)\n"
        "print(l.getsockname()[1])\n"
        "for s in sys.argv[1:]: c, _ = l.accept(); exec(s)\n"
        "time.sleep(60)";
    const unsigned short wPort;
};

// Does what the text says, a letter and a size: send, receive bytes, one byte, until a terminator, all, or
// wait; or connect to a port, twice. Gives back the result, what was received, and a bar.
std::string Perform(LIPSocketTCPRef socket, const std::string& sWhat, unsigned int timeout = 1500,
                    LProcessInterface& process = plain) {
    const unsigned long n = std::stoul(sWhat.substr(1));
    std::string buffer(std::min(n, 32UL << 20) + 1, '#');
    char* p = buffer.data();
    unsigned long dwGot = sWhat[0] == 'o';
    LIPSocketTCP other;
    LIPAddressMultiHomedWithPort twice(static_cast<unsigned short>(n));
    EXPECT_TRUE(twice.Add("127.0.0.1") && twice.Add("127.0.0.1"));
    const int nResult =
        sWhat[0] == 's'   ? ProcessSend(process, socket, p, n, timeout)
        : sWhat[0] == 'b' ? ProcessRecvBytes(process, socket, p, n, dwGot, timeout)
        : sWhat[0] == 'o' ? ProcessRecvByte(process, socket, *reinterpret_cast<unsigned char*>(p), timeout)
        : sWhat[0] == 'u' ? ProcessRecvToCharacter(process, socket, p, n, dwGot, "\n;\xE9", timeout)
        : sWhat[0] == 'a' ? ProcessRecvAll(process, socket, p, n, dwGot, timeout)
        : sWhat[0] == 'w' ? ProcessWaitForDataOrClose(process, socket, timeout)
                          : ProcessConnect(process, other, twice, timeout);
    return std::to_string(nResult) + buffer.substr(0, dwGot) + "|";
}

TEST(ProcessSocketTest, EndsAsStatedWithEveryKindOfPeer) {
    const std::tuple<std::string, std::vector<std::string>, std::string> rows[] = {
        {"for b in b'ab\\n\\0c;': c.send(bytes([b])); time.sleep(.02)", {"b6", "o1"}, "0ab\n\0c;|2\0|"s},
        {"c.send(b'ab\\n\\0c;\\xe9de')",
         {"w0", "u99", "u2", "u9", "u9", "u9", "u9"},
         "0|0ab\n|0\0c|0;|0\xE9|0de|2|"s},
        {"c.send(b'abcd')", {"o1", "b10", "w0", "a9"}, "0a|2bcd|0|0|"},
        {"c.send(b'ab'); k, c = c, socket.socket()",
         {"a9", "b0", "b9223372036854775808", "w0"},
         "0ab|0|0|2|"},
        {"time.sleep(.2); c.setsockopt(1, socket.SO_LINGER, b'\\1\\0\\0\\0\\0\\0\\0\\0')",
         {"b10", "s1"},
         "2|2|"},
        {"c.shutdown(1); n = 0\nwhile n < 20 << 20: n += len(c.recv(99999))\nprint(n)",
         {"b1", "s20971520"},
         "2|0|"},
    };
    std::vector<std::string> statements;
    for (const auto& [sPeer, operations, sResults] : rows)
        statements.push_back(sPeer + "\nc.close()");
    Python server(statements);
    signal(SIGPIPE, SIG_DFL);
    for (const auto& [sPeer, operations, sResults] : rows) {
        const LIPSocketTCP socket = server.Connect();
        std::string sGot;
        for (const std::string& sOperation : operations)
            sGot += Perform(socket, sOperation);
        EXPECT_EQ(sGot, sResults) << sPeer;
    }
    EXPECT_EQ(server.ReadLine(), "20971520");
}

// With POSIX signals all the while, which shorten no slice and fail no wait. The time-out of sending does not
// wrap: the stop ends it.
TEST(ProcessSocketTest, TimeoutsCountIdleSlices) {
    const Python server({"k = c"}), full;
    const LIPSocketTCP socket = server.Connect(), queued = full.Connect();
    ASSERT_EQ(Perform(socket, "s1048576", 0), "2|");
    const std::jthread storm = SignalStorm();
    const LDeadline whole(14 * 200 - 1);
    for (const auto& [timeout, nSlices] : {std::pair{200U, 1}, {201U, 2}, {0xFFFFFF38U, 1}}) {
        Recorder connect(3), send(3), receive(3); // are asked once a slice
        LIPSocketTCP other;
        EXPECT_EQ(ProcessConnect(connect, other, {"127.0.0.1", full.wPort}, timeout), LProcessFailed);
        EXPECT_EQ(Perform(socket, "b1", timeout, receive), "2|");
        EXPECT_EQ(Perform(socket, "s1", timeout, send), timeout < 1000 ? "2|" : "1|");
        EXPECT_EQ(3 - connect.nQuestions, nSlices) << timeout;
        EXPECT_EQ(3 - receive.nQuestions, nSlices) << timeout;
        EXPECT_EQ(3 - send.nQuestions, timeout < 1000 ? nSlices : 4) << timeout;
    }
    EXPECT_TRUE(whole.IsPast());
}

struct Worker : LThread {
    ~Worker() override { _StopAndWait(); }
    void ThreadFunction() override { sResult = Perform(socket, sWhat, 20000, *this); }
    LIPSocketTCP socket;
    std::string sWhat, sResult;
};

TEST(ProcessSocketTest, StopsWithinASliceInEveryState) {
    const Python server(std::vector<std::string>(7, "k = [c, globals().get('k')]")), full;
    const LIPSocketTCP queued = full.Connect();
    Worker workers[7];
    const std::string operations[] = {
        "s1048576", "w0", "b1", "o1", "u1", "a1", "c" + std::to_string(full.wPort)};
    for (std::size_t i = 0; i < std::size(workers); ++i) {
        workers[i].socket = server.Connect();
        workers[i].sWhat = operations[i];
        workers[i].Start(31);
    }
    usleep(300000);
    for (Worker& worker : workers)
        worker.StopThreadSoon();
    const LDeadline late(300); // a slice, and what a busy machine adds
    for (Worker& worker : workers) {
        ASSERT_TRUE(worker.GetFinishedSignal().WaitSignal(late.GetRemaining())) << worker.sWhat;
        EXPECT_EQ(worker.sResult[0], '1') << worker.sWhat;
    }
}

TEST(ProcessSocketTest, SendsWhileItReceives) {
    const Python echo({"b = c.recv(99999)\nwhile b: c.sendall(b); b = c.recv(99999)"});
    Worker sender;
    sender.socket = echo.Connect();
    sender.sWhat = "s8388608";
    sender.Start(31);
    EXPECT_EQ(Perform(sender.socket, "b8388608", 20000).size(), 2 + 8388608U);
    EXPECT_TRUE(sender.GetFinishedSignal().WaitSignal(5000) && sender.sResult == "0|");
    const LSignalObjectRef readable = sender.socket.GetReadableSignal();
    EXPECT_FALSE(readable.WaitSignalDual(LSignalObject(), 0));
    Perform(sender.socket, "s1");
    EXPECT_TRUE(readable.WaitSignalDual(LSignalObject(), 5000) && readable.IsSignaled());
}

TEST(ProcessSocketTest, ConnectsToTheFirstAddressThatAnswers) {
    const Python server({"c.close()"});
    LIPAddressMultiHomedWithPort address(server.wPort);
    LIPSocketTCP socket(dup(STDERR_FILENO));
    for (const char* szAddress : {"", "1.2.3", "localhost", "010.0.0.1", "1.2.3.4 ", "127.0.0.2"}) {
        EXPECT_EQ(ProcessConnect(plain, socket, {szAddress, server.wPort}, 0), LProcessFailed) << szAddress;
        EXPECT_EQ(address.Add(szAddress), szAddress == "127.0.0.2"s) << szAddress;
    }
    EXPECT_EQ(ProcessConnect(plain, socket, address, 0), LProcessFailed);
    EXPECT_FALSE(socket.IsOpen());
    while (address.Add("127.0.0.1")) {
    }
    EXPECT_EQ(address.GetCount(), LIPAddressMaximum);
    EXPECT_EQ(ProcessConnect(plain, socket, address, 0), LProcessFinished);
    EXPECT_EQ(Perform(socket, "w0"), "0|");
}

TEST(ProcessSocketTest, DescriptorsThatSelectCannotWatchFail) {
    const Python server({"c.send(b'abc')"});
    const rlimit limit{1100, 1100};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const LIPSocketTCP socket = server.Connect();
    std::vector<port::UniqueFd> copies;
    while (copies.emplace_back(dup(socket.GetDescriptor())).get() < FD_SETSIZE) {
    }
    for (const int nRefused : {FD_SETSIZE, -1})
        for (const std::string& sWhat : {"s1"s, "w0"s, "b1"s, "u1"s, "c" + std::to_string(server.wPort)})
            EXPECT_EQ(Perform(LIPSocketTCPRef(nRefused), sWhat), "2|") << sWhat << nRefused;
    EXPECT_EQ(port::UniqueFd(dup(STDERR_FILENO)).get(), FD_SETSIZE + 1); // none was left open
}

// Answers lines with the same lines, a thread for each client. What it does instead of waiting before it
// listens anew may be given.
struct Echo : LTCPListener {
    struct Client : LDetachedThread {
        void ThreadFunction() override {
            for (std::string sGot; (sGot = Perform(socket, "u64", 60000, *this)).size() > 2;)
                ProcessSend(*this, socket, sGot.data() + 1, sGot.size() - 2, 5000);
        }
        LIPSocketTCP socket;
    };
    using LTCPListener::LTCPListener;
    ~Echo() override { _StopAndWait(); }
    void EvConnection(LIPSocketTCP& socket) override {
        last = socket.GetPeerAddress();
        auto pClient = std::make_unique<Client>();
        pClient->socket = std::move(socket);
        if (pClient->StartDetached(clients, 31))
            static_cast<void>(pClient.release());
    }
    bool ProcessWait(unsigned int timeout) override {
        if (!instead || IsToStop())
            return LThread::ProcessWait(timeout);
        instead();
        nWaits += timeout == 30000;
        return false;
    }
    std::function<void()> instead;
    std::atomic<int> nWaits{0};
    LIPAddressWithPort last; // peer
    LDetachedThreadsOwner clients;
};

// What comes back for the line, once somebody listens.
std::string Say(unsigned short wListening, const std::string& sLine) {
    LIPSocketTCP socket;
    for (const LDeadline late(10000); !socket.IsOpen() && !late.IsPast(); usleep(2000))
        ProcessConnect(plain, socket, {"127.0.0.1", wListening}, 1000);
    ProcessSend(plain, socket, sLine.data(), sLine.size(), 1000);
    return Perform(socket, "u99");
}

TEST(LTCPListenerTest, ServesManyClientsAtOnce) {
    const unsigned short wFree = std::make_unique<Python>()->wPort;
    Echo echo(wFree);
    echo.Start(31);
    for (const LDeadline late(10000); !echo.IsListening() && !late.IsPast();)
        usleep(2000);
    ChildProcess clients(
        {PYTHON, "-u", "-c",
         "import socket, sys\nsocket.setdefaulttimeout(30)\n"
         "cs = [socket.create_connection(('127.0.0.1', int(sys.argv[1]))) for i in range(130)]\n"
         "for c in cs: c.sendall(b'a\\n')\n"
         "print(sum(c.recv(9) == b'a\\n' for c in cs), *c.getsockname())",
         std::to_string(wFree)});
    const std::string sAnswered = clients.ReadLine(30000);
    echo.StopThreadSoon();
    EXPECT_TRUE(echo.GetFinishedSignal().WaitSignal(5000));
    char szLast[LIPAddressTextSize];
    echo.last.GetText(szLast);
    EXPECT_EQ(sAnswered, "130 "s + szLast + " " + std::to_string(echo.last.GetPort()));
}

TEST(LTCPListenerTest, SurvivesAPortInUseAndAcceptsThatFail) {
    auto pHolder = std::make_unique<Python>();
    const unsigned short wHeld = pHolder->wPort;
    Echo echo(wHeld);
    echo.Start(31);
    usleep(50000);
    EXPECT_FALSE(echo.IsListening());
    echo.StopThreadSoon();
    EXPECT_TRUE(echo.GetFinishedSignal().WaitSignal(200));
    echo.instead = [&] { pHolder.reset(); };
    echo.Start(31);
    for (const LDeadline late(10000); echo.nWaits == 0 && !late.IsPast();)
        usleep(2000);
    static std::atomic<int> nAcceptError;
    port::sys::setHook([](port::sys::Call call) {
        return port::sys::Verdict{call == port::sys::Call::Accept ? nAcceptError.exchange(0) : 0};
    });
    for (const auto& [nError, nWaits] : {std::pair{ECONNABORTED, 1}, {EMFILE, 2}}) {
        nAcceptError = nError;
        Say(wHeld, "a\n");
        EXPECT_EQ(Say(wHeld, "b\n"), "0b\n|");
        EXPECT_EQ(echo.nWaits, nWaits);
        EXPECT_TRUE(echo.IsListening());
    }
    echo.StopThreadSoon();
    EXPECT_TRUE(echo.GetFinishedSignal().WaitSignal(5000));
    EXPECT_FALSE(echo.IsListening());
}

} // namespace
