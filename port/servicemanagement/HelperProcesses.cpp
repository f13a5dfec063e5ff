#include "servicemanagement/HelperProcesses.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <port/UniqueFd.h>
#include <port/login_helper.h>
#include <port/runtime_folder.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "corefoundation/CFBundle.h"
#include "coreservices/Launcher.h"
#include "coreservices/RunningBundles.h"
#include "host/Deadline.h"
#include "host/ExecutableLink.h"
#include "host/SystemCalls.h"
#include "host/UserFolders.h"

namespace port {
namespace {

using namespace std::chrono_literals;

constexpr const char* kMark = "PORT_LOGIN_ITEM_ENABLED";
constexpr std::chrono::milliseconds kEndPatience =
    6s; // a program with the library's handlers takes up to 5 s
constexpr std::chrono::milliseconds kKillPatience = 1s;
constexpr std::chrono::milliseconds kServePatience = 5s;
constexpr auto kServePause = 5ms;                // between two looks whether it serves
constexpr std::size_t kMaxEnvironment = 1 << 20; // bytes that are looked through

std::string fileOf(pid_t process, const char* name) {
    return "/proc/" + std::to_string(process) + "/" + name;
}

// The variable with which the process was started; empty when there is none, or nobody may know.
std::string variableOf(pid_t process, const std::string& name) {
    const UniqueFd file(sys::open(fileOf(process, "environ").c_str(), O_RDONLY));
    std::string all(1, '\0');
    char part[4096];
    ssize_t got;
    while (all.size() < kMaxEnvironment && (got = sys::read(file.get(), part, sizeof part)) > 0)
        all.append(part, static_cast<std::size_t>(got));
    const std::string start = '\0' + name + '=';
    const std::size_t at = all.find(start);
    return at == all.npos ? "" : all.c_str() + at + start.size();
}

bool isOfThisLogin(pid_t process) {
    const char* const own = std::getenv("XDG_RUNTIME_DIR");
    return variableOf(process, "XDG_RUNTIME_DIR") == (own != nullptr ? own : "");
}

bool hasEnded(int handle, std::chrono::milliseconds limit) {
    const Deadline deadline(limit);
    pollfd end{handle, POLLIN, 0};
    int result;
    while ((result = ::poll(&end, 1, deadline.milliseconds())) < 0 && errno == EINTR) {
    }
    if (result == 0)
        errno = ETIMEDOUT;
    return result > 0;
}

bool send(int handle, int signal) {
    return ::syscall(SYS_pidfd_send_signal, handle, signal, nullptr, 0) == 0;
}

} // namespace

std::vector<HelperProcess> runningHelpers(const std::string& identifier, const std::string& entryProgram) {
    const std::string_view entryBundle = bundleFolderOfExecutable(entryProgram);
    std::vector<HelperProcess> helpers;
    forEachRunningBundle([&](pid_t process, const std::string& path) {
        const CFRef<CFBundleRef> bundle = bundleAt(path);
        const std::string its = bundle ? bundle->identifier() : "";
        // The user may have had the entry start another application.
        const bool isMeant = its.empty() ? path == entryBundle : its == identifier;
        if (isMeant && isOfThisLogin(process))
            helpers.push_back({process, path});
        return true;
    });
    return helpers;
}

bool runsProgram(const HelperProcess& helper, const std::string& program) {
    struct stat its;
    struct stat wanted;
    return ::stat(fileOf(helper.process, "exe").c_str(), &its) == 0 &&
           ::stat(program.c_str(), &wanted) == 0 && its.st_dev == wanted.st_dev &&
           its.st_ino == wanted.st_ino;
}

bool endHelper(const HelperProcess& helper) {
    const UniqueFd handle(static_cast<int>(::syscall(SYS_pidfd_open, helper.process, 0)));
    if (!handle)
        return errno == ESRCH;
    // Its number may be another process's by now.
    const std::string program = readExecutableLink(fileOf(helper.process, "exe").c_str());
    if (bundleFolderOfExecutable(program) != helper.bundle)
        return true;
    if (!send(handle.get(), SIGTERM) && errno != ESRCH)
        return false;
    if (hasEnded(handle.get(), kEndPatience))
        return true;
    send(handle.get(), SIGKILL);
    return hasEnded(handle.get(), kKillPatience);
}

int isServed(const std::string& service) {
    if (port_service_process(service.c_str()) != -1)
        return 1;
    return errno == ENOENT || errno == ECONNREFUSED ? 0 : -1;
}

bool startHelper(const HelperBundle& bundle, const std::string& service) {
    const std::string mark = std::string(kMark) + "=1";
    errno = launchDetached(bundle.program, homeFolder(), {service, mark.c_str(), false});
    if (errno != 0)
        return false;
    for (const Deadline deadline(kServePatience); !deadline.isPast();
         std::this_thread::sleep_for(kServePause))
        if (const int served = isServed(service); served != 0)
            return served > 0;
    errno = ETIMEDOUT;
    return false;
}

} // namespace port

bool port_started_by_enabling() {
    return std::getenv(port::kMark) != nullptr;
}
