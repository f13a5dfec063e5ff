#include "platform/LShellCommand.h"

#include <port/internal/exported.h>
#include <port/shell.h>
#include <sys/wait.h>

template <typename>
bool RunCommandLineProcess(const char* szCommandLine) {
    const int nStatus = port_system(szCommandLine);
    return nStatus != -1 && WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0;
}
template PORT_EXPORTED bool RunCommandLineProcess<>(const char*);
