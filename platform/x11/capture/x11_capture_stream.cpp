#include "platform/x11/capture/x11_capture_stream.h"

#include "platform/x11/capture/frame_pacer.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace nimbrale::x11 {

namespace {

/// The server counts the pixels of a picture in 15 bits.
bool isServerSize(std::int64_t pixels)
{
    return pixels > 0 && pixels <= std::numeric_limits<std::int16_t>::max();
}

/// How many whole pixels of a side of the source are captured. A side may end within a pixel, and whoever asks for that
/// many pixels without the last part of one wants them as they are.
int sourcePixels(double side, std::int64_t outputSide)
{
    if (std::abs(side - static_cast<double>(outputSide)) < 1)
        return static_cast<int>(outputSide);
    return static_cast<int>(std::clamp(side, 0.0, static_cast<double>(std::numeric_limits<std::int32_t>::max())));
}

/// Of the whole of a display. A movie has even sides: scaled by so little, the whole picture would be blurred, so an
/// odd last column or row is left out instead.
int displayPixels(int side, std::int64_t outputSide)
{
    return side - outputSide == 1 ? static_cast<int>(outputSide) : side;
}

Error displayLost()
{
    return {ErrorCode::captureFailedToStart, "The display that is captured is not connected any more."};
}

Error serverLost()
{
    return {ErrorCode::permanent, "The connection to the X server is lost."};
}

SessionFilter sessionFilter(const ContentFilter& filter)
{
    SessionFilter result;
    for (const CaptureApplication& application : filter.excludedApplications) {
        if (application.bundleIdentifier == notificationApplicationIdentifier)
            result.excludesNotifications = true;
        else
            result.excludedProcesses.push_back(application.processID);
    }
    return result;
}

} // namespace

struct X11CaptureStream::Ending {
    std::function<void(Error)> onStopped;
    bool isAwaited = false;

    /// Main thread.
    static void report(const std::weak_ptr<Ending>& weak, const Error& error)
    {
        const auto ending = weak.lock();
        if (!ending || !std::exchange(ending->isAwaited, false))
            return;
        // The call may destroy the stream, and with it the function.
        if (const auto onStopped = std::move(ending->onStopped))
            onStopped(error);
    }
};

X11CaptureStream::X11CaptureStream(CaptureEngine& engine, X11Screens& screens, MainQueue& mainQueue,
                                   SystemAudio* systemAudio, const ContentFilter& filter,
                                   const StreamConfiguration& configuration, std::function<void(Error)> onStopped)
    : engine_(engine), inbox_(engine.inbox()), screens_(screens), mainQueue_(mainQueue), systemAudio_(systemAudio),
      filter_(filter), configuration_(configuration), ending_(std::make_shared<Ending>(Ending{std::move(onStopped)})),
      session_(std::make_shared<CaptureSession>(mainQueue, engine.waker(),
                                                [&mainQueue, weak = std::weak_ptr(ending_)] {
                                                    mainQueue.post([weak] { Ending::report(weak, serverLost()); });
                                                })),
      audioOutput_(std::make_shared<SampleOutput>(mainQueue)),
      screensChange_(screens.observeChanges([this] { followDisplay(); }))
{}

X11CaptureStream::~X11CaptureStream()
{
    audio_.reset();
    audioOutput_->close();
    session_->output->close();
    // A main queue that goes last may have kept the stream until now, in the completion of its stop.
    if (const auto inbox = inbox_.lock())
        inbox->post([&engine = engine_, session = session_] { engine.removeSession(session); });
}

Result<void> X11CaptureStream::addOutput(OutputType type, SerialQueue& queue, SampleHandler handler)
{
    if (type == OutputType::audio && !systemAudio_)
        return fail(ErrorCode::unsupported, "This system has no sound that could be listened to.");
    const auto& output = type == OutputType::audio ? audioOutput_ : session_->output;
    output->open(queue, std::move(handler));
    return {};
}

void X11CaptureStream::start(Completion completion)
{
    const Result<SessionConfiguration> configuration = sessionConfiguration();
    if (!configuration) {
        postCompletion(std::move(completion), tl::make_unexpected(configuration.error()));
        return;
    }
    if (const Result<void> opened = followAudio(); !opened) {
        postCompletion(std::move(completion), opened);
        return;
    }
    requested_ = *configuration;
    ending_->isAwaited = true;
    engine_.post([&engine = engine_, session = session_, configuration = *configuration,
                  filter = sessionFilter(filter_), completion = std::move(completion)]() mutable {
        session->configure(configuration);
        session->setFilter(filter);
        // Before anybody hears of it, who may show windows then that are to be left out.
        engine.addSession(session);
        session->output->complete(std::move(completion), {});
    });
}

