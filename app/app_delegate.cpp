#include "app/app_delegate.h"

#include "app/alerts.h"
#include "share/virtual_display.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::chrono::milliseconds settingsDebounceTime{100};
constexpr std::chrono::milliseconds displayCheckDelay{500};

} // namespace

std::shared_ptr<AppDelegate> AppDelegate::create(Platform& platform, AppSettings& settings,
                                                 std::shared_ptr<WebcamCamera> camera,
                                                 ShowSettingsWindow showSettingsWindow, const OverlayColors& colors)
{
    return std::shared_ptr<AppDelegate>(
        new AppDelegate(platform, settings, std::move(camera), std::move(showSettingsWindow), colors));
}

AppDelegate::AppDelegate(Platform& platform, AppSettings& settings, std::shared_ptr<WebcamCamera> camera,
                         ShowSettingsWindow showSettingsWindow, const OverlayColors& colors)
    : platform_(platform), settings_(settings), camera_(std::move(camera)),
      showSettingsWindow_(std::move(showSettingsWindow)), colors_(colors),
      sharedScreen_(platform.virtualDisplays(), platform.panels(), platform.screens(), platform.mainQueue()),
      captureFailure_(platform), sharingNotice_(platform.workspace()),
      recording_(RecordingControl::create(platform, settings))
{
    sharedScreen_.onVirtualDisplayLost = [this] { tellOfSharing(); };
    sharedScreen_.onWindowReturned = [this] { sharingNotice_.tellWindowReturned(); };
}

AppDelegate::~AppDelegate()
{
    closeFrame();
}

std::function<void()> AppDelegate::whileAlive(void (AppDelegate::*method)())
{
    return [weak = weak_from_this(), method] {
        if (const auto self = weak.lock())
            ((*self).*method)();
    };
}

void AppDelegate::closeFrame()
{
    if (editor_)
        editor_->close();
    editor_.reset();
    if (webcam_)
        webcam_->hide();
    webcam_.reset();
}

void AppDelegate::applicationWillFinishLaunching()
{
    const std::weak_ptr weak = weak_from_this();
    platform_.workspace().keepAlertsOffDisplay(VirtualDisplay::name());
    captureFailure_.onRetry = whileAlive(&AppDelegate::restartCaptureChain);
    screensObserver_ = platform_.screens().observeChanges(whileAlive(&AppDelegate::screensDidChange));
    settingsObserver_ = settings_.observeChanges(whileAlive(&AppDelegate::settingsWillChange));
    lockObserver_ = platform_.sessionLock().observe(whileAlive(&AppDelegate::sessionLockDidChange));
    platform_.workspace().termination().onShouldTerminate = [weak] {
        const auto self = weak.lock();
        return self ? self->applicationShouldTerminate() : TerminateReply::now;
    };
    recording_->onTimeChange = [weak](std::optional<double> seconds) {
        if (const auto self = weak.lock())
            self->showRecordingTime(seconds);
    };
    recording_->recoverLeftovers();
    startCaptureChain();
}

TerminateReply AppDelegate::applicationShouldTerminate()
{
    return recording_->applicationShouldTerminate();
}

void AppDelegate::toggleRecording()
{
    // A command may come at any time, but what is shared lasts as long as the frame.
    if (!editor_)
        return;
    const auto display = sharedScreen_.virtualDisplayIdentity();
    recording_->toggle(display ? std::optional(display->displayID) : std::nullopt);
}

void AppDelegate::showRecordingTime(std::optional<double> seconds)
{
    if (editor_)
        editor_->overlay().view().setRecordingTime(seconds);
}

void AppDelegate::openSettings(std::optional<EventTime> cause)
{
    showSettingsWindow_(cause);
}

/// For a button of a panel.
void AppDelegate::openSettingsTab(AppSettings::SettingsTab tab)
{
    settings_.setSettingsTab(tab);
    openSettings(platform_.panels().timeOfLastClick());
}

void AppDelegate::applicationWasReopened(std::optional<EventTime> cause)
{
    openSettings(cause);
    captureFailure_.applicationWasReopened();
}

