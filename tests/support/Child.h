// A process of a test's own, for what changes a process for good.
#pragma once

#include <cstdio>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

// Runs a check in a process that ends with it.
template <typename Check>
void InChild(Check check) {
    const pid_t child = fork();
    if (child == 0) {
        check();
        std::fflush(stdout);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int nStatus = 0;
    waitpid(child, &nStatus, 0);
    EXPECT_EQ(0, nStatus);
}
