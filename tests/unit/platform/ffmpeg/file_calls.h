#pragma once

#include <atomic>
#include <cerrno>
#include <functional>
#include <map>
#include <string>
#include <sys/syscall.h>
#include <sys/types.h>
#include <thread>
#include <unistd.h>

namespace nimbrale::ffmpeg {

/// Stands before system calls on files of this test program: each can be made to fail, as on a file system that lacks
/// it or on a full disk, and something can be done right before it.
class FileCalls {
public:
    FileCalls() { current() = this; }
    /// Waits for threads that are in a call, such as one that was left behind.
    ~FileCalls()
    {
        current() = nullptr;
        while (inside() > 0)
            std::this_thread::yield();
    }
    FileCalls(const FileCalls&) = delete;
    FileCalls& operator=(const FileCalls&) = delete;

    /// The error that each call of this name fails with.
    std::map<std::string, int> failures;
    /// Called with its name before each call.
    std::function<void(const std::string& call)> before;

    /// The error that the call is to fail with, or 0.
    static int enter(const std::string& call)
    {
        ++inside();
        const int failure = failureOf(call);
        --inside();
        return failure;
    }

private:
    static int failureOf(const std::string& call)
    {
        const FileCalls* const calls = current();
        if (calls == nullptr)
            return 0;
        if (calls->before)
            calls->before(call);
        const auto failure = calls->failures.find(call);
        return failure == calls->failures.end() ? 0 : failure->second;
    }

    static std::atomic<FileCalls*>& current()
    {
        static std::atomic<FileCalls*> calls = nullptr;
        return calls;
    }
    static std::atomic<int>& inside()
    {
        static std::atomic<int> threads = 0;
        return threads;
    }
};

template <typename... Arguments>
long enterFileCall(const char* name, long number, Arguments... arguments)
{
    if (const int error = FileCalls::enter(name)) {
        errno = error;
        return -1;
    }
    return syscall(number, arguments...);
}

} // namespace nimbrale::ffmpeg

// The parameters' names in the system's headers are reserved ones.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int flock(int file, int operation) noexcept
{
    return static_cast<int>(nimbrale::ffmpeg::enterFileCall("flock", SYS_flock, file, operation));
}

int link(const char* from, const char* to) noexcept
{
    return static_cast<int>(nimbrale::ffmpeg::enterFileCall("link", SYS_link, from, to));
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned int flags) noexcept
{
    return static_cast<int>(
        nimbrale::ffmpeg::enterFileCall("renameat2", SYS_renameat2, fromFolder, from, toFolder, to, flags));
}

int rename(const char* from, const char* to) noexcept
{
    return static_cast<int>(nimbrale::ffmpeg::enterFileCall("rename", SYS_rename, from, to));
}

int ftruncate(int file, off_t size) noexcept
{
    return static_cast<int>(nimbrale::ffmpeg::enterFileCall("ftruncate", SYS_ftruncate, file, size));
}

int fsync(int file)
{
    return static_cast<int>(nimbrale::ffmpeg::enterFileCall("fsync", SYS_fsync, file));
}

ssize_t pwrite(int file, const void* bytes, size_t count, off_t offset)
{
    return nimbrale::ffmpeg::enterFileCall("pwrite", SYS_pwrite64, file, bytes, count, offset);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
