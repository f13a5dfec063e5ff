#include <ServiceManagement/ServiceManagement.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <port/login_helper.h>
#include <port/runtime_folder.h>
#include <unistd.h>

#include "corefoundation/CFString.h"
#include "host/AtomicFile.h"
#include "host/SystemCalls.h"
#include "servicemanagement/DesktopEntry.h"
#include "servicemanagement/HelperBundle.h"
#include "servicemanagement/HelperProcesses.h"
#include "servicemanagement/LoginItems.h"

namespace port {
namespace {

constexpr std::size_t kMaxIdentifier = 200; // bytes: it is the beginning of file names
constexpr unsigned kTurnPatience = 15000;   // milliseconds: longer than another call takes

// What everything here needs to know first.
struct LoginHelper {
    explicit LoginHelper(std::string itsIdentifier)
        : identifier(std::move(itsIdentifier)), folder(userEntryFolder()),
          entryError(lookAtEntry(entryPath(), entry)) {
        bundle = findHelperBundle(identifier, entry.program);
    }
    std::string entryPath() const { return folder.empty() ? "" : folder + "/" + identifier + ".desktop"; }
    bool isSwitchedOffByUser() const {
        return entry.state == PORT_LOGIN_ITEM_MASKED || entry.state == PORT_LOGIN_ITEM_OFF;
    }
    std::vector<HelperProcess> running() const { return runningHelpers(identifier, entry.program); }

    const std::string identifier;
    const std::string folder; // of the entry; empty without a home
    port_login_item_t entry;
    const int entryError; // why the entry, which is there, cannot be read; 0 when it can
    HelperBundle bundle;
};

bool fail(int error) {
    errno = error;
    return false;
}

bool isIdentifier(std::string_view text) {
    return !text.empty() && text.size() <= kMaxIdentifier && text.front() != '.' &&
           text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.-_") ==
               text.npos;
}

// The text of the entry; false when its path is none that an entry can hold.
bool describe(const LoginHelper& helper, std::string& text) {
    DesktopEntry entry{helper.bundle.name, "Starts with the session", helper.bundle.program};
    if (!entry.name.empty() && entry.write(text))
        return true;
    entry.name = helper.identifier;
    return entry.write(text);
}

// Of the user's will first, then of what would be registered.
Obstacle whyNot(const LoginHelper& helper) {
    if (helper.entryError != 0)
        return {helper.entryError,
                std::string(helper.entry.path) + " cannot be read: " + std::strerror(helper.entryError)};
    if (helper.isSwitchedOffByUser())
        return {EPERM, std::string("the user has switched it off: ") + helper.entry.line + " in " +
                           helper.entry.path};
    if (helper.folder.empty())
        return {ENOENT, "the user has no home folder"};
    Obstacle obstacle = obstacleOf(helper.bundle, helper.folder);
    std::string text;
    if (obstacle.error == 0 && !describe(helper, text))
        obstacle = {EPERM, "no session can start " + helper.bundle.program +
                               ": its path has \"=\", a control character or no Unicode"};
    return obstacle;
}

// An entry that does it already may have been edited.
bool writeEntry(const LoginHelper& helper) {
    if (helper.entry.state == PORT_LOGIN_ITEM_ON && helper.bundle.program == helper.entry.program)
        return true;
    std::string text;
    removeAbandonedTemporaries(helper.entryPath());
    return describe(helper, text) && makeFolders(helper.folder) && replaceFile(helper.entryPath(), text);
}

// The link itself where the user has put one.
bool removeEntry(const LoginHelper& helper) {
    // It may be one that the user has switched off.
    if (helper.entryError != 0)
        return fail(helper.entryError);
    if (helper.isSwitchedOffByUser())
        return true;
    removeAbandonedTemporaries(helper.entryPath());
    if (helper.entry.state == PORT_LOGIN_ITEM_MISSING)
        return true;
    if (::unlink(helper.entry.path) != 0 && errno != ENOENT)
        return false;
    const UniqueFd folder(sys::open(helper.folder.c_str(), O_RDONLY | O_DIRECTORY));
    return folder && sys::fsync(folder.get()) == 0;
}

// One that cannot be ended is no reason to leave the others.
bool endAll(const std::vector<HelperProcess>& helpers) {
    int error = 0;
    for (const HelperProcess& helper : helpers)
        if (!endHelper(helper))
            error = errno;
    return error == 0 || fail(error);
}

// Ends what is in the way: helpers of another program, and, where nobody serves, those that do not either.
bool clearTheWay(const LoginHelper& helper) {
    std::vector<HelperProcess> inTheWay = helper.running();
    const int served = isServed(helper.identifier);
    if (served > 0)
        std::erase_if(inTheWay,
                      [&](const HelperProcess& one) { return runsProgram(one, helper.bundle.program); });
    return served >= 0 && endAll(inTheWay);
}

// Where a service manager keeps the service, it is served without a helper that runs.
bool serve(const LoginHelper& helper) {
    if (!clearTheWay(helper))
        return false;
    const int served = isServed(helper.identifier);
    return served > 0 || (served == 0 && startHelper(helper.bundle, helper.identifier));
}

bool enable(const LoginHelper& helper) {
    if (const Obstacle obstacle = whyNot(helper); obstacle.error != 0)
        return fail(obstacle.error);
    return writeEntry(helper) && serve(helper);
}

bool disable(const LoginHelper& helper) {
    return removeEntry(helper) && endAll(helper.running());
}

} // namespace
} // namespace port

Boolean SMLoginItemSetEnabled(CFStringRef identifier, Boolean enabled) {
    std::string name;
    if (identifier == nullptr || !port::copyUtf8(identifier, name) || !port::isIdentifier(name))
        return port::fail(EINVAL);
    // Where there can be no lock nobody can serve either; but in a shortage no helper would be seen that runs.
    const port::UniqueFd turn(port_lock_in_runtime_folder((name + ".login").c_str(), port::kTurnPatience));
    if (!turn && (errno == EWOULDBLOCK || errno == EMFILE || errno == ENFILE || errno == ENOMEM))
        return false;
    const port::LoginHelper helper(name);
    return enabled ? port::enable(helper) : port::disable(helper);
}

void port_login_helper(const char* identifier, port_login_helper_t* result) {
    *result = {};
    if (!port::isIdentifier(identifier)) { // a path would lead out of the folders
        result->error = EINVAL;
        strlcpy(result->obstacle, "this is no identifier of a bundle", sizeof result->obstacle);
        return;
    }
    const port::LoginHelper helper(identifier);
    const port::Obstacle obstacle = port::whyNot(helper);
    result->entry = helper.entry;
    result->error = obstacle.error;
    strlcpy(result->obstacle, obstacle.why.c_str(), sizeof result->obstacle);
    strlcpy(result->bundle, helper.bundle.path.c_str(), sizeof result->bundle);
    const pid_t server = port_service_process(identifier);
    result->serves = server != -1;
    for (const port::HelperProcess& one : helper.running())
        if (result->process == 0 || one.process == server) {
            result->process = one.process;
            strlcpy(result->running, one.bundle.c_str(), sizeof result->running);
        }
}
