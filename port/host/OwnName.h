// A file name that nobody else uses, for a file on its way to its own.
//
// Thread-safety: one object belongs to one thread; names differ between threads and processes.
#pragma once

#include <string>
#include <utility>

namespace port {

// Names are the prefix, the process's id, "-" and a number; what is left of a process that was killed begins with
// the prefix.
class OwnName {
public:
    // A descriptor that stays open, or AT_FDCWD.
    OwnName(int folder, std::string prefix);
    OwnName(const OwnName&) = delete;
    OwnName& operator=(const OwnName&) = delete;
    // Removes the file unless it was renamed; errno is kept.
    ~OwnName();

    int folder() const { return folder_; }
    bool isTaken() const { return !name_.empty(); }
    // Empty until one is taken.
    const char* get() const { return name_.c_str(); }

    // Hands names to `make` until it makes a file of one, or fails for another reason than EEXIST, which errno
    // then tells.
    template <typename Make>
    bool take(Make make) {
        for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
            std::string name = next();
            if (make(name.c_str())) {
                name_ = std::move(name);
                return true;
            }
            if (!isInUse())
                return false;
        }
        return false;
    }
    // The name, which is the caller's to remove from now on.
    std::string release() { return std::exchange(name_, {}); }
    // Replaces what has the target's name in the folder. False with errno.
    bool renameTo(const char* target);

private:
    static constexpr int kMaxAttempts = 100;

    static bool isInUse();
    std::string next() const;

    int folder_;
    std::string prefix_;
    std::string name_;
};

} // namespace port
