#include "platform/LShellCommand.h"

#include <port/shell.h>
#include <sys/wait.h>

template <typename>
bool RunCommandLineProcess(const char* szCommandLine) {
    const int nStatus = port_system(szCommandLine);
    return nStatus != -1 && WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0;
}
template bool RunCommandLineProcess<>(const char*);
