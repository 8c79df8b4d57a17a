#include "platform/x11/capture/capture_session.h"

#include <algorithm>
#include <utility>
#include <xcb/sync.h>

namespace nimbrale::x11 {

namespace {

PointerVisibility pointerVisibility(const SessionConfiguration& configuration)
{
    return configuration.showsCursor ? PointerVisibility::shown : PointerVisibility::hidden;
}

} // namespace

CaptureSession::CaptureSession(MainQueue& mainQueue, std::function<void()> wake)
    : output(std::make_shared<SampleOutput>(mainQueue, std::move(wake))),
      changes_([this](const CapturedWindow& window) { return includes(window); })
{}

void CaptureSession::configure(const SessionConfiguration& configuration)
{
    configuration_ = configuration;
    pacer_.setInterval(configuration.interval);
    changes_.setSource(configuration.source, pointerVisibility(configuration));
    if (!composer_)
        return;
    composer_->setSource(configuration.source);
    desktop_->showPointer(changes_);
}

void CaptureSession::setFilter(const SessionFilter& filter)
{
    filter_ = filter;
    changes_.addAll();
}

void CaptureSession::start(Connection& connection, DesktopTracker& desktop,
                           std::function<void(xcb_pixmap_t)> releasePixmap)
{
    connection_ = &connection;
    desktop_ = &desktop;
    composer_ = std::make_unique<RegionComposer>(connection, std::move(releasePixmap));
    composer_->setSource(configuration_.source);
    if (connection.extensions().sync.isPresent) {
        counter_ = {connection, connection.newId()};
        xcb_sync_create_counter(connection.get(), counter_.get(), {0, 0});
    }
    desktop.add(changes_);
}

void CaptureSession::stop()
{
    if (!composer_)
        return;
    desktop_->remove(changes_);
    composer_.reset();
    counter_.reset();
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
    // The consumer wakes the thread when it has taken the frame before.
    if (timing.timeToTurn && output->isFrameInFlight())
        timing.timeToTurn.reset();
    return timing;
}

void CaptureSession::takeTurn(FramePacer::Clock::time_point now)
{
    const bool hasChanged = !changes_.isEmpty();
    if (hasChanged)
        deliverFrame();
    if (hasChanged || expectation_ == ChangeExpectation::certain)
        pacer_.useTick(now);
    else
        pacer_.dismissPossibility(now);
}

void CaptureSession::deliverFrame()
{
    PixelRegion changed = changes_.take();
    desktop_->compose(*composer_, changed, pointerVisibility(configuration_),
                      [this](const CapturedWindow& window) { return includes(window); });
    changed.translate(-configuration_.source.x, -configuration_.source.y);
    surfaceChanges_.advance(changed.rects());
    auto surface = std::make_shared<X11Surface>(composer_->pixmap(), surfaceChanges_, signalFence());
    connection_->flush();
    output->deliver(std::move(surface));
}

SyncPoint CaptureSession::signalFence()
{
    if (!counter_) {
        connection_->synchronize();
        return {};
    }
    const std::int64_t value = ++counterValue_;
    xcb_sync_set_counter(connection_->get(), counter_.get(),
                         {static_cast<std::int32_t>(value >> 32), static_cast<std::uint32_t>(value & 0xffffffff)});
    return {counter_.get(), value};
}

} // namespace nimbrale::x11
