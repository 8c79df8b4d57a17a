#pragma once

#include <array>
#include <cstring>
#include <string>
#include <sys/inotify.h>
#include <unistd.h>

namespace nimbrale {

/// Notes what any process does to the files of a folder.
class FolderEvents {
public:
    explicit FolderEvents(const std::string& folder) : events_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        isWatching_ = inotify_add_watch(events_, folder.c_str(), IN_OPEN | IN_MOVED_TO) >= 0;
    }
    ~FolderEvents() { close(events_); }
    FolderEvents(const FolderEvents&) = delete;
    FolderEvents& operator=(const FolderEvents&) = delete;

    [[nodiscard]] bool isWatching() const { return isWatching_; }

    /// What happened to a file since the last call.
    struct News {
        /// At least once: the system tells the same thing that happens again and again only once.
        bool wasOpened = false;
        /// How often another file took its place.
        int replacements = 0;
    };
    [[nodiscard]] News take(const std::string& file)
    {
        News news;
        alignas(inotify_event) std::array<char, 65536> events{};
        ssize_t size = 0;
        while ((size = read(events_, events.data(), events.size())) > 0) {
            for (const char* next = events.data(); next < events.data() + size;) {
                inotify_event event{};
                std::memcpy(&event, next, sizeof event);
                if (event.len > 0 && next + sizeof event == file) {
                    news.wasOpened |= (event.mask & IN_OPEN) != 0;
                    news.replacements += (event.mask & IN_MOVED_TO) != 0 ? 1 : 0;
                }
                next += sizeof event + event.len;
            }
        }
        return news;
    }

private:
    int events_;
    bool isWatching_ = false;
};

} // namespace nimbrale
