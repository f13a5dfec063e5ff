// A main application as small as it can be: it says how it was started and stays until it is ended.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include <AppKit/AppKit.h>

#include <LoginHelperContract.h>

#include "../Example.h"

namespace {

constexpr Example example{LOGINHELPER_APP_NAME,
                          "Usage: '" LOGINHELPER_APP_NAME "' [--limit SECONDS]\n"
                          "Says how it was started, and stays until it is ended or the time is over.\n"};

class MainApplication final : public NSApplicationDelegate {
public:
    void applicationDidFinishLaunching(const NSNotification&) override {
        const char* szMark = getenv("LAUNCHED_AT_LOGIN");
        const bool bAtLogin = szMark != nullptr && strcmp(szMark, "1") == 0;
        const char* szLine = bAtLogin ? LOGINHELPER_APP_NAME ": launched at login\n"
                                      : LOGINHELPER_APP_NAME ": started by the user\n";
        fputs(szLine, stdout);
        fflush(stdout);
    }
};

} // namespace

int main(int argc, char* argv[]) {
    example.AnswerQuestions(argc, argv);
    if (argc == 3 && strcmp(argv[1], "--limit") == 0) {
        signal(SIGALRM, [](int) { raise(SIGTERM); });
        alarm(static_cast<unsigned>(strtoul(argv[2], nullptr, 10)));
    }
    return NSApplicationMain(argc, argv, []() -> NSApplicationDelegate* { return new MainApplication; });
}
