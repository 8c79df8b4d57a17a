#include "share/region_capture.h"

#include "geometry/picture_size.h"
#include "platform/log.h"
#include "share/virtual_display.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <unistd.h>

namespace nimbrale {

namespace {

constexpr int lastFilterAttempt = 10;
constexpr std::chrono::milliseconds filterRetryDelay{300};

[[nodiscard]] ProcessID ownProcess()
{
    return ::getpid();
}

[[nodiscard]] bool listsOwnApplication(const ShareableContent& content)
{
    return std::ranges::any_of(content.applications, [](const CaptureApplication& application) {
        return application.processID == ownProcess();
    });
}

[[nodiscard]] bool listsOwnWindow(const ShareableContent& content)
{
    return std::ranges::any_of(content.windows, [](const CaptureWindow& window) {
        return window.isOnScreen && window.owningProcess == ownProcess();
    });
}

/// Keeps a stream, and the queue that it delivers on, until it has stopped.
struct StoppingCapture {
    std::shared_ptr<RegionCapture> owner;
    std::unique_ptr<CaptureStream> stream;
};

} // namespace

std::shared_ptr<RegionCapture> RegionCapture::create(ScreenCapture& screenCapture, Screens& screens,
                                                     MainQueue& mainQueue, AppSettings& settings)
{
    return std::shared_ptr<RegionCapture>(new RegionCapture(screenCapture, screens, mainQueue, settings));
}

RegionCapture::RegionCapture(ScreenCapture& screenCapture, Screens& screens, MainQueue& mainQueue,
                             AppSettings& settings)
    : screenCapture_(screenCapture), screens_(screens), mainQueue_(mainQueue), settings_(settings)
{}

RegionCapture::~RegionCapture() = default;

void RegionCapture::start(std::optional<Result<ShareableContent>> content, StartCompletion completion)
{
    if (!content) {
        startWithoutPermission(std::move(completion));
        return;
    }
    if (!*content) {
        completion(tl::make_unexpected(content->error()));
        return;
    }
    const std::optional<Choice> choice = chooseDisplay(**content);
    if (!choice) {
        completion(fail(ErrorCode::captureNoDisplayList, "There is no display that can be captured."));
        return;
    }
    adopt(*choice);
    startStream(**content, std::move(completion));
}

void RegionCapture::startWithoutPermission(StartCompletion completion)
{
    if (!settings_.hasRequestedScreenCaptureAccess()) {
        settings_.setHasRequestedScreenCaptureAccess(true);
        screenCapture_.requestAccess();
        return;
    }
    mainQueue_.post([completion = std::move(completion)] {
        completion(fail(ErrorCode::captureDeclined, "Capturing the screen is not permitted."));
    });
}

std::optional<RegionCapture::Choice> RegionCapture::chooseDisplay(const ShareableContent& content) const
{
    std::vector<CaptureDisplay> candidates = content.displays;
    std::erase_if(candidates, [virtualDisplay = VirtualDisplay::currentDisplayID()](const CaptureDisplay& display) {
        return display.displayID == virtualDisplay;
    });
    if (candidates.empty())
        return std::nullopt;

    const auto find = [&candidates](std::int64_t displayID) {
        return std::ranges::find_if(
            candidates, [displayID](const CaptureDisplay& display) { return display.displayID == displayID; });
    };
    auto chosen = find(settings_.displayID());
    if (chosen == candidates.end())
        chosen = find(screens_.mainDisplay());
    if (chosen == candidates.end())
        chosen = candidates.begin();

    const std::optional<Screen> screen = findScreen(screens_, chosen->displayID);
    if (!screen)
        return std::nullopt;
    return Choice{*chosen, *screen};
}

void RegionCapture::adopt(const Choice& choice)
{
    display_ = choice.display;
    geometry_ = DisplayGeometry::of(choice.screen, {choice.display.width, choice.display.height});
    pixelScale_ = choice.screen.backingScaleFactor;
    region_ = regionFromSettings(*geometry_);
    appliedFramerate_ = settings_.framerate();
    appliedRegion_ = region_;
}

void RegionCapture::startStream(const ShareableContent& content, StartCompletion completion)
{
    auto stream = screenCapture_.makeStream(
        filter(content), configuration(region_, settings_.framerate()),
        [](const Error& error) { qCCritical(captureLog, "Capture stopped: %s", error.message.c_str()); });
    if (const Result<void> added = stream->addOutput(OutputType::screen, frameQueue_, sampleHandler()); !added) {
        completion(added);
        return;
    }
    appliedShareNotifications_ = settings_.shareNotifications();
    stream_ = std::move(stream);
    stream_->start([weak = weak_from_this(), completion = std::move(completion),
                    isOwnApplicationExcluded = listsOwnApplication(content)](const Result<void>& result) {
        const auto self = weak.lock();
        if (!self || !self->stream_)
            return; // Stopped meanwhile: nobody waits for this capture any more.
        completion(result);
        if (result && !isOwnApplicationExcluded)
            self->refreshFilter();
    });
}

CaptureStream::SampleHandler RegionCapture::sampleHandler()
{
    // Runs on the frame queue, so that it must never be what keeps this object, and with it the queue, alive.
    return [weak = weak_from_this(), &mainQueue = mainQueue_](const CaptureSample& sample) {
        if (sample.status != FrameStatus::complete || !sample.surface)
            return;
        mainQueue.post([weak, surface = sample.surface] {
            if (const auto self = weak.lock())
                self->deliver(surface);
        });
    };
}

void RegionCapture::deliver(const std::shared_ptr<const Surface>& surface)
{
    const auto receiver = onFrame; // The call may stop this capture, which takes the receiver away.
    if (!receiver)
        return;
    // A picture may have been composed before the newest update took effect; its size tells, unless both agree.
    const auto hasSizeOf = [this, size = PixelSize{surface->width(), surface->height()}](const Rect& region) {
        return pictureSize(region.size(), pixelScale_) == size;
    };
    const bool isOlder = hasSizeOf(previousAppliedRegion_) && !hasSizeOf(appliedRegion_);
    const Point origin = isOlder ? previousAppliedRegion_.origin() : appliedRegion_.origin();
    receiver({surface, {origin.x, origin.y, surface->width() / pixelScale_, surface->height() / pixelScale_}});
}

void RegionCapture::stop(std::function<void()> then)
{
    onFrame = nullptr;
    if (!stream_) {
        then();
        return;
    }
    const auto stopping = std::make_shared<StoppingCapture>(StoppingCapture{shared_from_this(), std::move(stream_)});
    stopping->stream->stop([stopping, then = std::move(then)](const Result<void>& result) {
        if (!result)
            qCCritical(captureLog, "Stopping capture failed: %s", result.error().message.c_str());
        then();
    });
}

bool RegionCapture::settingsChanged()
{
    if (!geometry_)
        return false;
    const Rect wanted = regionFromSettings(*geometry_);
    const bool isRegionChanged = wanted != region_;
    if (isRegionChanged || settings_.framerate() != appliedFramerate_) {
        region_ = wanted;
        applyRegion();
    }
    if (settings_.shareNotifications() != appliedShareNotifications_) {
        appliedShareNotifications_ = settings_.shareNotifications();
        refreshFilter();
    }
    storeRegionInSettings();
    return isRegionChanged;
}

Rect RegionCapture::regionFromSettings(const DisplayGeometry& geometry) const
{
    return geometry.regionFromStored({settings_.left(), settings_.top(), settings_.width(), settings_.height()});
}

void RegionCapture::storeRegionInSettings()
{
    if (!geometry_)
        return;
    const StoredRegion stored = geometry_->storedFromRegion(region_);
    settings_.changeTogether([&] {
        if (stored.left != settings_.left())
            settings_.setLeft(stored.left);
        if (stored.top != settings_.top())
            settings_.setTop(stored.top);
        if (stored.width != settings_.width())
            settings_.setWidth(stored.width);
        if (stored.height != settings_.height())
            settings_.setHeight(stored.height);
    });
}

void RegionCapture::applyRegion()
{
    if (!stream_ || isUpdatingConfiguration_)
        return;
    isUpdatingConfiguration_ = true;
    const Rect region = region_;
    const std::int64_t framerate = settings_.framerate();
    stream_->updateConfiguration(configuration(region, framerate),
                                 [weak = weak_from_this(), region, framerate](const Result<void>& result) {
                                     if (const auto self = weak.lock())
                                         self->finishUpdate(region, framerate, result);
                                 });
}

void RegionCapture::finishUpdate(const Rect& region, std::int64_t framerate, const Result<void>& result)
{
    isUpdatingConfiguration_ = false;
    if (result) {
        previousAppliedRegion_ = appliedRegion_;
        appliedRegion_ = region;
        appliedFramerate_ = framerate;
    } else {
        qCCritical(captureLog, "Updating the region failed: %s", result.error().message.c_str());
    }
    if (region_ != region || settings_.framerate() != framerate)
        applyRegion();
}

StreamConfiguration RegionCapture::configuration(const Rect& region, std::int64_t framerate) const
{
    // Whoever writes the settings file may ask for more than an interval can hold.
    const auto timescale = static_cast<std::int32_t>(std::clamp<std::int64_t>(
        framerate, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
    StreamConfiguration configuration;
    configuration.sourceRect = region;
    const PixelSize picture = pictureSize(region.size(), pixelScale_);
    configuration.width = picture.width;
    configuration.height = picture.height;
    configuration.preservesAspectRatio = false;
    configuration.pixelFormat = PixelFormat::bgra;
    configuration.minimumFrameInterval = {1, timescale};
    configuration.showsCursor = true;
    return configuration;
}

ContentFilter RegionCapture::filter(const ShareableContent& content) const
{
    ContentFilter filter;
    filter.displayID = display_->displayID;
    const bool isSharingNotifications = settings_.shareNotifications();
    for (const CaptureApplication& application : content.applications) {
        const bool isOwn = application.processID == ownProcess();
        const bool showsNotifications = application.bundleIdentifier == notificationApplicationIdentifier;
        if (isOwn || (showsNotifications && !isSharingNotifications))
            filter.excludedApplications.push_back(application);
    }
    return filter;
}

void RegionCapture::refreshFilter()
{
    refreshFilter(1);
}

void RegionCapture::refreshFilter(int attempt)
{
    screenCapture_.shareableContent([weak = weak_from_this(), attempt](const Result<ShareableContent>& content) {
        if (const auto self = weak.lock())
            self->updateFilter(attempt, content);
    });
}

void RegionCapture::updateFilter(int attempt, const Result<ShareableContent>& content)
{
    if (!stream_ || !display_)
        return;
    if (content && listsOwnWindow(*content)) {
        stream_->updateContentFilter(filter(*content), [](const Result<void>& result) {
            if (!result)
                qCCritical(captureLog, "Updating the capture filter failed: %s", result.error().message.c_str());
        });
        return;
    }
    if (attempt >= lastFilterAttempt) {
        qCCritical(captureLog, "Own windows never listed; the capture filter may be off");
        return;
    }
    mainQueue_.postAfter(filterRetryDelay, [weak = weak_from_this(), attempt] {
        if (const auto self = weak.lock())
            self->refreshFilter(attempt + 1);
    });
}

} // namespace nimbrale
