#pragma once

#include <cstdio>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace nimbrale {

/// What work in a child process returns when the system does not let it make what the test needs.
inline constexpr int couldNotPrepare = 77;

/// Runs `work` in a process of its own and gives its exit status; -1 when it did not end by itself. This process should
/// have no other thread that holds a lock.
inline int runInChild(const std::function<int()>& work)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        _exit(work());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace nimbrale
