#pragma once

#include "platform/desktop/qt_main_queue.h"
#include "platform/x11/capture/capture_engine.h"
#include "platform/x11/capture/x11_screen_capture.h"
#include "platform/x11/displays/x11_screens.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/handles.h"
#include "tests/support/private_desktop.h"

#include <QCoreApplication>
#include <QImage>

#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>

namespace nimbrale::test {

/// The X11 capture hosted by the test process on a private desktop, with what it delivered last.
class CapturedDesktop {
public:
    explicit CapturedDesktop(PrivateDesktop& desktop)
    {
        connection_ = std::move(*x11::Connection::open(desktop.displayName()));
        events_ = std::make_unique<x11::EventDispatcher>(*connection_, [] {});
        screens_ = std::make_unique<x11::X11Screens>(*connection_, *events_);
        x11::CaptureEngine::Callbacks callbacks;
        callbacks.releasePixmap = [this](xcb_pixmap_t pixmap) {
            queue_.post([this, pixmap] { xcb_free_pixmap(connection_->get(), pixmap); });
        };
        callbacks.onLost = [this] { isLost_ = true; };
        engine_ = std::move(*x11::CaptureEngine::create(desktop.displayName(), std::move(callbacks)));
        capture_ = std::make_unique<x11::X11ScreenCapture>(*engine_, *screens_, queue_);
    }

    ~CapturedDesktop()
    {
        stream_.reset();
        capture_.reset();
        engine_.reset();
    }

    /// `region` in region coordinates of the main display, at scale 1.
    void start(const Rect& region, int framesPerSecond = 60, bool excludesNotifications = false,
               bool showsCursor = false)
    {
        filter_.displayID = screens_->mainDisplay();
        setExcluded(excludesNotifications);
        configuration_.minimumFrameInterval = {1, framesPerSecond};
        configuration_.showsCursor = showsCursor;
        setRegion(region);
        stream_ = capture_->makeStream(filter_, configuration_, [](const Error&) {});
        ASSERT_TRUE(stream_->addOutput(OutputType::screen, frameQueue_, [this](const CaptureSample& sample) {
            queue_.post([this, surface = sample.surface] {
                changed_ = surface->changedSince(surface_ ? surface_->identifier() : 0);
                surface_ = surface;
                ++frames_;
                if (onFrame)
                    onFrame();
            });
        }));
        bool isStarted = false;
        stream_->start([&isStarted](const Result<void>& result) { isStarted = result.has_value(); });
        ASSERT_TRUE(pumpUntil([&] { return isStarted && surface_; }));
    }

    void updateRegion(const Rect& region)
    {
        setRegion(region);
        bool isDone = false;
        stream_->updateConfiguration(configuration_, [&isDone](const Result<void>&) { isDone = true; });
        const int before = frames_;
        ASSERT_TRUE(pumpUntil([&] { return isDone && frames_ > before; }));
    }

    void updateNotifications(bool excludesNotifications)
    {
        setExcluded(excludesNotifications);
        bool isDone = false;
        stream_->updateContentFilter(filter_, [&isDone](const Result<void>&) { isDone = true; });
        const int before = frames_;
        ASSERT_TRUE(pumpUntil([&] { return isDone && frames_ > before; }));
    }

    /// Handles events until the condition holds; false when it does not in time.
    template <typename Condition>
    [[nodiscard]] bool pumpUntil(Condition condition, int milliseconds = 3000)
    {
        return waitUntil(
            [&] {
                QCoreApplication::processEvents();
                return condition();
            },
            Milliseconds{milliseconds}, Milliseconds{1});
    }

    /// Handles events until no picture came for a while: everything that changed has been delivered.
    void settle(int milliseconds = 150)
    {
        int seen = -1;
        while (seen != frames_) {
            seen = frames_;
            (void)pumpUntil([] { return false; }, milliseconds);
        }
    }

    /// The picture delivered last, read from a server whose root has depth 24.
    [[nodiscard]] QImage image() { return imageOf(*surface_); }

    [[nodiscard]] std::shared_ptr<const Surface> surface() const { return surface_; }

    /// The pixels of a picture that was delivered.
    [[nodiscard]] QImage imageOf(const Surface& picture)
    {
        const auto& surface = static_cast<const x11::X11Surface&>(picture);
        const std::vector<std::uint8_t> bytes = read(surface.pixmap(), 0, 0);
        QImage image(surface.width(), surface.height(), QImage::Format_RGB32);
        if (std::size_t(image.sizeInBytes()) != bytes.size())
            return {};
        std::memcpy(image.bits(), bytes.data(), bytes.size());
        return image;
    }

    /// The picture delivered last, as the server keeps it.
    [[nodiscard]] std::vector<std::uint8_t> bytes()
    {
        return read(static_cast<const x11::X11Surface&>(*surface_).pixmap(), 0, 0);
    }

    /// What the root shows of the region, as the server keeps it.
    [[nodiscard]] std::vector<std::uint8_t> rootBytes()
    {
        return read(connection_->root(), int(configuration_.sourceRect.x), int(configuration_.sourceRect.y));
    }

    [[nodiscard]] int frames() const { return frames_; }
    [[nodiscard]] const std::vector<PixelRect>& changed() const { return changed_; }
    [[nodiscard]] x11::Connection& connection() { return *connection_; }
    [[nodiscard]] x11::X11ScreenCapture& capture() { return *capture_; }
    [[nodiscard]] CaptureStream& stream() { return *stream_; }
    [[nodiscard]] bool isLost() const { return isLost_; }

    std::function<void()> onFrame;

private:
    [[nodiscard]] std::vector<std::uint8_t> read(xcb_drawable_t drawable, int x, int y)
    {
        connection_->synchronize();
        const x11::Reply<xcb_get_image_reply_t> reply(xcb_get_image_reply(
            connection_->get(),
            xcb_get_image(connection_->get(), XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, std::int16_t(x), std::int16_t(y),
                          std::uint16_t(surface_->width()), std::uint16_t(surface_->height()), ~0u),
            nullptr));
        if (!reply)
            return {};
        const std::uint8_t* const data = xcb_get_image_data(reply.get());
        return {data, data + xcb_get_image_data_length(reply.get())};
    }

    void setRegion(const Rect& region)
    {
        configuration_.sourceRect = region;
        configuration_.width = static_cast<std::int64_t>(region.width);
        configuration_.height = static_cast<std::int64_t>(region.height);
    }

    void setExcluded(bool excludesNotifications)
    {
        filter_.excludedApplications = {{getpid(), {}}};
        if (excludesNotifications)
            filter_.excludedApplications.push_back({0, notificationApplicationIdentifier});
    }

    QtMainQueue queue_;
    SerialQueue frameQueue_{"Nimbrale.frames"};
    std::unique_ptr<x11::Connection> connection_;
    std::unique_ptr<x11::EventDispatcher> events_;
    std::unique_ptr<x11::X11Screens> screens_;
    std::unique_ptr<x11::CaptureEngine> engine_;
    std::unique_ptr<x11::X11ScreenCapture> capture_;
    std::unique_ptr<CaptureStream> stream_;
    ContentFilter filter_;
    StreamConfiguration configuration_;
    std::shared_ptr<const Surface> surface_;
    std::vector<PixelRect> changed_;
    std::atomic<bool> isLost_ = false;
    int frames_ = 0;
};

} // namespace nimbrale::test
