// nimbrale_session_leader COMMAND [ARGUMENT...]: runs a command and, when that ends or a signal asks this program to
// end, ends everything that came of it, by id. Programs of a desktop session detach themselves from whoever started
// them; they come back to this program, which the kernel makes their parent.

#include "tests/support/process_tree.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nimbrale::test {

namespace {

/// How long programs have to end by themselves once they were asked to.
constexpr int patienceInRounds = 20;
constexpr timespec round{0, 100'000'000};

/// Takes in who has ended. Sets the exit code when the command is among them; false when nobody is left.
bool reap(pid_t command, int& exitCode)
{
    int status = 0;
    pid_t ended = 0;
    while ((ended = waitpid(-1, &status, WNOHANG)) > 0) {
        if (ended == command)
            exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return ended == 0;
}

void endEverything(const sigset_t& signals, pid_t command, int& exitCode)
{
    for (int rounds = 0; reap(command, exitCode); ++rounds) {
        // Whatever was started since the last look is asked as well.
        for (const pid_t process : descendants())
            kill(process, rounds < patienceInRounds ? SIGTERM : SIGKILL);
        sigtimedwait(&signals, nullptr, &round);
    }
}

int lead(char** command)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    sigset_t signals;
    sigset_t before;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        sigaddset(&signals, number);
    sigprocmask(SIG_BLOCK, &signals, &before);

    const pid_t child = fork();
    if (child == 0) {
        sigprocmask(SIG_SETMASK, &before, nullptr);
        execvp(command[0], command);
        std::fprintf(stderr, "%s: %s\n", command[0], std::strerror(errno));
        _exit(127);
    }
    if (child < 0)
        return 1;
    int exitCode = -1;
    while (exitCode < 0 && sigwaitinfo(&signals, nullptr) == SIGCHLD)
        reap(child, exitCode);
    endEverything(signals, child, exitCode);
    return exitCode < 0 ? 1 : exitCode;
}

} // namespace

} // namespace nimbrale::test

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "nimbrale_session_leader COMMAND [ARGUMENT...]\n");
        return 2;
    }
    return nimbrale::test::lead(argv + 1);
}
