#include "webcam/webcam_overlay.h"

#include "geometry/picture_size.h"
#include "webcam/webcam_box.h"

#include <QCoreApplication>

#include <utility>

namespace nimbrale {

namespace {

std::string translated(const char* text)
{
    return QCoreApplication::translate("WebcamOverlay", text).toStdString();
}

Alert cameraAccessAlert()
{
    Alert alert;
    alert.style = AlertStyle::warning;
    alert.message = translated(QT_TRANSLATE_NOOP("WebcamOverlay", "Camera access needed"));
    alert.informativeText = translated(QT_TRANSLATE_NOOP(
        "WebcamOverlay", "To show your webcam, allow Nimbrale in System Settings → Privacy & Security → Camera, then "
                         "turn the webcam on again in Settings."));
    alert.buttons = {translated(QT_TRANSLATE_NOOP("WebcamOverlay", "Open System Settings")),
                     translated(QT_TRANSLATE_NOOP("WebcamOverlay", "Cancel"))};
    return alert;
}

constexpr const char* cameraPrivacyLocation = "x-apple.systempreferences:com.apple.preference.security?Privacy_Camera";

} // namespace

std::shared_ptr<WebcamOverlay> WebcamOverlay::create(Platform& platform, AppSettings& settings,
                                                     std::shared_ptr<WebcamCamera> camera, const Place& place,
                                                     const OverlayColors& colors)
{
    return std::shared_ptr<WebcamOverlay>(new WebcamOverlay(platform, settings, std::move(camera), place, colors));
}

WebcamOverlay::WebcamOverlay(Platform& platform, AppSettings& settings, std::shared_ptr<WebcamCamera> camera,
                             const Place& place, const OverlayColors& colors)
    : platform_(platform), settings_(settings), camera_(std::move(camera)), place_(place), colors_(colors)
{}

WebcamOverlay::~WebcamOverlay()
{
    if (window_)
        hide();
}

Rect WebcamOverlay::clamped(const Rect& box) const
{
    return clampedWebcamBox(box, place_.region.size(), settings_.webcamShape());
}

Rect WebcamOverlay::boxOf(const Rect& frame) const
{
    return webcamBoxOf(frame, place_.geometry, place_.region);
}

Rect WebcamOverlay::frameOf(const Rect& box) const
{
    return webcamScreenFrameOf(box, place_.geometry, place_.region);
}

Rect WebcamOverlay::storedBox() const
{
    return clamped(storedWebcamBox(settings_, place_.region.size()));
}

void WebcamOverlay::show()
{
    if (!window_)
        openWindow();
    window_->applyAppearance(settings_.webcamShape(), settings_.webcamMirrored(), settings_.webcamFadeOnHover());
    isFaded_ = isFaded_ && settings_.webcamFadeOnHover();
    camera_->setBackground(settings_.webcamBackground());
    place();
    useCamera();
}

void WebcamOverlay::openWindow()
{
    window_ = WebcamWindow::create(platform_.panels(), platform_.screens(), platform_.mainQueue(), camera_->pictures(),
                                   frameOf(storedBox()), colors_);
    connectWindow();
    window_->orderFront();
    description_ = platform_.workspace().describeControls(
        "Nimbrale webcam", [view = &window_->view()] { return view->accessibleControls(); });
}

void WebcamOverlay::connectWindow()
{
    const std::weak_ptr weak = weak_from_this();
    window_->constrain = [weak](const Rect& frame) {
        const auto self = weak.lock();
        return self ? self->frameOf(self->clamped(self->boxOf(frame))) : frame;
    };
    window_->onFrameChange = [weak](const Rect& frame) {
        if (const auto self = weak.lock())
            self->applyBox(self->boxOf(frame));
    };
    window_->onChangeEnded = [weak](const Rect& frame) {
        if (const auto self = weak.lock())
            self->storeBox(self->clamped(self->boxOf(frame)));
    };
    window_->onHoverChange = [weak](bool isHovered) {
        const auto self = weak.lock();
        if (!self)
            return;
        self->isFaded_ = isHovered && self->settings_.webcamFadeOnHover();
        self->applyBox(self->currentBox_);
    };
    window_->onOpenSettings = [weak] {
        if (const auto self = weak.lock(); self && self->onOpenSettings)
            self->onOpenSettings();
    };
    window_->onClose = [weak] {
        if (const auto self = weak.lock())
            self->settings_.setWebcamEnabled(false);
    };
}

void WebcamOverlay::hide()
{
    if (!window_)
        return;
    isFaded_ = false;
    camera_->stop();
    description_.reset();
    window_->close();
    window_.reset();
    if (onAppearanceChange)
        onAppearanceChange({});
}

void WebcamOverlay::followRegion(const Rect& region)
{
    place_.region = region;
    if (window_)
        place();
}

void WebcamOverlay::place()
{
    const Rect box = storedBox();
    window_->setFrame(frameOf(box));
    applyBox(box);
}

void WebcamOverlay::applyBox(const Rect& box)
{
    currentBox_ = box;
    camera_->setShownSize(pictureSize(box.size(), pixelScale()));
    if (onAppearanceChange)
        onAppearanceChange({camera_->pictures(), box, settings_.webcamShape(), settings_.webcamMirrored(), isFaded_});
}

double WebcamOverlay::pixelScale() const
{
    for (const Screen& screen : platform_.screens().screens()) {
        if (screen.frame == place_.geometry.screenFrame)
            return screen.backingScaleFactor;
    }
    return 1;
}

void WebcamOverlay::storeBox(const Rect& box)
{
    settings_.changeTogether([&] {
        settings_.setWebcamX(box.x);
        settings_.setWebcamY(box.y);
        settings_.setWebcamWidth(box.width);
        settings_.setWebcamHeight(box.height);
    });
}

void WebcamOverlay::useCamera()
{
    platform_.cameras().requestAccess([weak = weak_from_this()](bool isGranted) {
        if (const auto self = weak.lock(); self && self->window_)
            self->accessAnswered(isGranted);
    });
}

void WebcamOverlay::accessAnswered(bool isGranted)
{
    if (isGranted) {
        camera_->selectDevice(settings_.webcamDeviceID());
        return;
    }
    settings_.setWebcamEnabled(false);
    accessAlert_ = platform_.workspace().showAlert(cameraAccessAlert(), [weak = weak_from_this()](int button) {
        const auto self = weak.lock();
        if (self && button == 0)
            self->platform_.workspace().openLocation(cameraPrivacyLocation);
    });
}

} // namespace nimbrale
