#include "platform/LPipe.h"

#include <cerrno>
#include <fcntl.h>
#include <port/pipe.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Ends {
    port::UniqueFd read;
    port::UniqueFd write;

    bool Open() {
        int ends[2];
        if (port_pipe(ends) != 0)
            return false;
        read.reset(ends[0]);
        write.reset(ends[1]);
        return true;
    }
};

// In the child: an end that stands where a standard stream belongs already would be closed by its duplication
// onto itself, so it is first moved out of the way. The duplicates are not close-on-exec, all else is.
bool Connect(int nInput, int nOutput) {
    const int nMovedOutput =
        nOutput == STDIN_FILENO ? fcntl(nOutput, F_DUPFD_CLOEXEC, STDERR_FILENO + 1) : nOutput;
    const int nMovedInput =
        nInput <= STDOUT_FILENO ? fcntl(nInput, F_DUPFD_CLOEXEC, STDERR_FILENO + 1) : nInput;
    if (nMovedOutput == STDOUT_FILENO)
        fcntl(nMovedOutput, F_SETFD, 0);
    return nMovedInput >= 0 && nMovedOutput >= 0 && dup2(nMovedInput, STDIN_FILENO) >= 0 &&
           dup2(nMovedOutput, STDOUT_FILENO) >= 0;
}

pid_t StartShell(const char* szCommandLine, const Ends& output, const Ends& input) {
    const pid_t child = fork();
    if (child != 0)
        return child;
    if (Connect(input.read.get(), output.write.get()))
        execl("/bin/sh", "sh", "-c", szCommandLine, nullptr);
    _exit(1);
}

pid_t WaitFor(pid_t process, int& nStatus, int nOptions) {
    pid_t ended;
    do
        ended = waitpid(process, &nStatus, nOptions);
    while (ended == -1 && errno == EINTR);
    return ended;
}

} // namespace

bool LPipeStream::_OpenStream(const char* szCommandLine, const char* szMode) {
    Close();
    pStream = port_popen(szCommandLine, szMode);
    if (pStream == nullptr)
        return false;
    nDescriptor = fileno(pStream);
    return true;
}

int LPipeStream::Close() {
    if (pStream == nullptr)
        return -1;
    FILE* pOpen = pStream;
    pStream = nullptr;
    nDescriptor = -1;
    return pclose(pOpen);
}

LPipeInOut::~LPipeInOut() {
    int nStatus;
    if (process > 0)
        WaitFor(process, nStatus, WNOHANG);
}

bool LPipeInOut::_Open(const char* szCommandLine, unsigned long, unsigned long) {
    Close();
    Ends output;
    Ends input;
    if (!output.Open() || !input.Open())
        return false;
    process = StartShell(szCommandLine, output, input);
    if (process < 0)
        return false;
    readEnd = std::move(output.read);
    writeEnd = std::move(input.write);
    return true;
}

int LPipeInOut::Close() {
    readEnd.reset();
    writeEnd.reset();
    if (process <= 0)
        return -1;
    int nStatus = -1;
    const pid_t ended = WaitFor(process, nStatus, 0);
    process = -1;
    return ended > 0 ? nStatus : -1;
}
