// POSIX signals that arrive all the time.
#pragma once

#include <csignal>
#include <pthread.h>
#include <thread>
#include <unistd.h>

// Sends SIGUSR1 to the calling thread again and again until the result is destroyed.
inline std::jthread SignalStorm() {
    signal(SIGUSR1, [](int) {});
    return std::jthread([target = pthread_self()](const std::stop_token& end) {
        for (; !end.stop_requested(); usleep(2000))
            pthread_kill(target, SIGUSR1);
    });
}