void X11CaptureStream::stop(Completion completion)
{
    audio_.reset();
    requested_.reset();
    ending_->isAwaited = false;
    engine_.post([&engine = engine_, session = session_, completion = std::move(completion)]() mutable {
        engine.removeSession(session);
        session->output->complete(std::move(completion), {});
    });
}

void X11CaptureStream::updateConfiguration(const StreamConfiguration& configuration, Completion completion)
{
    configuration_ = configuration;
    const Result<SessionConfiguration> updated = sessionConfiguration();
    if (!updated) {
        postCompletion(std::move(completion), tl::make_unexpected(updated.error()));
        return;
    }
    if (requested_) {
        if (const Result<void> opened = followAudio(); !opened) {
            postCompletion(std::move(completion), opened);
            return;
        }
        requested_ = *updated;
    }
    engine_.post([session = session_, updated = *updated, completion = std::move(completion)]() mutable {
        session->configure(updated);
        session->output->complete(std::move(completion), {});
    });
}

void X11CaptureStream::updateContentFilter(const ContentFilter& filter, Completion completion)
{
    filter_ = filter;
    engine_.post([session = session_, updated = sessionFilter(filter), completion = std::move(completion)]() mutable {
        session->setFilter(updated);
        session->output->complete(std::move(completion), {});
    });
}

Result<SessionConfiguration> X11CaptureStream::sessionConfiguration() const
{
    const std::optional<X11Screen> display = screens_.find(filter_.displayID);
    if (!display)
        return tl::make_unexpected(displayLost());
    SessionConfiguration result;
    result.source = display->pixels;
    result.source.width = displayPixels(display->pixels.width, configuration_.width);
    result.source.height = displayPixels(display->pixels.height, configuration_.height);
    result.display = {display->nameAtom, display->pixels};
    if (const std::optional<Rect>& region = configuration_.sourceRect) {
        const std::optional<PixelPoint> corner = screens_.pixelOf(region->origin(), filter_.displayID);
        if (!corner)
            return tl::make_unexpected(displayLost());
        const double scale = display->screen.backingScaleFactor;
        result.source = {corner->x, corner->y, sourcePixels(region->width * scale, configuration_.width),
                         sourcePixels(region->height * scale, configuration_.height)};
    }
    if (!isServerSize(result.source.width) || !isServerSize(result.source.height) ||
        !isServerSize(configuration_.width) || !isServerSize(configuration_.height))
        return fail(ErrorCode::captureFailedToStart, "An area of that size cannot be captured.");
    result.width = static_cast<int>(configuration_.width);
    result.height = static_cast<int>(configuration_.height);
    result.fit = configuration_.preservesAspectRatio ? OutputFit::inside : OutputFit::fill;
    result.interval = boundedInterval(configuration_.minimumFrameInterval);
    result.showsCursor = configuration_.showsCursor;
    result.queueDepth = std::max(1, configuration_.queueDepth);
    result.readsPixels = configuration_.readsPixels;
    return result;
}

Result<void> X11CaptureStream::followAudio()
{
    if (!configuration_.audio) {
        audio_.reset();
        return {};
    }
    if (audio_)
        return {};
    if (!systemAudio_ || configuration_.audio->sampleRate != 48000 || configuration_.audio->channels != 2)
        return fail(ErrorCode::unsupported, "This system's sound cannot be captured like that.");
    auto opened = systemAudio_->open(
        [output = audioOutput_](std::shared_ptr<const AudioBuffer> audio, std::chrono::nanoseconds presentationTime) {
            output->deliver(std::move(audio), presentationTime);
        });
    if (!opened)
        return tl::make_unexpected(opened.error());
    audio_ = std::move(*opened);
    return {};
}

// A display that is plugged in to the left of this one moves it on the root without changing anything else: the same
// pixels of the root would show another display.
void X11CaptureStream::followDisplay()
{
    if (!requested_)
        return;
    const Result<SessionConfiguration> moved = sessionConfiguration();
    if (!moved) {
        audio_.reset();
        requested_.reset();
        engine_.post([&engine = engine_, session = session_] { engine.removeSession(session); });
        mainQueue_.post([weak = std::weak_ptr(ending_), error = moved.error()] { Ending::report(weak, error); });
        return;
    }
    if (*moved == *requested_)
        return;
    requested_ = *moved;
    engine_.post([session = session_, moved = *moved] { session->configure(moved); });
}

void X11CaptureStream::postCompletion(Completion completion, Result<void> result)
{
    mainQueue_.post([completion = std::move(completion), result = std::move(result)] { completion(result); });
}

} // namespace nimbrale::x11
