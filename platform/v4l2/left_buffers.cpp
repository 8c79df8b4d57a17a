#include "platform/v4l2/left_buffers.h"

#include "platform/log.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace nimbrale::v4l2 {

LeftBuffers::LeftBuffers(const std::filesystem::path& file)
{
    struct stat status {};
    if (stat(file.c_str(), &status) != 0)
        return;
    device_ = status.st_dev;
    inode_ = status.st_ino;
    before_ = mapped();
}

void LeftBuffers::giveBack() const
{
    for (const Range& range : mapped()) {
        const auto overlaps = [&range](const Range& known) {
            return known.begin < range.end && range.begin < known.end;
        };
        if (std::ranges::any_of(before_, overlaps))
            continue;
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the system tells of its memory in text.
        if (munmap(reinterpret_cast<void*>(range.begin), range.end - range.begin) != 0)
            qCWarning(webcamLog, "A camera's buffers stay in memory: %s", std::strerror(errno));
    }
}

std::vector<LeftBuffers::Range> LeftBuffers::mapped() const
{
    std::vector<Range> ranges;
    if (inode_ == 0)
        return ranges;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        Range range;
        unsigned deviceMajor = 0;
        unsigned deviceMinor = 0;
        std::uintmax_t inode = 0;
        // NOLINTNEXTLINE(cert-err34-c): the kernel wrote it, and the count of what was read is tested.
        if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " %*s %*s %x:%x %" SCNuMAX, &range.begin, &range.end,
                        &deviceMajor, &deviceMinor, &inode) == 5 &&
            deviceMajor == major(device_) && deviceMinor == minor(device_) && inode == inode_)
            ranges.push_back(range);
    }
    return ranges;
}

} // namespace nimbrale::v4l2
