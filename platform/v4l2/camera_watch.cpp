#include "platform/v4l2/camera_watch.h"

#include "platform/log.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/inotify.h>

namespace nimbrale::v4l2 {

namespace {

/// When is looked, in milliseconds after the news and after each look: the system gives a file its name by socket and
/// the user's right to open it a while after the file is there, of which not all is told.
constexpr std::array<int, 3> pausesAfterNews{50, 200, 1000};

} // namespace

CameraWatch::CameraWatch(std::filesystem::path folder, Handler onChange)
    : folder_(std::move(folder)), onChange_(std::move(onChange)), changes_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
      end_(eventfd(0, EFD_CLOEXEC))
{
    constexpr std::uint32_t watched = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB;
    if (!changes_ || inotify_add_watch(changes_.get(), folder_.c_str(), watched) < 0) {
        qCWarning(webcamLog, "Cameras that come and go are not noticed: %s", std::strerror(errno));
        changes_.reset();
    }
    thread_ = std::thread([this] { run(); });
}

CameraWatch::~CameraWatch()
{
    static_cast<void>(eventfd_write(end_.get(), 1));
    thread_.join();
}

void CameraWatch::run()
{
    pthread_setname_np(pthread_self(), "nimbrale-v4l2");
    std::optional<std::vector<CameraNode>> told;
    const auto look = [&] {
        std::vector<CameraNode> nodes = findCameraNodes(folder_);
        if (told != nodes) {
            told = std::move(nodes);
            onChange_(*told);
        }
    };
    look();
    std::size_t looks = pausesAfterNews.size();
    std::array<pollfd, 2> sources{{{end_.get(), POLLIN, 0}, {changes_.get(), POLLIN, 0}}};
    while (true) {
        const int pause = looks < pausesAfterNews.size() ? pausesAfterNews.at(looks) : -1;
        const int ready = poll(sources.data(), sources.size(), pause);
        if (ready > 0 && sources.front().revents != 0)
            return;
        if (ready == 0) {
            ++looks;
            look();
        } else if (ready > 0 && hasNews()) {
            looks = 0;
        }
    }
}

/// Whether something happened to a camera's file or to the folder of its other names.
bool CameraWatch::hasNews() const
{
    alignas(inotify_event) std::array<char, 4096> events{};
    bool isNews = false;
    for (ssize_t length = 0; (length = read(changes_.get(), events.data(), events.size())) > 0;) {
        for (ssize_t offset = 0; offset < length;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(events.data() + offset);
            const std::string_view name = event->len > 0 ? event->name : "";
            isNews = isNews || (event->mask & IN_Q_OVERFLOW) != 0 || name.starts_with("video") || name == "v4l";
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    return isNews;
}

} // namespace nimbrale::v4l2
