#include "host/Spawn.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <port/UniqueFd.h>
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
        std::vector<int> sources(options.standard.begin(), options.standard.end());
        sources.insert(sources.end(), options.further.begin(), options.further.end());
        const int count = static_cast<int>(sources.size());
        int error = 0;
        for (int target = 0; target < count && error == 0; ++target)
            error = connect(sources[static_cast<std::size_t>(target)], target, count);
        if (error == 0 && options.workingFolder != nullptr)
            error = ::posix_spawn_file_actions_addchdir_np(&actions_, options.workingFolder);
        return error == 0 ? ::posix_spawn_file_actions_addclosefrom_np(&actions_, count) : error;
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    // A source among the `count` targets may be replaced before its turn comes: a duplicate stands in for it.
    int connect(int source, int target, int count) {
        if (source == kInherited)
            return 0;
        if (source == kEmptyDevice)
            return ::posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", O_RDWR, 0);
        if (source < count) {
            duplicates_.emplace_back(::fcntl(source, F_DUPFD_CLOEXEC, count));
            source = duplicates_.back().get();
        }
        return source < 0 ? errno : ::posix_spawn_file_actions_adddup2(&actions_, source, target);
    }

    posix_spawn_file_actions_t actions_;
    std::vector<UniqueFd> duplicates_;
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

} // namespace

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
