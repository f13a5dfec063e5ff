#include "threads/LProcessRun.h"

#include <cerrno>
#include <memory>
#include <port/internal/exported.h>
#include <port/pipe.h>
#include <port/shell.h>
#include <pthread.h>
#include <sys/wait.h>

namespace {

// The command gets no input: its pipe is closed at once, and closing waits for its end. When the application
// ignores its children's ends nobody can tell the status, which is not the command's failure.
void Run(ProcessRunData& data) {
    data.nResult = LProcessFinished;
    data.nExitCode = -1;
    port::Pipe input;
    const pid_t process =
        input.open() ? port_start_shell(LUTF8StringLongRef(data.sCommand), input.read.get(), -1) : -1;
    if (process < 0) {
        data.nResult = LProcessFailed;
        return;
    }
    input = {};
    const int nStatus = port_wait(process);
    if (nStatus == -1 && errno != ECHILD)
        data.nResult = LProcessFailed;
    else if (nStatus != -1 && WIFEXITED(nStatus))
        data.nExitCode = WEXITSTATUS(nStatus);
}

} // namespace

template <typename>
void* ProcessRunThreadCallback(void* pData) {
    const std::unique_ptr<ProcessRunData> data(static_cast<ProcessRunData*>(pData));
    Run(*data);
    // The results are written: the pipe of the signal orders them before the requester's look. The data stays
    // until that one has let go, so that neither side frees it under the other.
    data->done.Signal();
    data->release.WaitUntilSet();
    return nullptr;
}
template PORT_EXPORTED void* ProcessRunThreadCallback<>(void*);

// On the requester's thread; the worker waits for the command. Who is told to stop leaves command and worker to
// themselves: `release` is the last that it touches.
int ProcessRunCommand(LProcessInterface& process, const char* szCommand, int& nExitCode) {
    nExitCode = -1;
    auto data = std::make_unique<ProcessRunData>();
    if (!data->done.IsUsable() || !data->release.IsUsable())
        return LProcessFailed;
    data->sCommand = szCommand;
    pthread_t thread;
    if (pthread_create(&thread, nullptr, ProcessRunThreadCallback, data.get()) != 0)
        return LProcessFailed;
    pthread_detach(thread);
    ProcessRunData* pShared = data.release();
    int nWait;
    do
        nWait = process.ProcessWaitSignal(pShared->done, LNoTimeLimit);
    while (nWait != LProcessWaitStopped && !pShared->done.IsSignaled());
    int nResult = LProcessStopped;
    if (nWait != LProcessWaitStopped) {
        nResult = pShared->nResult;
        nExitCode = pShared->nExitCode;
    }
    pShared->release.Signal();
    return nResult;
}
