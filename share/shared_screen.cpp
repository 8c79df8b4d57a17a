#include "share/shared_screen.h"

#include "geometry/picture_size.h"
#include "platform/log.h"

#include <QCoreApplication>

#include <algorithm>
#include <string>

namespace nimbrale {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::seconds longestRetryDelay = 10min;

/// What the user looks for in the meeting application's list of windows.
[[nodiscard]] std::string mirrorTitle(Size size)
{
    return "🎯 Share this · Screen area " + std::to_string(truncatedToInteger(size.width)) + "×" +
           std::to_string(truncatedToInteger(size.height));
}

[[nodiscard]] QString pauseText()
{
    return QCoreApplication::translate("SharedScreen", "Sharing is paused\nwhile the session is locked");
}

void logUnavailability(const Error& reason)
{
    qCCritical(virtualDisplayLog, "Virtual display unavailable; sharing a window instead");
    qCInfo(virtualDisplayLog, "%s", reason.message.c_str());
}

} // namespace

struct SharedScreen::Window {
    Window(WindowKind windowKind, std::unique_ptr<Panel> windowPanel, const Rect& region, double zoom)
        : kind(windowKind), panel(std::move(windowPanel)), view(panel->rootLayer(), region, zoom)
    {}

    WindowKind kind;
    std::unique_ptr<Panel> panel;
    FrameView view;
};

SharedScreen::SharedScreen(VirtualDisplays& virtualDisplays, Panels& panels, Screens& screens, MainQueue& mainQueue)
    : virtualDisplays_(virtualDisplays), panels_(panels), screens_(screens), mainQueue_(mainQueue),
      screensSubscription_(screens.observeChanges([this] { screensChanged(); }))
{}

SharedScreen::~SharedScreen() = default;

void SharedScreen::activate(const Rect& region, const DisplayGeometry& geometry, double pixelScale)
{
    region_ = region;
    geometry_ = geometry;
    pixelScale_ = pixelScale;
    isActive_ = true;
    if (!prepareVirtualDisplay())
        showInWindow(geometry);
}

void SharedScreen::deactivate()
{
    isActive_ = false;
    if (!isPaused_)
        closeWindow();
}

void SharedScreen::pause()
{
    if (!isActive_)
        return;
    isPaused_ = true;
    if (window_)
        window_->view.showCard(pauseText());
}

void SharedScreen::endPause()
{
    isPaused_ = false;
    closeWindow();
}

void SharedScreen::setRegion(const Rect& region)
{
    region_ = region;
    if (!window_)
        return;
    window_->view.setRegion(region_);
    if (window_->kind == WindowKind::mirror && geometry_)
        window_->panel->setFrame(geometry_->screenRect(picturedPart(region_, pixelScale_)));
}

void SharedScreen::regionChangeEnded()
{
    if (VirtualDisplay* const display = virtualDisplay())
        display->resize(picturedPart(region_, pixelScale_).size(), pixelScale_);
    if (windowKind() == WindowKind::mirror)
        window_->panel->setTitle(mirrorTitle(region_.size()));
}

void SharedScreen::setWebcam(const WebcamAppearance& webcam)
{
    webcam_ = webcam;
    if (window_)
        window_->view.setWebcam(webcam_);
}

void SharedScreen::show(const Frame& frame)
{
    isPaused_ = false;
    if (window_)
        window_->view.show(frame);
}

std::optional<SharedScreen::WindowKind> SharedScreen::windowKind() const
{
    if (!window_)
        return std::nullopt;
    return window_->kind;
}

std::optional<SharedScreen::VirtualDisplayIdentity> SharedScreen::virtualDisplayIdentity() const
{
    if (!virtualDisplay_)
        return std::nullopt;
    return VirtualDisplayIdentity{virtualDisplay_->displayID(), VirtualDisplay::name()};
}

