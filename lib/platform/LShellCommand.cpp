#include "platform/LShellCommand.h"

#include <cstdlib>
#include <sys/wait.h>

bool RunCommandLineProcess(const char* szCommandLine) {
    const int nStatus = std::system(szCommandLine);
    return nStatus != -1 && WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0;
}
