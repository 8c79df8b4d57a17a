#include "platform/x11/capture/x11_capture_stream.h"

namespace nimbrale::x11 {

namespace {

/// An interval without a meaning (a rate of zero or less in the settings) is one second: slow, but alive.
std::chrono::nanoseconds intervalOf(const FrameInterval& interval)
{
    if (interval.timescale <= 0 || interval.value < 0)
        return std::chrono::seconds(1);
    return std::chrono::nanoseconds(1'000'000'000 * interval.value / interval.timescale);
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

X11CaptureStream::X11CaptureStream(CaptureEngine& engine, X11Screens& screens, MainQueue& mainQueue,
                                   const ContentFilter& filter, const StreamConfiguration& configuration)
    : engine_(engine), screens_(screens), mainQueue_(mainQueue), filter_(filter), configuration_(configuration),
      session_(std::make_shared<CaptureSession>(mainQueue, [&engine] { engine.wake(); })),
      screensChange_(screens.observeChanges([this] { followDisplay(); }))
{}

X11CaptureStream::~X11CaptureStream()
{
    session_->output->close();
    engine_.post([&engine = engine_, session = session_] { engine.removeSession(session); });
}

Result<void> X11CaptureStream::addOutput(OutputType type, SerialQueue& queue, SampleHandler handler)
{
    if (type != OutputType::screen)
        return fail(ErrorCode::unsupported, "This desktop's screen capture delivers no sound.");
    session_->output->open(queue, std::move(handler));
    return {};
}

void X11CaptureStream::start(Completion completion)
{
    const Result<SessionConfiguration> configuration = sessionConfiguration();
    if (!configuration) {
        postCompletion(std::move(completion), tl::make_unexpected(configuration.error()));
        return;
    }
    source_ = configuration->source;
    engine_.post([&engine = engine_, session = session_, configuration = *configuration,
                  filter = sessionFilter(filter_), completion = std::move(completion)]() mutable {
        session->configure(configuration);
        session->setFilter(filter);
        session->output->complete(std::move(completion), {});
        engine.addSession(session);
    });
}

void X11CaptureStream::stop(Completion completion)
{
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
    source_ = updated->source;
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
    const auto corner = screens_.pixelOf(configuration_.sourceRect.origin(), filter_.displayID);
    if (!corner)
        return fail(ErrorCode::captureFailedToStart, "The display that holds the frame is not connected any more.");
    SessionConfiguration result;
    result.source = {corner->x, corner->y, static_cast<int>(configuration_.width),
                     static_cast<int>(configuration_.height)};
    result.interval = intervalOf(configuration_.minimumFrameInterval);
    result.showsCursor = configuration_.showsCursor;
    return result;
}

// A display that is plugged in to the left of this one moves it on the root without changing anything else: the same
// pixels of the root would show another display.
void X11CaptureStream::followDisplay()
{
    const Result<SessionConfiguration> moved = sessionConfiguration();
    if (!source_ || !moved || moved->source == *source_)
        return;
    source_ = moved->source;
    engine_.post([session = session_, moved = *moved] { session->configure(moved); });
}

void X11CaptureStream::postCompletion(Completion completion, Result<void> result)
{
    mainQueue_.post([completion = std::move(completion), result = std::move(result)] { completion(result); });
}

} // namespace nimbrale::x11