void AppDelegate::startCaptureChain()
{
    if (holdBack())
        return;
    capturedDisplaySetting_ = settings_.displayID();
    capture_ = RegionCapture::create(platform_.screenCapture(), platform_.screens(), platform_.mainQueue(), settings_);
    capture_->onFrame = [weak = weak_from_this()](const Frame& frame) {
        if (const auto self = weak.lock())
            self->sharedScreen_.show(frame);
    };
    if (!platform_.screenCapture().preflightAccess()) {
        startCapture(capture_, std::nullopt);
        return;
    }
    platform_.screenCapture().shareableContent(
        [weak = weak_from_this(), waiting = std::weak_ptr(capture_)](const Result<ShareableContent>& content) {
            const auto self = weak.lock();
            const auto capture = waiting.lock();
            if (self && capture && self->capture_ == capture)
                self->startCapture(capture, content);
        });
}

void AppDelegate::startCapture(const std::shared_ptr<RegionCapture>& capture,
                               std::optional<Result<ShareableContent>> content)
{
    if (holdBack())
        return;
    capture->start(std::move(content),
                   [weak = weak_from_this(), started = std::weak_ptr(capture)](const Result<void>& result) {
                       const auto self = weak.lock();
                       // A capture that was replaced meanwhile has nothing to say any more.
                       if (self && self->capture_ && self->capture_ == started.lock())
                           self->captureStarted(result);
                   });
}

void AppDelegate::captureStarted(const Result<void>& result)
{
    if (!result) {
        sharedScreen_.endPause();
        captureFailure_.tell(result.error());
        return;
    }
    const std::optional<DisplayGeometry>& geometry = capture_->geometry();
    if (!geometry)
        programmingError("a capture that started without a display");
    sharedScreen_.activate(capture_->region(), *geometry, capture_->pixelScale());
    framedAreaChanged();
    createEditor();
    createWebcam();
    tellOfSharing();
}

void AppDelegate::createEditor()
{
    editor_ = RegionEditor::create(platform_, capture_, *capture_->geometry(), settings_, colors_);
    const std::weak_ptr weak = weak_from_this();
    editor_->onRegionChange = [weak](const Rect& region) {
        const auto self = weak.lock();
        if (!self)
            return;
        self->webcam_->followRegion(region);
        self->sharedScreen_.setRegion(region);
        self->framedAreaChanged();
    };
    editor_->onRegionChangeEnded = [weak] {
        const auto self = weak.lock();
        if (!self || !self->capture_)
            return;
        self->capture_->storeRegionInSettings();
        self->sharedScreen_.regionChangeEnded();
    };
    editor_->onMoveToDisplay = [weak](DisplayID displayID, const DisplayGeometry& geometry, const Rect& region) {
        if (const auto self = weak.lock())
            self->moveToDisplay(displayID, geometry, region);
    };
    editor_->onClose = [weak] {
        if (const auto self = weak.lock())
            self->platform_.workspace().terminate();
    };
    editor_->onOpenSettings = [weak] {
        if (const auto self = weak.lock())
            self->openSettingsTab(AppSettings::SettingsTab::general);
    };
    editor_->onToggleRecording = whileAlive(&AppDelegate::toggleRecording);
}

void AppDelegate::createWebcam()
{
    webcam_ =
        WebcamOverlay::create(platform_, settings_, camera_, {*capture_->geometry(), capture_->region()}, colors_);
    const std::weak_ptr weak = weak_from_this();
    webcam_->onAppearanceChange = [weak](const WebcamAppearance& appearance) {
        if (const auto self = weak.lock())
            self->sharedScreen_.setWebcam(appearance);
    };
    webcam_->onOpenSettings = [weak] {
        if (const auto self = weak.lock())
            self->openSettingsTab(AppSettings::SettingsTab::webcam);
    };
    showOrHideWebcam();
}

void AppDelegate::showOrHideWebcam()
{
    if (!webcam_)
        return;
    if (settings_.webcamEnabled() && !platform_.sessionLock().isLocked())
        webcam_->show();
    else
        webcam_->hide();
}

void AppDelegate::moveToDisplay(DisplayID displayID, const DisplayGeometry& geometry, const Rect& region)
{
    const StoredRegion stored = geometry.storedFromRegion(region);
    settings_.changeTogether([&] {
        settings_.setLeft(stored.left);
        settings_.setTop(stored.top);
        settings_.setWidth(stored.width);
        settings_.setHeight(stored.height);
        settings_.setDisplayID(displayID);
    });
    if (capturedDisplaySetting_ != displayID)
        return;
    // The setting names this display already: it was away when the capture started and came back since. The settings
    // alone would not tell that the capture has to move. The editor is still in its own call.
    platform_.mainQueue().post(whileAlive(&AppDelegate::restartCaptureChain));
}

