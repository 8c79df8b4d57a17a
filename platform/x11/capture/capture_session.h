#pragma once

#include "platform/main_queue.h"
#include "platform/screen_capture.h"
#include "platform/x11/capture/region_composer.h"
#include "platform/x11/server/pixel_region.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace nimbrale::x11 {

/// What a stream wants, in the server's terms.
struct SessionConfiguration {
    /// Root pixels.
    PixelRect source;
    std::chrono::nanoseconds interval{};
    bool showsCursor = true;
};

struct SessionFilter {
    std::vector<ProcessID> excludedProcesses;
    bool excludesNotifications = false;
};

/// One stream as the capture thread keeps it. What is delivered goes to the stream's queue, pictures and completions
/// alike, so that they keep their order; the next picture is composed only when the main queue has seen the last one.
class CaptureSession : public std::enable_shared_from_this<CaptureSession> {
public:
    /// `wake` lets the capture thread look again. `mainQueue` must outlive the session.
    CaptureSession(MainQueue& mainQueue, std::function<void()> wake);

    // Main thread.
    void setOutput(SerialQueue& queue, std::function<void(const CaptureSample&)> handler);
    /// After it nothing is posted to the output's queue any more, and the handler is not called.
    void close();

    // Capture thread.
    SessionConfiguration configuration;
    SessionFilter filter;
    std::unique_ptr<RegionComposer> composer;
    /// What is to be drawn anew, in root pixels.
    PixelRegion dirty;
    /// Where the pointer was drawn last.
    PixelRect pointerCoverage;
    std::chrono::steady_clock::time_point lastFrame;
    xcb_sync_counter_t counter = XCB_NONE;
    std::int64_t counterValue = 0;

    [[nodiscard]] bool includes(const CapturedWindow& window) const;
    void markAllDirty() { dirty = PixelRegion(configuration.source); }
    void markDirty(const PixelRegion& region)
    {
        dirty |= region;
        dirty &= PixelRegion(configuration.source);
    }
    /// Whether the last picture has not reached the main queue yet. When it has, `wake` is called if this was asked.
    [[nodiscard]] bool isWaitingForOwner();
    void deliver(std::shared_ptr<const Surface> surface);
    /// Runs `completion` on the main queue, after the pictures delivered before, and releases it there.
    void complete(CaptureStream::Completion completion, Result<void> result);

private:
    /// Takes `work` and is true; where there is no output, or none any more, false, and `work` is left as it was.
    [[nodiscard]] bool postToOutput(std::function<void()>& work);

    MainQueue& mainQueue_;
    std::function<void()> wake_;
    /// Recursive, since the output's queue may do on the spot what it is given.
    std::recursive_mutex outputMutex_;
    SerialQueue* queue_ = nullptr;
    std::function<void(const CaptureSample&)> handler_;
    std::atomic<bool> isInFlight_ = false;
    std::atomic<bool> isWakeWanted_ = false;
};

} // namespace nimbrale::x11
