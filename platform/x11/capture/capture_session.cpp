#include "platform/x11/capture/capture_session.h"

#include <algorithm>
#include <utility>

namespace nimbrale::x11 {

namespace {

/// For how long after a frame the memory for the next one is kept: longer than between two ticks of any clock that
/// shows seconds.
constexpr std::chrono::seconds spareTime{5};

PointerVisibility pointerVisibility(const SessionConfiguration& configuration)
{
    return configuration.showsCursor ? PointerVisibility::shown : PointerVisibility::hidden;
}

} // namespace

CaptureSession::CaptureSession(MainQueue& mainQueue, std::function<void()> wake, std::function<void()> onLost)
    : output(std::make_shared<SampleOutput>(mainQueue)),
      changes_([this](const CapturedWindow& window) { return includes(window); }),
      heldFrames_(std::make_shared<HeldFrames>(std::move(wake))), onLost_(std::move(onLost))
{}

void CaptureSession::configure(const SessionConfiguration& configuration)
{
    const bool isSameOutput = configuration.width == configuration_.width &&
                              configuration.height == configuration_.height && configuration.fit == configuration_.fit;
    configuration_ = configuration;
    pacer_.setInterval(configuration.interval);
    changes_.setSource(configuration.source, pointerVisibility(configuration));
    if (!isSameOutput)
        changes_.addAll();
    if (!renderer_)
        return;
    displays_->compare(configuration.display);
    renderer_->setGeometry(configuration.source, configuration.width, configuration.height, configuration.fit);
    desktop_->update(changes_);
}

void CaptureSession::setFilter(const SessionFilter& filter)
{
    filter_ = filter;
    changes_.setContents(filter.excludesNothing() ? FrameContents::screen : FrameContents::windows);
    changes_.addAll();
    changes_.mask().distrustAll();
    if (renderer_)
        desktop_->update(changes_);
}

void CaptureSession::start(Connection& connection, DesktopTracker& desktop, DisplayPlaces& displays,
                           std::function<void(xcb_pixmap_t)> releasePixmap)
{
    desktop_ = &desktop;
    displays_ = &displays;
    displays.compare(configuration_.display);
    renderer_ = std::make_unique<FrameRenderer>(
        connection, configuration_.readsPixels ? FrameMemory::shared : FrameMemory::server, std::move(releasePixmap));
    renderer_->setGeometry(configuration_.source, configuration_.width, configuration_.height, configuration_.fit);
    seen_ = std::make_unique<SeenPicture>(connection);
    desktop.add(changes_);
    desktop.lookAround(renderer_->composer(), *seen_, changes_);
}

void CaptureSession::stop()
{
    if (!renderer_)
        return;
    desktop_->remove(changes_);
    renderer_.reset();
    seen_.reset();
}

bool CaptureSession::includes(const CapturedWindow& window) const
{
    if (window.needsClassification || (filter_.excludesNotifications && window.owner.isNotification))
        return false;
    return std::find(filter_.excludedProcesses.begin(), filter_.excludedProcesses.end(), window.owner.process) ==
           filter_.excludedProcesses.end();
}

StreamTiming CaptureSession::timing(FramePacer::Clock::time_point now)
{
    expectation_ = desktop_->expectation(changes_);
    StreamTiming timing = pacer_.timing(now, expectation_);
    if (!timing.timeToTurn)
        return timing;
    // A consumer that lets go of a frame wakes the thread.
    if (!displays_->isCertain(configuration_.display) || changes_.isFrozen() ||
        heldFrames_->areAsManyAs(configuration_.queueDepth))
        timing.timeToTurn.reset();
    return timing;
}

bool CaptureSession::takeTurn(FramePacer::Clock::time_point now)
{
    if (!changes_.isEmpty()) {
        drawFrame(now);
        return true;
    }
    if (expectation_ == ChangeExpectation::certain)
        pacer_.useTick(now);
    else
        pacer_.dismissPossibility(now);
    return false;
}

void CaptureSession::drawFrame(FramePacer::Clock::time_point tick)
{
    lastDrawn_ = tick;
    // A later mask starts from what is seen then.
    if (!changes_.isMasked())
        seen_->clear();
    const PixelRegion dirty = changes_.take();
    const std::chrono::nanoseconds presentation = presentationTime();
    const FrameRenderer::Frame frame = renderer_->draw(
        dirty, [&](RegionComposer& composer, const CompositionTarget& target, const FrameRenderer::Source& before) {
            PixelRegion seenBefore = before.pixmap == XCB_NONE ? PixelRegion() : PixelRegion(before.area);
            seenBefore -= PixelRegion(pointerInLast_);
            desktop_->compose({composer,
                               *seen_,
                               [this](const CapturedWindow& window) { return includes(window); },
                               before.pixmap,
                               {before.area.x, before.area.y},
                               seenBefore},
                              target, dirty, changes_);
        });
    pointerInLast_ = changes_.pointerCoverage();
    surfaceChanges_.advance(frame.changed.rects());
    auto surface = std::make_shared<X11Surface>(frame.storage, surfaceChanges_);
    drawn_ = DrawnFrame{std::move(surface), presentation, tick, displays_->now(), changes_.mask().region()};
}

void CaptureSession::handOver()
{
    DrawnFrame frame = std::move(*std::exchange(drawn_, std::nullopt));
    desktop_->updateMasks(FramePacer::Clock::now());
    if (!displays_->wasCertain(configuration_.display, frame.begun) || changes_.isFrozen() || showsMasked(frame)) {
        // Its tick is not used: the next one is due as soon as the place is certain. What it was composed of below the
        // mask is as good as ever.
        changes_.mask().distrustOutside(frame.mask);
        changes_.addAll();
        return;
    }
    pacer_.useTick(frame.tick);
    output->deliver(heldFrames_->count(std::move(frame.surface)), frame.presentationTime,
                    configuration_.readsPixels ? HandOut::posted : HandOut::atOnce);
}

// A window that is left out may have come to where the screen was copied, before it was.
bool CaptureSession::showsMasked(const DrawnFrame& frame)
{
    if (!changes_.isMasked())
        return false;
    PixelRegion appeared(changes_.mask().region());
    appeared -= frame.mask;
    changes_.mask().distrust(appeared);
    appeared &= PixelRegion(configuration_.source);
    return !appeared.isEmpty();
}

std::optional<FramePacer::Clock::time_point> CaptureSession::nextTrim() const
{
    return renderer_ && renderer_->hasSpares() ? std::optional(lastDrawn_ + spareTime) : std::nullopt;
}

void CaptureSession::trim(FramePacer::Clock::time_point now)
{
    if (const auto time = nextTrim(); time && now >= *time)
        renderer_->dropSpares();
}

std::chrono::nanoseconds CaptureSession::presentationTime()
{
    // The steady clock is CLOCK_MONOTONIC here. No two frames have one time.
    lastPresentation_ = std::max(FramePacer::Clock::now(), lastPresentation_ + std::chrono::nanoseconds(1));
    return lastPresentation_.time_since_epoch();
}

} // namespace nimbrale::x11
