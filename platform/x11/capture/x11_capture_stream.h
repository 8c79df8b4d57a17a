#pragma once

#include "platform/main_queue.h"
#include "platform/screen_capture.h"
#include "platform/x11/capture/capture_engine.h"
#include "platform/x11/displays/x11_screens.h"

#include <memory>
#include <optional>

namespace nimbrale::x11 {

/// A stream of pictures from the capture thread. The pictures have the size of the source in pixels: nothing is
/// scaled. Main thread only.
class X11CaptureStream final : public CaptureStream {
public:
    X11CaptureStream(CaptureEngine& engine, X11Screens& screens, MainQueue& mainQueue, const ContentFilter& filter,
                     const StreamConfiguration& configuration);
    ~X11CaptureStream() override;

    [[nodiscard]] Result<void> addOutput(OutputType type, SerialQueue& queue, SampleHandler handler) override;
    void start(Completion completion) override;
    void stop(Completion completion) override;
    void updateConfiguration(const StreamConfiguration& configuration, Completion completion) override;
    void updateContentFilter(const ContentFilter& filter, Completion completion) override;

private:
    /// In root pixels; fails when the display is not there.
    [[nodiscard]] Result<SessionConfiguration> sessionConfiguration() const;
    void followDisplay();
    void postCompletion(Completion completion, Result<void> result);

    CaptureEngine& engine_;
    X11Screens& screens_;
    MainQueue& mainQueue_;
    ContentFilter filter_;
    StreamConfiguration configuration_;
    std::shared_ptr<CaptureSession> session_;
    /// What is captured, in root pixels, once it was asked for.
    std::optional<PixelRect> source_;
    Subscription screensChange_;
};

} // namespace nimbrale::x11