std::optional<std::string> SharedScreen::mirrorWindowTitle() const
{
    if (windowKind() != WindowKind::mirror)
        return std::nullopt;
    return mirrorTitle(region_.size());
}

VirtualDisplay* SharedScreen::virtualDisplay()
{
    if (wasVirtualDisplayTried_)
        return virtualDisplay_.get();
    wasVirtualDisplayTried_ = true;
    auto display = VirtualDisplay::create(virtualDisplays_, screens_, mainQueue_);
    if (!display) {
        logUnavailability(display.error());
        return nullptr;
    }
    virtualDisplay_ = std::move(*display);
    virtualDisplay_->onUnusable = [this](const Error& reason) { abandonVirtualDisplay(reason); };
    virtualDisplay_->onWindowReturned = [this] {
        if (onWindowReturned)
            onWindowReturned();
    };
    return virtualDisplay_.get();
}

void SharedScreen::abandonVirtualDisplay(const Error& reason)
{
    logUnavailability(reason);
    closeWindow();
    virtualDisplay_.reset();
    if (isActive_ && geometry_)
        showInWindow(*geometry_);
    if (reason.code != ErrorCode::permanent) {
        retryDelay_ = std::min(retryDelay_ * 2, longestRetryDelay);
        retryWhenQuiet();
    }
    if (const auto tell = onVirtualDisplayLost)
        tell();
}

// What took the display away is most often somebody arranging the displays, and passes.
void SharedScreen::retryWhenQuiet()
{
    retryTimer_ = mainQueue_.schedule(retryDelay_, [this] {
        retryTimer_.reset();
        wasVirtualDisplayTried_ = false;
        if (isActive_)
            static_cast<void>(prepareVirtualDisplay());
    });
}

void SharedScreen::screensChanged()
{
    if (retryTimer_)
        retryWhenQuiet();
    showOnVirtualDisplay();
}

bool SharedScreen::prepareVirtualDisplay()
{
    VirtualDisplay* const display = virtualDisplay();
    if (!display)
        return false;
    display->resize(picturedPart(region_, pixelScale_).size(), pixelScale_);
    showOnVirtualDisplay();
    return true;
}

void SharedScreen::showOnVirtualDisplay()
{
    if (!isActive_ || !virtualDisplay_)
        return;
    // The system may take a moment to make the screen; it then tells that the screens changed.
    const std::optional<Screen> screen = virtualDisplay_->screen();
    if (!screen)
        return;
    const double zoom = pixelScale_ / screen->backingScaleFactor;
    if (windowKind() == WindowKind::virtualDisplay && window_->view.zoom() == zoom) {
        window_->panel->setFrame(screen->frame);
        window_->view.setRegion(region_);
        return;
    }
    PanelOptions options;
    options.style = PanelStyle::fullScreen;
    options.frame = screen->frame;
    options.level = panel_level::virtualDisplay;
    openWindow(WindowKind::virtualDisplay, options, zoom);
    window_->panel->orderFront();
}

void SharedScreen::showInWindow(const DisplayGeometry& geometry)
{
    if (windowKind() == WindowKind::mirror) {
        setRegion(region_);
        window_->panel->setTitle(mirrorTitle(region_.size()));
        return;
    }
    PanelOptions options;
    options.style = PanelStyle::mirrorWindow;
    options.frame = geometry.screenRect(picturedPart(region_, pixelScale_));
    options.title = mirrorTitle(region_.size());
    openWindow(WindowKind::mirror, options, 1);
    window_->panel->orderBack();
}

void SharedScreen::openWindow(WindowKind kind, const PanelOptions& options, double zoom)
{
    window_ = std::make_unique<Window>(kind, panels_.create(options), region_, zoom);
    window_->view.setWebcam(webcam_);
    if (isPaused_)
        window_->view.showCard(pauseText());
}

void SharedScreen::closeWindow()
{
    if (!window_)
        return;
    window_->panel->orderOut();
    window_.reset();
}

} // namespace nimbrale
