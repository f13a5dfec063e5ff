#include "coreservices/LaunchScope.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <thread>
#include <unistd.h>

#include "coreservices/Launcher.h"
#include "host/Deadline.h"
#include "host/SystemCalls.h"
#include <port/UniqueFd.h>

namespace port {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kPatience = 2s; // for the manager and the move together
constexpr auto kMovePause = 1ms;                    // between two looks at where the process is
constexpr std::size_t kMaxName = 48;                // bytes of an application's name in that of its scope

bool hasServiceManager() {
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    return folder != nullptr && ::access((std::string(folder) + "/systemd/private").c_str(), F_OK) == 0;
}

// What a unit's name may not hold is escaped as the service manager does it.
std::string unitName(pid_t process, std::string_view application) {
    constexpr char kDigits[] = "0123456789abcdef";
    constexpr std::string_view kPlain = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";
    std::string name = "app-";
    for (const char c : application.substr(0, kMaxName)) {
        const auto byte = static_cast<unsigned char>(c);
        if (kPlain.find(c) != std::string_view::npos)
            name += c;
        else
            name.append("\\x").append({kDigits[byte >> 4], kDigits[byte & 15]});
    }
    return name.append("-").append(std::to_string(process)).append(".scope");
}

bool askForScope(const std::string& unit, pid_t process) {
    return runToEnd({"busctl",
                     "--user",
                     "--quiet",
                     "--timeout=2",
                     "call",
                     "org.freedesktop.systemd1",
                     "/org/freedesktop/systemd1",
                     "org.freedesktop.systemd1.Manager",
                     "StartTransientUnit",
                     "ssa(sv)a(sa(sv))",
                     unit,
                     "fail",
                     "3",
                     "Slice",
                     "s",
                     "app.slice",
                     "CollectMode",
                     "s",
                     "inactive-or-failed",
                     "PIDs",
                     "au",
                     "1",
                     std::to_string(process),
                     "0"},
                    kPatience);
}

std::string placeOf(pid_t process) {
    const UniqueFd file(sys::open(("/proc/" + std::to_string(process) + "/cgroup").c_str(), O_RDONLY));
    std::array<char, 4096> text;
    const ssize_t got = sys::read(file.get(), text.data(), text.size());
    return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
}

} // namespace

bool moveToOwnScope(pid_t process, std::string_view application) {
    const Deadline deadline(kPatience);
    const std::string before = placeOf(process);
    if (!hasServiceManager() || !askForScope(unitName(process, application), process))
        return false;
    // The manager answers before it has moved the process.
    while (placeOf(process) == before) {
        if (deadline.isPast())
            return false;
        std::this_thread::sleep_for(kMovePause);
    }
    return true;
}

} // namespace port
