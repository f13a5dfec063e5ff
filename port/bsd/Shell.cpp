#include <port/shell.h>

#include <cstdlib>
#include <port/internal/seams_shell.h>
#include <string>

namespace {

port_shell_hook shellHook = nullptr;

} // namespace

void port_set_shell_hook(port_shell_hook hook) {
    shellHook = hook;
}

// The shell itself drops the variables: this process's environment belongs to all its threads.
int port_system(const char* commandLine, const char* const* withoutVariables) {
    if (shellHook != nullptr)
        return shellHook(commandLine);
    if (withoutVariables == nullptr || *withoutVariables == nullptr)
        return std::system(commandLine);
    std::string line = "unset";
    for (; *withoutVariables != nullptr; ++withoutVariables)
        line.append(" ").append(*withoutVariables);
    return std::system(line.append("; ").append(commandLine).c_str());
}
