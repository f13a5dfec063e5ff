// What the examples share: the answers to --help and --version, and Ctrl-C as a request to a thread.
//
// Thread-safety: none; the main thread's.
//
// Statuses: 0 done, 1 failed or wrongly called, 130 stopped by Ctrl-C.
#pragma once

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <threads/LThread.h>

// The usage of a program, one line or more, without its name at the beginning.
struct Example {
    const char* szName;
    const char* szUsage;

    // Ends the program with its answer where an argument asks for help or for the version.
    void AnswerQuestions(int argc, char** argv) const {
        for (int i = 1; i < argc; ++i) {
            if (std::strcmp(argv[i], "--help") == 0)
                std::printf("%s", szUsage);
            else if (std::strcmp(argv[i], "--version") == 0)
                std::printf("%s (lfoundation) %s\n", szName, LFOUNDATION_VERSION);
            else
                continue;
            std::exit(EXIT_SUCCESS);
        }
    }

    // For wrong arguments: says where help is. The status.
    int TellUsage() const {
        std::fprintf(stderr, "%s: wrong arguments\nTry '%s --help' for more information.\n", szName, szName);
        return EXIT_FAILURE;
    }
};

// While it lives Ctrl-C asks the thread, which runs, to stop; before and afterwards it ends the program.
class StopOnInterrupt {
public:
    static constexpr int nStatus = 130; // of a program that was stopped, as shells count it

    explicit StopOnInterrupt(LThread& thread) {
        pThread = &thread;
        struct sigaction action = {};
        action.sa_handler = Stop;
        sigaction(SIGINT, &action, &old);
    }
    StopOnInterrupt(const StopOnInterrupt&) = delete;
    ~StopOnInterrupt() { sigaction(SIGINT, &old, nullptr); }

private:
    // Setting the thread's signal is one write into a pipe, which a signal handler may do.
    static void Stop(int) { pThread->StopThreadSoon(); }

    static inline LThread* pThread = nullptr;
    struct sigaction old;
};
