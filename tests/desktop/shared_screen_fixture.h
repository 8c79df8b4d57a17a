#pragma once

#include "platform/desktop/qt_main_queue.h"
#include "platform/x11/x11_window_system.h"
#include "settings/app_settings.h"
#include "share/region_capture.h"
#include "share/shared_screen.h"
#include "tests/desktop/displays_host.h"
#include "tests/fakes/fake_microphones.h"

#include <QTemporaryDir>

#include <memory>

namespace nimbrale::test {

/// What the application shows on the virtual display, from the capture to the panel, hosted by the test process.
class SharedScreenHost {
public:
    explicit SharedScreenHost(const PrivateDesktop& desktop)
    {
        startOffscreenApplication();
        platform = std::move(*x11::createX11WindowSystem(queue, systemAudio, desktop.displayName()));
    }

    ~SharedScreenHost() { stop(); }
    SharedScreenHost(const SharedScreenHost&) = delete;
    SharedScreenHost& operator=(const SharedScreenHost&) = delete;

    /// Shares a region of the main display; returns once its first picture was shown.
    [[nodiscard]] bool start(const Rect& region)
    {
        settings.setLeft(static_cast<std::int64_t>(region.x));
        settings.setTop(static_cast<std::int64_t>(region.y));
        settings.setWidth(static_cast<std::int64_t>(region.width));
        settings.setHeight(static_cast<std::int64_t>(region.height));
        screen =
            std::make_unique<SharedScreen>(platform->virtualDisplays(), platform->panels(), platform->screens(), queue);
        capture = RegionCapture::create(platform->screenCapture(), platform->screens(), queue, settings);
        int frames = 0;
        capture->onFrame = [this, &frames](const Frame& frame) {
            ++frames;
            screen->show(frame);
        };
        platform->screenCapture().shareableContent([this](const Result<ShareableContent>& content) {
            capture->start(content, [this](const Result<void>&) {
                screen->activate(capture->region(), *capture->geometry(), capture->pixelScale());
            });
        });
        const bool isShown =
            DisplaysHost::pumpUntil([&] { return frames > 0 && screen->windowKind(); }, Milliseconds{20'000});
        capture->onFrame = [this](const Frame& frame) { screen->show(frame); };
        return isShown;
    }

    /// As at the end of a drag of the frame.
    void setRegion(const Rect& region)
    {
        capture->setRegion(region);
        capture->applyRegion();
        screen->setRegion(region);
        screen->regionChangeEnded();
    }

    void stop()
    {
        if (capture) {
            bool isStopped = false;
            capture->stop([&isStopped] { isStopped = true; });
            static_cast<void>(DisplaysHost::pumpUntil([&] { return isStopped; }));
        }
        capture.reset();
        if (screen)
            screen->deactivate();
        screen.reset();
    }

    // Before the platform, so that they go after it.
    QtMainQueue queue;
    FakeSystemAudio systemAudio;
    QTemporaryDir folder;
    AppSettings settings{folder.filePath("settings.conf").toStdString()};
    std::unique_ptr<WindowSystem> platform;
    std::unique_ptr<SharedScreen> screen;
    std::shared_ptr<RegionCapture> capture;
};

} // namespace nimbrale::test
