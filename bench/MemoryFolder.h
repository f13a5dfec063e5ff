// Files in memory to measure with, and the tools that one would use on them.
#pragma once

#include "Driver.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace bench {

// In memory where there is room for it.
class MemoryFolder {
public:
    MemoryFolder() {
        char name[] = "/dev/shm/foundation-bench-XXXXXX";
        char other[] = "/tmp/foundation-bench-XXXXXX";
        const char* made = mkdtemp(name);
        path_ = made != nullptr ? made : mkdtemp(other);
    }
    ~MemoryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    MemoryFolder(const MemoryFolder&) = delete;
    MemoryFolder& operator=(const MemoryFolder&) = delete;
    std::string operator/(const char* name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline double milliseconds(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return nanosecondsSince(start) * 1e-6;
}

// Runs a program without its output.
inline void run(const std::vector<std::string>& command) {
    std::vector<char*> argv;
    for (const std::string& word : command)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    if (posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) == 0)
        waitpid(child, nullptr, 0);
    posix_spawn_file_actions_destroy(&actions);
}

} // namespace bench