void AppDelegate::restartCaptureChain()
{
    if (holdBack())
        return;
    recording_->endForRestart();
    closeFrame();
    sharedScreen_.deactivate();
    framedAreaChanged();
    const std::shared_ptr<RegionCapture> capture = std::exchange(capture_, nullptr);
    // One that a display's change or another restart has stopped may still be stopping.
    if (!isCaptureStopping_)
        stop(*capture);
}

void AppDelegate::stop(RegionCapture& capture)
{
    isCaptureStopping_ = true;
    capture.stop(whileAlive(&AppDelegate::captureStopped));
}

void AppDelegate::captureStopped()
{
    isCaptureStopping_ = false;
    const bool isRestarting = !capture_;
    if (isRestarting)
        startCaptureChain();
}

bool AppDelegate::holdBack()
{
    const bool isLocked = platform_.sessionLock().isLocked();
    wasHeldBack_ = wasHeldBack_ || isLocked;
    return isLocked;
}

// The frame stays where it is, so that a drag under way can end; the capture that follows finds its region stored.
void AppDelegate::sessionLockDidChange()
{
    if (platform_.sessionLock().isLocked()) {
        sharedScreen_.pause();
        showOrHideWebcam();
        if (followsChanges() && capture_->hasStream()) {
            wasHeldBack_ = true;
            stop(*capture_);
        }
        return;
    }
    if (!std::exchange(wasHeldBack_, false)) {
        showOrHideWebcam();
        return;
    }
    if (capture_)
        restartCaptureChain();
    else if (!isCaptureStopping_)
        startCaptureChain();
}

void AppDelegate::settingsWillChange()
{
    settingsDebounce_ =
        platform_.mainQueue().schedule(settingsDebounceTime, whileAlive(&AppDelegate::settingsDidChange));
}

// While the user is asked about a capture that failed, that capture stays failed: behind the open alert a new one
// would run that either answer ends. Trying again looks at the displays and the settings of that moment anyway.
bool AppDelegate::followsChanges() const
{
    return !captureFailure_.isOpen() && capture_ && capture_->geometry();
}

void AppDelegate::settingsDidChange()
{
    recording_->settingsDidChange();
    if (!followsChanges())
        return;
    if (settings_.displayID() != capturedDisplaySetting_) {
        restartCaptureChain();
        return;
    }
    if (capture_->settingsChanged())
        followRegion();
    showOrHideWebcam();
    // The choice about notifications may be one that this desktop cannot follow.
    tellOfSharing();
}

void AppDelegate::followRegion()
{
    const Rect region = capture_->region();
    if (editor_)
        editor_->showRegion(region);
    if (webcam_)
        webcam_->followRegion(region);
    sharedScreen_.setRegion(region);
    sharedScreen_.regionChangeEnded();
    framedAreaChanged();
}

void AppDelegate::framedAreaChanged() const
{
    if (onFramedAreaChange)
        onFramedAreaChange();
}

void AppDelegate::screensDidChange()
{
    // Until the check another display's pixels may lie where the capture looks.
    if (followsChanges() && capture_->hasStream() && !isCapturedDisplayUnchanged())
        stop(*capture_);
    displayCheck_ = platform_.mainQueue().schedule(displayCheckDelay, whileAlive(&AppDelegate::checkCapturedDisplay));
}

bool AppDelegate::isCapturedDisplayUnchanged() const
{
    const std::vector<Screen> screens = platform_.screens().screens();
    return std::any_of(screens.begin(), screens.end(), [this](const Screen& screen) {
        return screen.displayID == capture_->display()->displayID &&
               screen.frame == capture_->geometry()->screenFrame && screen.backingScaleFactor == capture_->pixelScale();
    });
}

void AppDelegate::checkCapturedDisplay()
{
    captureFailure_.displaysDidChange();
    if (!followsChanges())
        return;
    if (!capture_->hasStream() || !isCapturedDisplayUnchanged()) {
        restartCaptureChain();
        return;
    }
    if (editor_)
        editor_->showRegion(capture_->region());
}

void AppDelegate::tellOfSharing()
{
    const auto choice = settings_.shareNotifications() ? NotificationSharing::shared : NotificationSharing::leftOut;
    sharingNotice_.tell(platform_.screenCapture().limitations(choice), sharedScreen_.mirrorWindowTitle());
}

} // namespace nimbrale
