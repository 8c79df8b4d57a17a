#pragma once

#include "platform/audio_buffer.h"
#include "platform/geometry.h"
#include "platform/result.h"
#include "platform/screens.h"
#include "platform/serial_queue.h"
#include "platform/surface.h"
#include "platform/surface_reader.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale {

using ProcessID = std::int64_t;

/// The identifier under which shareable content lists whatever shows the desktop's notifications.
inline constexpr const char* notificationApplicationIdentifier = "org.freedesktop.Notifications";

struct CaptureDisplay {
    DisplayID displayID = 0;
    double width = 0;  ///< points
    double height = 0; ///< points
};

struct CaptureApplication {
    /// 0 for an entry that stands for windows of several processes, such as the notifications'.
    ProcessID processID = 0;
    std::string bundleIdentifier;

    bool operator==(const CaptureApplication&) const = default;
};

struct CaptureWindow {
    /// Absent when the system does not tell.
    std::optional<ProcessID> owningProcess;
    bool isOnScreen = false;
};

struct ShareableContent {
    std::vector<CaptureDisplay> displays;
    std::vector<CaptureApplication> applications;
    std::vector<CaptureWindow> windows;
};

/// What a stream leaves out of the picture of `displayID`.
struct ContentFilter {
    DisplayID displayID = 0;
    std::vector<CaptureApplication> excludedApplications;

    bool operator==(const ContentFilter&) const = default;
};

struct FrameInterval {
    std::int64_t value = 1;
    std::int32_t timescale = 30; ///< the interval is value ÷ timescale seconds

    bool operator==(const FrameInterval&) const = default;
};

/// What sound a stream captures besides the picture.
struct AudioConfiguration {
    /// Whether what this application plays is to be left out. It plays nothing, so that nothing of it is there either
    /// way, and no backend does anything for it: what a loudspeaker plays is listened to where all programs are mixed
    /// already. Whatever plays something one day has to see to it that it can be left out.
    bool excludesOwnAudio = false;
    int sampleRate = 48000;
    int channels = 2;

    bool operator==(const AudioConfiguration&) const = default;
};

struct StreamConfiguration {
    /// Region coordinates of the filter's display. Absent: the whole display, and all of it again when its size
    /// changes.
    std::optional<Rect> sourceRect = {};
    /// Of the delivered pictures, in pixels. The captured pixels are scaled to that size; where they have it, they are
    /// delivered as they are.
    std::int64_t width = 0;
    std::int64_t height = 0;
    bool preservesAspectRatio = false;
    PixelFormat pixelFormat = PixelFormat::bgra;
    FrameInterval minimumFrameInterval = {};
    bool showsCursor = true;
    /// How many pictures may be on the way or held by consumers. While that many are, no further one is made; what
    /// changes meanwhile is in the next one. At least 1.
    int queueDepth = 3;
    /// Whether the consumer brings the pixels into the process with a `SurfaceReader`. The pictures are then made where
    /// that costs least, and the handler, which takes its time, is never called on the thread that captures. Counts as
    /// it was when the stream was started.
    bool readsPixels = false;
    /// Absent: no sound.
    std::optional<AudioConfiguration> audio = {};

    bool operator==(const StreamConfiguration&) const = default;
};

enum class OutputType { screen, audio };

enum class FrameStatus { complete = 0, idle = 1, blank = 2, suspended = 3, started = 4, stopped = 5 };

/// One thing that a stream delivers. Only `complete` screen samples carry a picture, only audio samples carry sound.
struct CaptureSample {
    OutputType type = OutputType::screen;
    std::optional<FrameStatus> status = {};
    std::shared_ptr<const Surface> surface = {};
    /// When the screen showed the picture, or when the sound begins: CLOCK_MONOTONIC. Rises from each sample of a type
    /// to the next.
    std::chrono::nanoseconds presentationTime{};
    std::shared_ptr<const AudioBuffer> audio = {};
};

/// A running capture. Created stopped; all calls on the main thread. Destroying it stops delivery at once.
///
/// Completions run on the main queue, once each, in the order of the calls, and what they own is released there. A
/// picture composed under an older configuration never reaches the sample handler after the completion of the update
/// that replaced it was posted.
class CaptureStream {
public:
    using Completion = std::function<void(Result<void>)>;
    using SampleHandler = std::function<void(const CaptureSample&)>;

    virtual ~CaptureStream() = default;

    /// `handler` gets the samples of `type` on `queue`, which must outlive the stream. One handler per type, all on one
    /// queue. Fails, with the reason, for a type that this system's streams do not deliver.
    [[nodiscard]] virtual Result<void> addOutput(OutputType type, SerialQueue& queue, SampleHandler handler) = 0;
    virtual void start(Completion completion) = 0;
    virtual void stop(Completion completion) = 0;
    virtual void updateConfiguration(const StreamConfiguration& configuration, Completion completion) = 0;
    virtual void updateContentFilter(const ContentFilter& filter, Completion completion) = 0;
};

/// Whether the user wants the desktop's notifications in the picture.
enum class NotificationSharing { shared, leftOut };

/// Access to the pixels of the desktop. Main thread only.
class ScreenCapture {
public:
    using ContentCompletion = std::function<void(Result<ShareableContent>)>;

    virtual ~ScreenCapture() = default;

    /// Whether capturing is permitted, without asking the user.
    [[nodiscard]] virtual bool preflightAccess() const = 0;
    /// Lets the system ask the user for the permission. The answer counts from the next start on.
    virtual void requestAccess() = 0;
    /// What can be captured now; `completion` runs on the main queue.
    virtual void shareableContent(ContentCompletion completion) = 0;
    /// A filter that leaves out nothing captures what the display shows, own windows included.
    /// `onStopped` runs on the main queue, once, when a stream that was started ends by itself: its display has gone,
    /// or the system's capture has. The error says which. It may destroy the stream.
    [[nodiscard]] virtual std::unique_ptr<CaptureStream> makeStream(const ContentFilter& filter,
                                                                    const StreamConfiguration& configuration,
                                                                    std::function<void(Error)> onStopped) = 0;
    /// A reader of the surfaces that streams deliver. Fails when the system can be asked for nothing more.
    [[nodiscard]] virtual Result<std::unique_ptr<SurfaceReader>> makeSurfaceReader() = 0;
    /// What this system's capture cannot do, in words for the user; empty when it can do everything that the choice
    /// asks for. Known after start. May wait for the system.
    [[nodiscard]] virtual std::vector<std::string> limitations(NotificationSharing choice) const = 0;
};

} // namespace nimbrale
