#include "platform/x11/capture/x11_screen_capture.h"

#include "platform/x11/capture/x11_capture_stream.h"
#include "platform/x11/server/window_manager_name.h"
#include "platform/x11/surfaces/x11_surface_reader.h"

#include <set>
#include <unistd.h>

namespace nimbrale::x11 {

namespace {

ShareableContent contentOf(std::vector<CaptureWindow> windows)
{
    ShareableContent content;
    // The running application itself is always there, whether or not a window of it shows already.
    std::set<ProcessID> processes{getpid()};
    for (const CaptureWindow& window : windows) {
        if (window.owningProcess)
            processes.insert(*window.owningProcess);
    }
    for (const ProcessID process : processes)
        content.applications.push_back({process, {}});
    content.applications.push_back({0, notificationApplicationIdentifier});
    content.windows = std::move(windows);
    return content;
}

} // namespace

X11ScreenCapture::X11ScreenCapture(Connection& connection, CaptureEngine& engine, X11Screens& screens,
                                   MainQueue& mainQueue, std::string displayName, SystemAudio* systemAudio)
    : connection_(connection), engine_(engine), screens_(screens), mainQueue_(mainQueue),
      displayName_(std::move(displayName)), systemAudio_(systemAudio)
{}

void X11ScreenCapture::shareableContent(ContentCompletion completion)
{
    // The capture thread ends after this object.
    engine_.post([&engine = engine_, &screens = screens_, &mainQueue = mainQueue_,
                  completion = std::move(completion)]() mutable {
        auto windows = std::make_shared<std::vector<CaptureWindow>>(engine.listWindows());
        mainQueue.post([&screens, completion = std::move(completion), windows] {
            ShareableContent content = contentOf(std::move(*windows));
            for (const Screen& screen : screens.screens())
                content.displays.push_back({screen.displayID, screen.frame.width, screen.frame.height});
            completion(std::move(content));
        });
    });
}

std::unique_ptr<CaptureStream> X11ScreenCapture::makeStream(const ContentFilter& filter,
                                                            const StreamConfiguration& configuration,
                                                            std::function<void(Error)> onStopped)
{
    return std::make_unique<X11CaptureStream>(engine_, screens_, mainQueue_, systemAudio_, filter, configuration,
                                              std::move(onStopped));
}

std::vector<std::string> X11ScreenCapture::limitations(NotificationSharing choice) const
{
    std::vector<std::string> all = engine_.limitations();
    if (choice == NotificationSharing::leftOut && drawsNotificationsItself(windowManagerName(connection_)))
        all.emplace_back(
            "This desktop draws notifications itself, so banners inside the frame are shared although they "
            "are to be left out. Turn the desktop's notifications off while you share.");
    return all;
}

Result<std::unique_ptr<SurfaceReader>> X11ScreenCapture::makeSurfaceReader()
{
    return X11SurfaceReader::create(displayName_);
}

} // namespace nimbrale::x11
