#pragma once

#include <fstream>
#include <string>
#include <sys/types.h>

namespace nimbrale::test {

/// Under the thread sanitizer each byte costs four more, and a camera with a gigabyte of buffers is so slow that it is
/// taken for one that gives no picture.
#ifdef __SANITIZE_THREAD__
constexpr bool areHugePicturesTooSlow = true;
#else
constexpr bool areHugePicturesTooSlow = false;
#endif

/// What a process has in memory besides its files: of its own, and what others share with it. In bytes; 0 once it is
/// gone.
[[nodiscard]] inline long residentMemory(pid_t process)
{
    constexpr long bytesPerKilobyte = 1024;
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    long sum = 0;
    for (std::string word; status >> word;) {
        long kilobytes = 0;
        if ((word == "RssAnon:" || word == "RssShmem:") && status >> kilobytes)
            sum += kilobytes * bytesPerKilobyte;
    }
    return sum;
}

} // namespace nimbrale::test
