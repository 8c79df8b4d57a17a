#include "platform/pipewire/daemon_socket.h"

#include <array>
#include <cstdlib>
#include <sys/inotify.h>
#include <unistd.h>

namespace nimbrale::pipewire {

std::filesystem::path daemonSocket()
{
    const char* const remote = std::getenv("PIPEWIRE_REMOTE");
    const std::filesystem::path name = remote && *remote ? remote : "pipewire-0";
    if (name.is_absolute())
        return name;
    for (const char* variable : {"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR", "USERPROFILE"}) {
        const char* const folder = std::getenv(variable);
        if (folder && *folder)
            return std::filesystem::path(folder) / name;
    }
    return {};
}

SocketWatch::SocketWatch(const std::filesystem::path& socket)
    : name_(socket.filename().native()), events_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    if (events_ && inotify_add_watch(events_.get(), socket.parent_path().c_str(), IN_CREATE | IN_MOVED_TO) < 0)
        events_.reset();
}

bool SocketWatch::hasAppeared()
{
    alignas(inotify_event) std::array<char, 4096> events{};
    bool isThere = false;
    for (ssize_t length = 0; (length = read(events_.get(), events.data(), events.size())) > 0;) {
        for (ssize_t offset = 0; offset < length;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(events.data() + offset);
            isThere = isThere || (event->mask & IN_Q_OVERFLOW) != 0 || (event->len > 0 && name_ == event->name);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    return isThere;
}

} // namespace nimbrale::pipewire
