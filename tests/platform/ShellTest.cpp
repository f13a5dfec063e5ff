#include "platform/LPipe.h"
#include "platform/LShellCommand.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <port/shell.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/Child.h"
#include "support/TemporaryFolder.h"

namespace {

std::string ReadAll(int nDescriptor) {
    std::string sText;
    char buffer[256];
    for (ssize_t nGot; (nGot = read(nDescriptor, buffer, sizeof buffer)) > 0;)
        sText.append(buffer, static_cast<std::size_t>(nGot));
    return sText;
}

TEST(ShellTest, TellsSuccessFromEveryKindOfFailure) {
    EXPECT_TRUE(RunCommandLineProcess("test \"$((1 + 1))\" = 2"));
    for (const char* szFailing : {"exit 3", "kill -9 $$", "no-such-command-here 2>/dev/null", "("})
        EXPECT_FALSE(RunCommandLineProcess(szFailing)) << szFailing;
}

TEST(ShellTest, SignalsStayThisProcesssOwn) {
    static volatile std::sig_atomic_t nHeard = 0;
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    InChild([&] {
        std::signal(SIGINT, [](int) { nHeard = 1; });
        std::signal(SIGQUIT, SIG_IGN);
        sigprocmask(SIG_BLOCK, &blocked, nullptr);
        EXPECT_TRUE(RunCommandLineProcess("kill -INT $PPID"));
        EXPECT_EQ(nHeard, 1);
        EXPECT_FALSE(RunCommandLineProcess("kill -TERM $$")) << "what is blocked here is not blocked there";
        EXPECT_FALSE(RunCommandLineProcess("kill -QUIT $$"));
        LPipeIn in;
        LPipeOut out;
        LPipeInOut both;
        EXPECT_TRUE(in._Open("kill $$") && out._Open("kill $$") && both._Open("kill $$", 0, 0));
        for (const int nStatus : {in.Close(), out.Close(), both.Close()})
            EXPECT_TRUE(WIFSIGNALED(nStatus));
    });
}

TEST(ShellTest, StartedCommandsAskNobodyAndEndWhenTheyAreToldTo) {
    setenv("SECRET", "x", 1);
    const char* const without[] = {"SECRET", nullptr};
    port::ShellCommand alone;
    ASSERT_TRUE(alone.start("! read x && ! (: </dev/tty) 2>/dev/null && test -z \"$SECRET\"", without));
    EXPECT_EQ(alone.wait(), 0);
    const TemporaryFolder folder;
    const std::string sPipe = folder.root / "pipe";
    ASSERT_EQ(mkfifo(sPipe.c_str(), 0600), 0);
    // The second one hears no request, nor does what it has started.
    for (const std::string sTrap : {"", "trap '' TERM; "}) {
        port::ShellCommand command;
        ASSERT_TRUE(command.start((sTrap + "exec >" + sPipe + "; echo up; sleep 1000 & sleep 1000").c_str(),
                                  nullptr));
        const port::UniqueFd output(open(sPipe.c_str(), O_RDONLY));
        char szUp[3];
        EXPECT_EQ(read(output.get(), szUp, sizeof szUp), 3);
        EXPECT_FALSE(command.hasEnded());
        command.end();
        EXPECT_TRUE(WIFSIGNALED(command.wait()));
        EXPECT_EQ(ReadAll(output.get()), "") << "somebody could still write";
    }
}

TEST(ShellTest, OneStreamReachesTheCommand) {
    LPipeIn in;
    ASSERT_TRUE(in._Open("echo hello; exit 4"));
    EXPECT_EQ(ReadAll(in.GetDescriptor()), "hello\n");
    EXPECT_EQ(WEXITSTATUS(in.Close()), 4);
    EXPECT_EQ(in.GetDescriptor(), -1);
    LPipeOut out;
    ASSERT_TRUE(out._Open("test \"$(cat)\" = word"));
    EXPECT_EQ(write(out.GetDescriptor(), "word", 4), 4);
    EXPECT_EQ(out.Close(), 0);
}

TEST(ShellTest, ACommandThatIsLeftToItselfLeavesNoZombie) {
    pid_t process = -1;
    {
        LPipeInOut both;
        ASSERT_TRUE(both._Open("read x; sleep 0.05", 0, 0));
        process = both.GetProcess();
    }
    while (kill(process, 0) == 0)
        usleep(1000);
}

[[noreturn]] void AskAndExit(int nStreamsClosed) {
    for (int nDescriptor = 0; nDescriptor < nStreamsClosed; ++nDescriptor)
        close(nDescriptor);
    LPipeInOut both;
    if (!both._Open("tr a-z A-Z; no-such-command-here", 0, 0) ||
        write(both.GetWriteDescriptor(), "abc", 3) != 3)
        _exit(1);
    both.CloseWriteEnd();
    _exit(ReadAll(both.GetReadDescriptor()) == "ABC" ? WEXITSTATUS(both.Close()) : 2);
}

// In a process whose standard streams are closed the pipes land on 0 and 1.
TEST(ShellDeathTest, BothStreamsAtOnceWhateverDescriptorsAreFree) {
    for (const int nClosed : {0, 1, 2})
        EXPECT_EXIT(AskAndExit(nClosed), testing::ExitedWithCode(127), "not found") << nClosed;
}

} // namespace
