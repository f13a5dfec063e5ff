// An application that its user can have back after login: a switch "start at login", on a terminal or a pipe. What is
// to be copied is in StartAtLogin.cpp.
#include <LoginHelperContract.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include <AppKit/AppKit.h>
#include <dispatch/dispatch.h>

#include "../Example.h"
#include "StartAtLogin.h"

namespace {

constexpr Example example{
    LOGINHELPER_APP_NAME,
    "Usage: '" LOGINHELPER_APP_NAME "' [--limit SECONDS]\n"
    "Says how it was started, and stays until it is ended or the time is over. Reads commands:\n"
    "  on, off, toggle  the switch \"start at login\"\n"
    "  status           whether it is on, and what the helper does\n"
    "  quit             end\n"};

void Say(const std::string& sText) {
    std::printf("%s: %s\n", example.szName, sText.c_str());
    std::fflush(stdout);
}

void Quit() {
    dispatch_async(dispatch_get_main_queue(), [] { NSApplication::sharedApplication()->terminate(); });
}

// The conversation with the user, on a thread of its own: the main thread delivers what the helper says meanwhile.
class Console {
public:
    void Run(LProcessInterface& process) {
        if (const std::string sTold = startAtLogin.Resume(); !sTold.empty())
            Say(sTold);
        const bool bTerminal = isatty(STDIN_FILENO) != 0;
        if (bTerminal)
            Say("on, off, toggle, status or quit?");
        std::string sInput;
        char szPart[256];
        // A descriptor can be waited for like a signal, together with the request to stop.
        while (process.ProcessWaitSignal({STDIN_FILENO, -1}, LNoTimeLimit) == LProcessFinished) {
            const ssize_t nRead = read(STDIN_FILENO, szPart, sizeof szPart);
            if (nRead <= 0)
                break;
            sInput.append(szPart, static_cast<std::size_t>(nRead));
            for (std::size_t nEnd; (nEnd = sInput.find('\n')) != sInput.npos; sInput.erase(0, nEnd + 1))
                Do(sInput.substr(0, nEnd));
        }
        // The end of a pipe ends nothing: an application that was launched at login has none.
        if (bTerminal)
            Quit();
    }

private:
    void Do(const std::string& sCommand) {
        if (sCommand == "quit")
            Quit();
        else if (sCommand == "status")
            Say("start at login is " + startAtLogin.Describe());
        else if (sCommand == "on" || sCommand == "off")
            Turn(sCommand == "on");
        else if (sCommand == "toggle")
            Turn(!startAtLogin.IsOn());
        else
            Say("on, off, toggle, status or quit?");
    }
    void Turn(bool bOn) {
        const std::string sWrong = startAtLogin.Set(bOn);
        Say(sWrong.empty() ? std::string("start at login is ") + (bOn ? "on" : "off") : sWrong);
    }

    StartAtLogin startAtLogin;
};

class MainApplication final : public NSApplicationDelegate {
public:
    MainApplication() : console([](LProcessInterface& process) { Console().Run(process); }) {}

    void applicationDidFinishLaunching(const NSNotification&) override {
        const char* szMark = getenv("LAUNCHED_AT_LOGIN");
        const bool bAtLogin = szMark != nullptr && std::strcmp(szMark, "1") == 0;
        Say(bAtLogin ? "launched at login" : "started by the user");
        console.Start(31);
    }

private:
    LThreadOf<void (*)(LProcessInterface&)> console;
};

} // namespace

int main(int argc, char* argv[]) {
    example.AnswerQuestions(argc, argv);
    const bool bLimit = argc == 3 && std::strcmp(argv[1], "--limit") == 0;
    if (argc > 1 && !bLimit)
        return example.TellUsage();
    if (bLimit) {
        signal(SIGALRM, [](int) { raise(SIGTERM); });
        alarm(static_cast<unsigned>(strtoul(argv[2], nullptr, 10)));
    }
    return NSApplicationMain(argc, argv, []() -> NSApplicationDelegate* { return new MainApplication; });
}
