// Starting a program as a child: what a child should not inherit by accident stays behind.
//
// Thread-safety: reentrant; the environment must not change meanwhile.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace port {

// The empty device in place of a descriptor, and this process's own one.
constexpr int kEmptyDevice = -1;
constexpr int kInherited = -2;

// The first of the further descriptors that a child may have.
constexpr int kFurther = 3;

struct SpawnOptions {
    // What the child has as descriptors 0, 1 and 2: a descriptor, or one of the two above.
    std::array<int, kFurther> standard = {kInherited, kInherited, kInherited};
    // And as kFurther and on.
    std::vector<int> further;
    // Names of variables that the child does not get, and "NAME=value" entries that it gets.
    std::vector<std::string_view> without;
    std::vector<std::string> with;
    const char* workingFolder = nullptr; // null: this process's own
    // A session, and so a process group, of its own: the terminal sends it no signals and cannot be asked.
    bool hasOwnSession = false;
};

// The entries of the environment that the options make, and null; they live as long as the options and this process's
// environment.
std::vector<char*> environmentFor(const SpawnOptions& options);

// Starts the program, a path or a name of the search path, with these arguments, the first of which is its
// own name: default signal handling, no signal blocked, no descriptor but those of the options. 0, with `child`
// set, which the caller waits for; or an errno value, also when the program cannot be executed.
int spawn(const char* program, const std::vector<std::string>& arguments, const SpawnOptions& options,
          pid_t& child);

} // namespace port
