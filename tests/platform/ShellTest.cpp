#include "platform/LPipe.h"
#include "platform/LShellCommand.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

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
