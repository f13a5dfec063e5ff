#include "platform/LPipe.h"
#include "platform/LShellCommand.h"

#include <csignal>
#include <cstdlib>
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
    EXPECT_TRUE(RunCommandLineProcess("true"));
    EXPECT_TRUE(RunCommandLineProcess("test \"$((1 + 1))\" = 2"));
    for (const char* szFailing : {"exit 3", "kill -9 $$", "no-such-command-here 2>/dev/null", "("})
        EXPECT_FALSE(RunCommandLineProcess((std::string(szFailing) + " 2>/dev/null").c_str())) << szFailing;
}

TEST(ShellTest, StreamsReachTheCommand) {
    LPipeIn in;
    EXPECT_EQ(in.GetDescriptor(), -1);
    ASSERT_TRUE(in._Open("echo hello; exit 4"));
    EXPECT_EQ(ReadAll(in.GetDescriptor()), "hello\n");
    EXPECT_EQ(WEXITSTATUS(in.Close()), 4);
    EXPECT_EQ(in.GetDescriptor(), -1);
    LPipeOut out;
    ASSERT_TRUE(out._Open("test \"$(cat)\" = word"));
    EXPECT_EQ(write(out.GetDescriptor(), "word", 4), 4);
    EXPECT_EQ(out.Close(), 0);
}

TEST(ShellTest, BothStreamsAtOnceWhateverDescriptorsAreFree) {
    // In a child whose standard streams are closed the pipes land on 0 and 1.
    for (const bool bClosed : {false, true}) {
        const pid_t child = fork();
        if (child == 0) {
            if (bClosed) {
                close(0);
                close(1);
            }
            LPipeInOut both;
            if (!both._Open("tr a-z A-Z", 0, 0) || write(both.GetWriteDescriptor(), "abc", 3) != 3)
                _exit(1);
            both.CloseWriteEnd();
            const bool bGood = ReadAll(both.GetReadDescriptor()) == "ABC";
            _exit(bGood && both.Close() == 0 ? 0 : 2);
        }
        int nStatus = -1;
        waitpid(child, &nStatus, 0);
        EXPECT_EQ(nStatus, 0) << "streams closed: " << bClosed;
    }
    LPipeInOut missing;
    ASSERT_TRUE(missing._Open("no-such-command-here 2>&1", 0, 0));
    EXPECT_NE(ReadAll(missing.GetReadDescriptor()), "");
    EXPECT_EQ(WEXITSTATUS(missing.Close()), 127);
}

} // namespace
