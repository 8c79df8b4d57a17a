#pragma once

#include "platform/audio_sources.h"
#include "platform/main_queue.h"
#include "platform/screen_capture.h"
#include "platform/x11/capture/capture_engine.h"
#include "platform/x11/displays/x11_screens.h"

#include <functional>
#include <memory>
#include <optional>

namespace nimbrale::x11 {

/// A stream of pictures from the capture thread, and of the system's sound where that is configured. This application
/// plays nothing itself, so that there is nothing of its own to leave out of the sound. Main thread only.
class X11CaptureStream final : public CaptureStream {
public:
    /// All but the values must outlive what is done with it; it may be destroyed after them. `systemAudio` is null
    /// where nothing can be listened to.
    X11CaptureStream(CaptureEngine& engine, X11Screens& screens, MainQueue& mainQueue, SystemAudio* systemAudio,
                     const ContentFilter& filter, const StreamConfiguration& configuration,
                     std::function<void(Error)> onStopped);
    ~X11CaptureStream() override;

    [[nodiscard]] Result<void> addOutput(OutputType type, SerialQueue& queue, SampleHandler handler) override;
    void start(Completion completion) override;
    void stop(Completion completion) override;
    void updateConfiguration(const StreamConfiguration& configuration, Completion completion) override;
    void updateContentFilter(const ContentFilter& filter, Completion completion) override;

private:
    /// What the stream and the end of it share: whether somebody is to be told of it.
    struct Ending;

    /// In the server's terms; fails when the display is not there or the server has no pictures of that size.
    [[nodiscard]] Result<SessionConfiguration> sessionConfiguration() const;
    /// Opens or closes the sound, as it is configured.
    [[nodiscard]] Result<void> followAudio();
    void followDisplay();
    void postCompletion(Completion completion, Result<void> result);

    CaptureEngine& engine_;
    std::weak_ptr<WorkInbox> inbox_;
    X11Screens& screens_;
    MainQueue& mainQueue_;
    SystemAudio* systemAudio_;
    ContentFilter filter_;
    StreamConfiguration configuration_;
    std::shared_ptr<Ending> ending_;
    std::shared_ptr<CaptureSession> session_;
    std::shared_ptr<SampleOutput> audioOutput_;
    /// Open while sound is captured.
    std::unique_ptr<OpenAudioSource> audio_;
    /// What was asked of the capture thread last; absent while nothing is captured.
    std::optional<SessionConfiguration> requested_;
    Subscription screensChange_;
};

} // namespace nimbrale::x11
