#include "platform/file_watch.h"

#include <array>
#include <sys/inotify.h>
#include <utility>

namespace nimbrale {

FileWatch::FileWatch(std::filesystem::path path)
    : path_(std::move(path)), events_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{}

bool FileWatch::mayHaveChanged()
{
    alignas(inotify_event) std::array<char, 4096> events{};
    bool hasEvents = false;
    while (read(events_.get(), events.data(), events.size()) > 0)
        hasEvents = true;
    if (isWatching_ && !hasEvents)
        return false;
    // What happened may have put another folder in place of the watched one.
    isWatching_ = watchFolders();
    return true;
}

bool FileWatch::watchFolders() const
{
    constexpr std::uint32_t changes = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY | IN_ATTRIB |
                                      IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
    const auto watch = [this](const std::filesystem::path& folder) {
        return inotify_add_watch(events_.get(), folder.c_str(), changes) >= 0;
    };
    if (!watch(path_.parent_path()))
        return false;
    std::error_code error;
    if (!std::filesystem::is_symlink(path_, error))
        return true;
    const std::filesystem::path target = std::filesystem::canonical(path_, error);
    return !error && watch(target.parent_path());
}

} // namespace nimbrale
