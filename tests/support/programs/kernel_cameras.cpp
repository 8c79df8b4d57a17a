// A library to preload: gives a program the folder that NIMBRALE_TEST_DEVICES names in place of /dev, with what a
// program needs of the real one, and answers for its files "video…" as the driver of a camera does, which shows what is
// in the file "picture", packed YUYV of 320 x 180. Who removes such a file unplugs the camera.

#include "tests/unit/platform/v4l2/video_driver.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sched.h>
#include <string>
#include <sys/mount.h>

namespace {

namespace fs = std::filesystem;
using nimbrale::v4l2::VideoDriver;

[[noreturn]] void giveUp(const char* what)
{
    std::fprintf(stderr, "The test's devices: %s: %s\n", what, std::strerror(errno));
    std::_Exit(EXIT_FAILURE);
}

void tellKernel(const char* file, const std::string& text)
{
    std::ofstream stream(file);
    stream << text << std::flush;
    if (!stream)
        giveUp(file);
}

/// File systems of this process's own, in which it stays the user that it is.
void leaveSharedFileSystems()
{
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        giveUp("unshare");
    tellKernel("/proc/self/uid_map", user + " " + user + " 1");
    tellKernel("/proc/self/setgroups", "deny");
    tellKernel("/proc/self/gid_map", group + " " + group + " 1");
}

void bind(const fs::path& from, const fs::path& to)
{
    if (mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
        giveUp(from.c_str());
}

void takeOverDevices(const fs::path& folder)
{
    for (const char* const name : {"null", "zero", "random", "urandom"}) {
        std::ofstream(folder / name).flush();
        bind(fs::path("/dev") / name, folder / name);
    }
    fs::create_directories(folder / "shm");
    bind("/dev/shm", folder / "shm");
    bind(folder, "/dev");
}

std::vector<std::uint8_t> picture()
{
    std::ifstream file("/dev/picture", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Makes files cameras when they are looked at first, and unplugs those that were removed.
void follow(int descriptor, const struct stat& status)
{
    struct Known {
        dev_t device;
        ino_t number;
        VideoDriver* driver;
    };
    static std::mutex mutex;
    static std::vector<Known> cameras; // As long as the process: somebody may be asking.
    const std::lock_guard lock(mutex);
    const auto known = std::ranges::find_if(cameras, [&status](const Known& camera) {
        return camera.device == status.st_dev && camera.number == status.st_ino;
    });
    if (status.st_nlink == 0) {
        if (known != cameras.end()) {
            known->driver->noteUnplugged();
            // The next file may get the same number.
            cameras.erase(known);
        }
        return;
    }
    std::error_code error;
    const fs::path path = fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
    if (known != cameras.end() || !S_ISREG(status.st_mode) || !path.string().starts_with("/dev/video"))
        return;
    VideoDriver::Options options;
    options.card = "Kernel camera";
    options.formats = {{.width = 320, .height = 180}};
    options.picture = picture();
    cameras.push_back({status.st_dev, status.st_ino, new VideoDriver(path, options)});
}

const bool isPrepared = [] {
    const char* const folder = std::getenv("NIMBRALE_TEST_DEVICES");
    if (!folder)
        return false;
    unsetenv("LD_PRELOAD"); // Programs that this one starts are as they are.
    leaveSharedFileSystems();
    takeOverDevices(folder);
    VideoDriver::beforeCall = follow;
    return true;
}();

} // namespace
