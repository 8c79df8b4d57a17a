#pragma once

#include "tests/support/child_process.h"

#include <QFile>

#include <functional>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

namespace nimbrale {

/// Writes one of the kernel's files about this process.
inline bool tellKernel(const char* name, const std::string& text)
{
    QFile file(QStringLiteral("/proc/self/") + name);
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(text.c_str()) > 0;
}

/// Gives this process file systems of its own, where it may mount, and a user and a group that can own files there.
inline bool leaveSharedFileSystems()
{
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && tellKernel("uid_map", "0 " + user + " 1") &&
           tellKernel("setgroups", "deny") && tellKernel("gid_map", "0 " + group + " 1");
}

/// Runs `work` in a child process on a file system of its own in place of `directory`, given a way to change that one's
/// size.
inline int runOnSmallDisk(const QString& directory, const char* size,
                          const std::function<int(const std::function<bool(const char* size)>&)>& work)
{
    return runInChild([&] {
        const QByteArray path = directory.toLocal8Bit();
        const auto mountWith = [&](unsigned long flags, const char* options) {
            return mount("tmpfs", path.constData(), "tmpfs", flags, options) == 0;
        };
        if (!leaveSharedFileSystems() || !mountWith(0, size))
            return couldNotPrepare;
        return work([&](const char* newSize) { return mountWith(MS_REMOUNT, newSize); });
    });
}

inline constexpr const char* noSmallDisk = "this system lets the test mount no small file system";

} // namespace nimbrale
