// Is loaded into another program before everything else: what it asks of the files in the folder that
// NIMBRALE_STALLED_FOLDER names hangs while there is a file of that name with ".stall" behind it. Where the main thread
// asks, that is told on standard error: nothing may hold that one up.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

const std::string& folder()
{
    static const std::string name = [] {
        const char* const value = std::getenv("NIMBRALE_STALLED_FOLDER");
        return std::string(value == nullptr ? "" : value);
    }();
    return name;
}

bool isWithin(const char* path)
{
    const std::string& name = folder();
    return path != nullptr && !name.empty() && std::strncmp(path, name.c_str(), name.size()) == 0 &&
           (path[name.size()] == '\0' || path[name.size()] == '/');
}

bool isStalled()
{
    static const std::string switchFile = folder() + ".stall";
    return syscall(SYS_access, switchFile.c_str(), F_OK) == 0;
}

/// Comes back when the disk answers.
void ask(const char* call, const char* path)
{
    if (!isWithin(path))
        return;
    if (gettid() == getpid())
        std::fprintf(stderr, "The main thread asks the disk: %s %s\n", call, path);
    bool isTold = false;
    while (isStalled()) {
        if (!isTold)
            std::fprintf(stderr, "The disk hangs: %s %s\n", call, path);
        isTold = true;
        const timespec pause{.tv_sec = 0, .tv_nsec = 20'000'000};
        nanosleep(&pause, nullptr);
    }
}

void ask(const char* call, int file)
{
    char path[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    const long length = syscall(SYS_readlink, link.c_str(), path, sizeof path - 1);
    path[length < 0 ? 0 : length] = '\0';
    ask(call, path);
}

template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <typename Function>
int passOn(const char* name, const char* path, int flags, mode_t mode)
{
    ask(name, path);
    static Function* const real = next<Function>(name);
    return real(path, flags, mode);
}

} // namespace

// The parameters' names in the system's headers are reserved ones.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int open(const char* path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const auto mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : mode_t{0};
    va_end(rest);
    return passOn<int(const char*, int, ...)>("open", path, flags, mode);
}

int open64(const char* path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const auto mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : mode_t{0};
    va_end(rest);
    return passOn<int(const char*, int, ...)>("open64", path, flags, mode);
}

int openat(int base, const char* path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const auto mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : mode_t{0};
    va_end(rest);
    ask("openat", path);
    return static_cast<int>(syscall(SYS_openat, base, path, flags, mode));
}

int access(const char* path, int type) noexcept
{
    ask("access", path);
    return static_cast<int>(syscall(SYS_access, path, type));
}

int statx(int base, const char* path, int flags, unsigned int mask, struct statx* status) noexcept
{
    ask("statx", path);
    return static_cast<int>(syscall(SYS_statx, base, path, flags, mask, status));
}

int stat(const char* path, struct stat* status) noexcept
{
    ask("stat", path);
    return static_cast<int>(syscall(SYS_newfstatat, AT_FDCWD, path, status, 0));
}

int lstat(const char* path, struct stat* status) noexcept
{
    ask("lstat", path);
    return static_cast<int>(syscall(SYS_newfstatat, AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW));
}

int mkdir(const char* path, mode_t mode) noexcept
{
    ask("mkdir", path);
    return static_cast<int>(syscall(SYS_mkdir, path, mode));
}

int statvfs(const char* path, struct statvfs* status) noexcept
{
    ask("statvfs", path);
    static auto* const real = next<int(const char*, struct statvfs*)>("statvfs");
    return real(path, status);
}

DIR* opendir(const char* path)
{
    ask("opendir", path);
    static auto* const real = next<DIR*(const char*)>("opendir");
    return real(path);
}

char* realpath(const char* path, char* resolved) noexcept
{
    ask("realpath", path);
    static auto* const real = next<char*(const char*, char*)>("realpath");
    return real(path, resolved);
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned int flags) noexcept
{
    ask("renameat2", from);
    return static_cast<int>(syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
}

int unlink(const char* path) noexcept
{
    ask("unlink", path);
    return static_cast<int>(syscall(SYS_unlink, path));
}

int fsync(int file)
{
    ask("fsync", file);
    return static_cast<int>(syscall(SYS_fsync, file));
}

ssize_t pwrite(int file, const void* bytes, size_t count, off_t offset)
{
    ask("pwrite", file);
    return syscall(SYS_pwrite64, file, bytes, count, offset);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
