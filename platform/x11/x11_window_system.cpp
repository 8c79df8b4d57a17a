#include "platform/x11/x11_window_system.h"

#include "platform/x11/capture/capture_engine.h"
#include "platform/x11/capture/x11_screen_capture.h"
#include "platform/x11/displays/x11_screens.h"
#include "platform/x11/panels/x11_panels.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/sent_event_filter.h"
#include "platform/x11/server/window_activation.h"
#include "platform/x11/virtual_display/x11_virtual_displays.h"

#include <QGuiApplication>

namespace nimbrale::x11 {

namespace {

Error connectionLost()
{
    return {ErrorCode::permanent,
            "The connection to the X server is lost. Nimbrale ends; start it again when the desktop is back."};
}

class X11WindowSystem final : public WindowSystem {
public:
    X11WindowSystem(std::unique_ptr<Connection> connection, MainQueue& mainQueue, SystemAudio& systemAudio,
                    const std::string& displayName)
        : connection_(std::move(connection)), events_(*connection_, [this] { reportLost(); }),
          screens_(*connection_, events_), virtualDisplays_(*connection_, events_, screens_, mainQueue, displayName),
          panels_(*connection_, events_, screens_, mainQueue, painted_), mainQueue_(mainQueue),
          systemAudio_(systemAudio)
    {
        panels_.setVirtualArea(&virtualDisplays_.area());
    }

    [[nodiscard]] Result<void> startCapture(const std::string& displayName)
    {
        CaptureEngine::Callbacks callbacks;
        // The connection that shows a pixmap frees it, after all that it was told to draw from it.
        callbacks.releasePixmap = [&queue = mainQueue_, connection = connection_->get()](xcb_pixmap_t pixmap) {
            queue.post([connection, pixmap] { mayFail(connection, xcb_free_pixmap_checked(connection, pixmap)); });
        };
        callbacks.onPointerMoved = [this](std::optional<PixelPoint> position) { screens_.pointer().didMove(position); };
        callbacks.onLost = [this] { mainQueue_.post([this] { reportLost(); }); };
        auto engine = CaptureEngine::create(displayName, std::move(callbacks), painted_);
        if (!engine)
            return tl::make_unexpected(engine.error());
        engine_ = std::move(*engine);
        capture_ = std::make_unique<X11ScreenCapture>(*connection_, *engine_, screens_, mainQueue_, displayName,
                                                      &systemAudio_);
        return {};
    }

    [[nodiscard]] Screens& screens() override { return screens_; }
    [[nodiscard]] ScreenCapture& screenCapture() override { return *capture_; }
    [[nodiscard]] VirtualDisplays& virtualDisplays() override { return virtualDisplays_; }
    [[nodiscard]] Panels& panels() override { return panels_; }
    [[nodiscard]] SessionLock& sessionLock() override { return panels_.sessionLock(); }

private:
    void reportLost()
    {
        if (std::exchange(isLost_, true) || !onConnectionLost)
            return;
        onConnectionLost(connectionLost());
    }

    std::unique_ptr<Connection> connection_;
    EventDispatcher events_;
    SentEventFilter sentEvents_;
    X11Screens screens_;
    std::shared_ptr<PaintedRegions> painted_ = std::make_shared<PaintedRegions>();
    X11VirtualDisplays virtualDisplays_;
    X11Panels panels_;
    MainQueue& mainQueue_;
    SystemAudio& systemAudio_;
    bool isLost_ = false;
    std::unique_ptr<CaptureEngine> engine_;
    std::unique_ptr<X11ScreenCapture> capture_;
};

} // namespace

Result<std::unique_ptr<WindowSystem>> createX11WindowSystem(MainQueue& mainQueue, SystemAudio& systemAudio,
                                                            const std::string& displayName)
{
    auto connection = Connection::open(displayName);
    if (!connection)
        return tl::make_unexpected(connection.error());
    auto windowSystem = std::make_unique<X11WindowSystem>(std::move(*connection), mainQueue, systemAudio, displayName);
    if (const Result<void> started = windowSystem->startCapture(displayName); !started)
        return tl::make_unexpected(started.error());
    return windowSystem;
}

void activateToolkitWindow(std::uintptr_t nativeWindow, std::optional<EventTime> cause)
{
    const auto* const toolkit = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!toolkit)
        return;
    const std::optional<EventTime> moment = cause ? cause : currentServerTime();
    if (moment)
        activateWindow(toolkit->connection(), static_cast<xcb_window_t>(nativeWindow), *moment);
}

} // namespace nimbrale::x11
