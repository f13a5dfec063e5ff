// A host program with names of its own that the library has too: each side keeps its own.
#define YES 1
typedef int BOOL;
int gargc = -1; // behind the headers the bare name could mean either
static const int* const pOwnCount = &gargc;

#include <cstdio>
#include <cstring>

#include <base/LSystemVersion.h>
#include <debug/LDebugThread.h>
#include <files/LSandboxBookmarkManager.h>
#include <platform/LProcessUtilities.h>
#include <platform/LShellCommand.h>
#include <port/bsd.h>
#include <strings/LCharsets.h>
#include <strings/LStringFormat.h>
#include <strings/LStringUtilities.h>
#include <threads/LLockFile.h>
#include <threads/LProcessEventsHandler.h>
#include <threads/LProcessRun.h>

static unsigned calls = 0;
using Text = char*;

// With the types that the library's own have. Whoever calls them by name gets these.
#define OWN(Result, name, ...)                                                                               \
    Result name(__VA_ARGS__) {                                                                               \
        ++calls;                                                                                             \
        return Result();                                                                                     \
    }
OWN(Text, strupr, char*)
OWN(std::uint32_t, atoh, const char*)
OWN(int, wstrcmp, const wchar_t*, const wchar_t*)
OWN(void, randomize)
OWN(bool, GetCSVListItem, const char*, unsigned long&, char*, unsigned long)
OWN(std::size_t, utf8strlen, const char*)
OWN(int, tprintf, const char*, ...)
OWN(std::uint32_t, tplsnprintf, char*, unsigned long, const char*, ...)
OWN(void, OutputDebugStringF, const char*, ...)
OWN(bool, RunCommandLineProcess, const char*)
OWN(int, flocktimed, int, int, unsigned int)
OWN(int, ProcessWaitAndProcessEvents, unsigned int)
OWN(bool, IsOSMacLionOrLater)
OWN(int, pthread_main_np)
OWN(int, sysctlbyname, const char*, void*, std::size_t*, const void*, std::size_t)
// Where the C library has one, this takes its place, and keeps its word.
extern "C" std::size_t strlcpy(char* to, const char* from, std::size_t size) noexcept {
    return static_cast<std::size_t>(std::snprintf(to, size, "%s", from));
}

int main(int argc, char** argv) {
    char text[64] = "Text";
    unsigned long position = 0;
    strupr(text), atoh(text), wstrcmp(L"", L""), randomize(),
        GetCSVListItem(text, position, text, sizeof text);
    utf8strlen(text), tprintf("a"), tplsnprintf(text, 2, "a"), OutputDebugStringF("a");
    RunCommandLineProcess("exit 1"), flocktimed(0, 0, 0), ProcessWaitAndProcessEvents(0);
    IsOSMacLionOrLater(), pthread_main_np(), sysctlbyname("", nullptr, nullptr, nullptr, 0);
    const bool own = calls == 15 && std::strcmp(text, "Text") == 0;

    // The library goes on to use its own.
    LUnixAppCopyCommandLineArguments(argc, argv);
    strlcpy(text + 4, "ual", 4);
    const bool untouched = *pOwnCount == -1 && lfoundation::gargc == argc && utf8strlen<>("\xC3\xA9") == 1 &&
                           IsOSMacLionOrLater<>() && std::strcmp(strupr<>(text), "TEXTUAL") == 0;
    std::printf("%s names: %u calls\n", own && untouched ? "ok  " : "FAIL", calls);
    return own && untouched && calls == 15 ? 0 : 1;
}
