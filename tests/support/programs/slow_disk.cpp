// Is loaded into another program before everything else: its disk takes three seconds to keep anything, and its file
// system knows no renaming that replaces nothing. It says what it is asked for on standard error.

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

// The parameters' names in the system's headers are reserved ones.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int fsync(int file)
{
    std::fputs("The slow disk is asked to keep something.\n", stderr);
    const timespec pause{.tv_sec = 3, .tv_nsec = 0};
    nanosleep(&pause, nullptr);
    return static_cast<int>(syscall(SYS_fsync, file));
}

int renameat2(int, const char*, int, const char*, unsigned int) noexcept
{
    std::fputs("The slow disk is asked to rename something.\n", stderr);
    errno = EINVAL;
    return -1;
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
