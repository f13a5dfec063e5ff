#include "host/Spawn.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

namespace port {
namespace {

class Actions {
public:
    Actions() { ::posix_spawn_file_actions_init(&actions_); }
    Actions(const Actions&) = delete;
    Actions& operator=(const Actions&) = delete;
    ~Actions() { ::posix_spawn_file_actions_destroy(&actions_); }

    // 0 or an errno value.
    int add(const SpawnOptions& options) {
        int error = 0;
        for (int target = STDIN_FILENO; target <= STDERR_FILENO && error == 0; ++target) {
            const int source = options.standard[static_cast<std::size_t>(target)];
            if (source == kEmptyDevice)
                error = ::posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", O_RDWR, 0);
            else if (source != kInherited)
                error = ::posix_spawn_file_actions_adddup2(&actions_, source, target);
        }
        if (error == 0 && options.workingFolder != nullptr)
            error = ::posix_spawn_file_actions_addchdir_np(&actions_, options.workingFolder);
        return error == 0 ? ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1) : error;
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_;
};

class Attributes {
public:
    explicit Attributes(bool hasOwnSession) {
        sigset_t signals;
        ::posix_spawnattr_init(&attributes_);
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes_, &signals);
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes_, &signals);
        ::posix_spawnattr_setflags(&attributes_,
                                   static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK |
                                                      (hasOwnSession ? POSIX_SPAWN_SETSID : 0)));
    }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }
    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_;
};

bool isNamed(std::string_view entry, std::string_view name) {
    return entry.starts_with(name) && entry.substr(name.size()).starts_with('=');
}

// The pointers are borrowed; exec reads them only.
std::vector<char*> environmentFor(const SpawnOptions& options) {
    std::vector<char*> environment;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
        if (std::none_of(options.without.begin(), options.without.end(),
                         [&](std::string_view name) { return isNamed(*entry, name); }))
            environment.push_back(*entry);
    for (const std::string& entry : options.with)
        environment.push_back(const_cast<char*>(entry.c_str()));
    environment.push_back(nullptr);
    return environment;
}

} // namespace

int spawn(const char* program, const std::vector<std::string>& arguments, const SpawnOptions& options,
          pid_t& child) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    const std::vector<char*> environment = environmentFor(options);
    const Attributes attributes(options.hasOwnSession);
    Actions actions;
    const int error = actions.add(options);
    return error != 0 ? error
                      : ::posix_spawnp(&child, program, actions.get(), attributes.get(), pointers.data(),
                                       environment.data());
}

} // namespace port
