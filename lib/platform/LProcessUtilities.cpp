#include "platform/LProcessUtilities.h"

#include "base/LLimits.h"
#include "base/internal/LIdentity.h"
#include "debug/LDebugThread.h"
#include "platform/LCFRef.h"
#include "platform/LCFString.h"
#include "threads/LSystemLockMutex.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <memory>
#include <port/bsd.h>
#include <port/locale.h>
#include <port/user.h>
#include <strings.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

int lfoundation::gargc = 0;
char** lfoundation::gargv = nullptr;
port::Atomic<int> lfoundation::gGuiUid{-1};

namespace {

constexpr unsigned long kLocaleNameSize = 6;   // "de_DE" and the terminator
constexpr unsigned int kUidLockTimeout = 1000; // milliseconds

const char* Environment(const char* szVariable) {
    const char* const szValue = std::getenv(szVariable);
    return szValue != nullptr ? szValue : "";
}

void CopyLocaleName(char (&szName)[kLocaleNameSize], CFTypeRef value) {
    if (value != nullptr && CFGetTypeID(value) == CFStringGetTypeID())
        LCFString(static_cast<CFStringRef>(value)).GetString(szName, sizeof szName);
}

void GetUserLocaleName(char (&szName)[kLocaleNameSize]) {
    szName[0] = '\0';
    const LCFRef<CFLocaleRef> current(CFLocaleCopyCurrent());
    CopyLocaleName(szName, CFLocaleGetIdentifier(current.Get()));
    if (szName[0] != '\0')
        return;
    const LCFRef<CFPropertyListRef> own(
        CFPreferencesCopyAppValue(CFSTR("AppleLocale"), LCFString(LGetIdentity().szIdentifier).Get()));
    CopyLocaleName(szName, own.Get());
    if (szName[0] != '\0')
        return;
    const LCFRef<CFPropertyListRef> any(
        CFPreferencesCopyValue(CFSTR("AppleLocale"), kCFPreferencesAnyApplication, kCFPreferencesCurrentUser,
                               kCFPreferencesAnyHost));
    CopyLocaleName(szName, any.Get());
}

} // namespace

bool LUnixAppInitCommon(int argc, char** argv) {
    LDebugThreadDataStartThread("MAIN");
    umask(0);
    LUnixAppCopyCommandLineArguments(argc, argv);
    LGetLocale(PORT_LC_ALL);
    LSetMaximumNumberOfOpenFiles();
    return true;
}

void LUnixAppCopyCommandLineArguments(int argc, char** argv) {
    delete[] gargv;
    gargc = 0;
    gargv = new char*[static_cast<std::size_t>(std::max(argc, 0)) + 1];
    for (int i = 0; i < argc; ++i)
        if (i != 1 || std::strncmp(argv[i], "-psn", 4) != 0)
            gargv[gargc++] = argv[i];
    gargv[gargc] = nullptr;
}

void LRemoveCommandLineArgument(int index) {
    if (index < 0 || index >= gargc)
        return;
    std::copy(gargv + index + 1, gargv + gargc + 1, gargv + index);
    --gargc;
}

int LSetMaximumNumberOfOpenFiles() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return -1;
    limit.rlim_cur = LMaximumNumberOfOpenFiles;
    return setrlimit(RLIMIT_NOFILE, &limit);
}

char* LGetLocale(int category) {
    static bool bInited = false;
    static char* szLocale = nullptr;
    if (bInited)
        return szLocale;
    bInited = true;
    char szName[kLocaleNameSize];
    GetUserLocaleName(szName);
    port_setlocale(PORT_LC_ALL, szName);
    // A copy, kept for the life of the process: the next change of the locale ends the original.
    const char* szSet = port_setlocale(category, nullptr);
    if (szSet == nullptr) // no such category
        szSet = port_setlocale(PORT_LC_ALL, nullptr);
    szLocale = strdup(szSet);
    return szLocale;
}

bool LIsUserRoot() {
    return getuid() == 0 || std::strcmp(Environment("USER"), "root") == 0;
}

bool LIsUserAdministrator() {
    if (LIsUserRoot())
        return true;
    std::vector<gid_t> groups(NGROUPS_MAX + 1);
    const int nGroups = getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<std::size_t>(std::max(nGroups, 0)));
    return std::any_of(groups.begin(), groups.end(), [](gid_t group) {
        const auto entry = port::groupEntry(group);
        return entry && std::strcmp(entry->gr_name, "admin") == 0;
    });
}

bool LIsUserRunningAsAdministrator() {
    return LIsUserAdministrator();
}

bool LSwitchToUser() {
    char szUser[LPathBufferSize];
    strlcpy(szUser, Environment("LOGNAME"), sizeof szUser);
    if (szUser[0] == '\0')
        strlcpy(szUser, Environment("USER"), sizeof szUser);
    const auto user = port::userNamed(szUser);
    if (!user)
        return false;
    // Once the user id is another's the groups cannot be changed any more.
    if (geteuid() == 0 && (initgroups(user->pw_name, user->pw_gid) != 0 || setgid(user->pw_gid) != 0))
        return false;
    return setuid(user->pw_uid) == 0;
}

bool LSwitchToRoot() {
    return setuid(0) == 0;
}

unsigned long LGetBSDProcessList(kinfo_proc** result) {
    constexpr int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};
    *result = nullptr;
    for (;;) {
        std::size_t size = 0;
        if (sysctl(name, 3, nullptr, &size, nullptr, 0) != 0)
            return 0;
        std::unique_ptr<void, decltype(&std::free)> buffer(std::malloc(size), std::free);
        if (buffer == nullptr)
            return 0;
        if (sysctl(name, 3, buffer.get(), &size, nullptr, 0) == 0) {
            *result = static_cast<kinfo_proc*>(buffer.release());
            return size / sizeof(kinfo_proc);
        }
        if (errno != ENOMEM)
            return 0;
    }
}

int LGetBSDProcessUid(const char* name) {
    kinfo_proc* pList = nullptr;
    const unsigned long nCount = LGetBSDProcessList(&pList);
    const std::unique_ptr<kinfo_proc, decltype(&std::free)> list(pList, std::free);
    const kinfo_proc* const pFound = std::find_if(pList, pList + nCount, [name](const kinfo_proc& process) {
        return strcasecmp(process.kp_proc.p_comm, name) == 0;
    });
    return pFound != pList + nCount ? pFound->kp_proc.p_pid : -1;
}

int LGetProcessUid(const char* name) {
    if (gGuiUid >= 0)
        return gGuiUid;
    const int nFound = LGetBSDProcessUid(name);
    LSystemLockMutex lock("UID"); // given back by its destructor, and only if it was had
    lock.Lock(kUidLockTimeout);   // every user of the machine can hold it, for ever
    gGuiUid = nFound;
    return nFound;
}
