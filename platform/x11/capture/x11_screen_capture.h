#pragma once

#include "platform/audio_sources.h"
#include "platform/main_queue.h"
#include "platform/screen_capture.h"
#include "platform/x11/capture/capture_engine.h"
#include "platform/x11/displays/x11_screens.h"

#include <memory>
#include <string>

namespace nimbrale::x11 {

/// Screen capture on an X server. The server grants every client every pixel, so the permission is always there.
/// Main thread only.
class X11ScreenCapture final : public ScreenCapture {
public:
    /// Everything passed in must outlive what is done with it and its streams. `connection` is the main thread's,
    /// `displayName` the engine's. `systemAudio` is null where nothing can be listened to.
    X11ScreenCapture(Connection& connection, CaptureEngine& engine, X11Screens& screens, MainQueue& mainQueue,
                     std::string displayName, SystemAudio* systemAudio = nullptr);

    [[nodiscard]] bool preflightAccess() const override { return true; }
    void requestAccess() override {}
    void shareableContent(ContentCompletion completion) override;
    [[nodiscard]] std::unique_ptr<CaptureStream> makeStream(const ContentFilter& filter,
                                                            const StreamConfiguration& configuration,
                                                            std::function<void(Error)> onStopped) override;
    [[nodiscard]] Result<std::unique_ptr<SurfaceReader>> makeSurfaceReader() override;
    [[nodiscard]] std::vector<std::string> limitations(NotificationSharing choice) const override;

private:
    Connection& connection_;
    CaptureEngine& engine_;
    X11Screens& screens_;
    MainQueue& mainQueue_;
    std::string displayName_;
    SystemAudio* systemAudio_;
};

} // namespace nimbrale::x11
