#pragma once

#include "platform/desktop/qt_main_queue.h"
#include "platform/x11/capture/capture_engine.h"
#include "platform/x11/capture/x11_screen_capture.h"
#include "platform/x11/displays/x11_screens.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/handles.h"
#include "tests/support/private_desktop.h"
#include "tests/support/scene.h"

#include <QCoreApplication>
#include <QImage>

#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>

namespace nimbrale::test {

/// The X11 capture hosted by the test process on a private desktop, with what it delivered last.
class CapturedDesktop {
public:
    /// The capture's own connection is made to `engineDisplay`, where one is given.
    explicit CapturedDesktop(PrivateDesktop& desktop, const std::string& engineDisplay = {}) : desktop_(desktop)
    {
        connection_ = std::move(*x11::Connection::open(desktop.displayName()));
        events_ = std::make_unique<x11::EventDispatcher>(*connection_, [] {});
        screens_ = std::make_unique<x11::X11Screens>(*connection_, *events_);
        x11::CaptureEngine::Callbacks callbacks;
        callbacks.releasePixmap = [this](xcb_pixmap_t pixmap) {
            queue_.post([this, pixmap] { xcb_free_pixmap(connection_->get(), pixmap); });
        };
        callbacks.onLost = [this] { isLost_ = true; };
        engine_ = std::move(*x11::CaptureEngine::create(engineDisplay.empty() ? desktop.displayName() : engineDisplay,
                                                        std::move(callbacks), painted_));
        capture_ =
            std::make_unique<x11::X11ScreenCapture>(*connection_, *engine_, *screens_, queue_, desktop.displayName());
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
        // Completions may come after a wait for them has been given up.
        const auto isStarted = std::make_shared<bool>(false);
        stream_->start([isStarted](const Result<void>& result) { *isStarted = result.has_value(); });
        ASSERT_TRUE(pumpUntil([&] { return *isStarted && surface_; }));
    }

    void updateRegion(const Rect& region)
    {
        setRegion(region);
        const auto isDone = std::make_shared<bool>(false);
        stream_->updateConfiguration(configuration_, [isDone](const Result<void>&) { *isDone = true; });
        const int before = frames_;
        ASSERT_TRUE(pumpUntil([&] { return *isDone && frames_ > before; }));
    }

    void updateNotifications(bool excludesNotifications)
    {
        setExcluded(excludesNotifications);
        const auto isDone = std::make_shared<bool>(false);
        stream_->updateContentFilter(filter_, [isDone](const Result<void>&) { *isDone = true; });
        const int before = frames_;
        ASSERT_TRUE(pumpUntil([&] { return *isDone && frames_ > before; }));
    }

    /// Handles events until the condition holds; false when it does not in time.
    template <typename Condition>
    [[nodiscard]] bool pumpUntil(Condition condition, int milliseconds = 3000)
    {
        return waitUntil(
            [&] {
                QCoreApplication::processEvents();
                // Replies that were waited for bring events along that wake no loop.
                events_->dispatch();
                return condition();
            },
            Milliseconds{milliseconds}, Milliseconds{1});
    }

    void pumpFor(Milliseconds duration)
    {
        (void)pumpUntil([] { return false; }, static_cast<int>(duration.count()));
    }

    /// Returns when the picture delivered last shows everything that the desktop did before. A marker that another
    /// process then shows in the region's corner comes in a picture after all of that, and goes in a further one.
    void settle()
    {
        const QPoint corner = sourceCorner();
        if (!markers_)
            addMarkers(corner);
        // The one whose color the corner does not have already.
        const std::string marker = cornerPixel() == markerPixels_[0] ? "marker1" : "marker0";
        const std::uint32_t pixel = markerPixels_[marker == "marker1"];
        markers_->move(marker, corner);
        markers_->raise(marker);
        markers_->map(marker);
        // picom now and then leaves out a window that has just been mapped.
        bool isCaptured = false;
        for (int tries = 0; tries < 5 && !isCaptured; ++tries) {
            isCaptured = pumpUntil([&] { return cornerPixel() == pixel; }, 1000);
            if (!isCaptured)
                markers_->repaint(marker, 0);
        }
        EXPECT_TRUE(isCaptured) << "the marker is never captured";
        markers_->unmap(marker);
        EXPECT_TRUE(pumpUntil([&] { return cornerPixel() != pixel; }, 5000)) << "the marker stays captured";
    }

    /// As `settle`, and long enough for what the capture looks into now and then to have passed: from then on nothing
    /// but a change brings a picture.
    void rest()
    {
        settle();
        (void)pumpUntil([] { return false; }, 500);
    }

    /// What the capture is told that this process paints.
    [[nodiscard]] x11::PaintedRegions& painted() { return *painted_; }
    [[nodiscard]] std::shared_ptr<x11::PaintedRegions> sharedPainted() { return painted_; }

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
        return read(connection_->root(), int(configuration_.sourceRect->x), int(configuration_.sourceRect->y));
    }

    [[nodiscard]] int frames() const { return frames_; }
    [[nodiscard]] const std::vector<PixelRect>& changed() const { return changed_; }
    [[nodiscard]] x11::Connection& connection() { return *connection_; }
    [[nodiscard]] x11::CaptureEngine& engine() { return *engine_; }
    [[nodiscard]] x11::X11ScreenCapture& capture() { return *capture_; }
    [[nodiscard]] CaptureStream& stream() { return *stream_; }
    [[nodiscard]] x11::X11Screens& screens() { return *screens_; }
    [[nodiscard]] MainQueue& mainQueue() { return queue_; }
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

    /// Root pixels.
    [[nodiscard]] QPoint sourceCorner() const
    {
        const PixelRect display = screens_->find(screens_->mainDisplay())->pixels;
        return {display.x + static_cast<int>(configuration_.sourceRect->x),
                display.y + static_cast<int>(configuration_.sourceRect->y)};
    }

    void addMarkers(QPoint corner)
    {
        markers_ = Scene::start(desktop_);
        const QColor colors[] = {QColor(255, 0, 128), QColor(0, 255, 128)};
        for (int index = 0; index < 2; ++index) {
            const std::string name = "marker" + std::to_string(index);
            markers_->add(name, {.geometry = {corner, QSize(1, 1)}, .seed = 0, .color = colors[index]});
            markerPixels_[index] = pixelOf(markers_->identifier(name), 0, 0);
            markers_->unmap(name);
        }
    }

    [[nodiscard]] std::uint32_t cornerPixel()
    {
        return pixelOf(static_cast<const x11::X11Surface&>(*surface_).pixmap(), 0, 0);
    }

    /// As the server keeps it, but for the byte that says nothing in depth 24.
    [[nodiscard]] std::uint32_t pixelOf(xcb_drawable_t drawable, std::int16_t x, std::int16_t y)
    {
        const x11::Reply<xcb_get_image_reply_t> reply(xcb_get_image_reply(
            connection_->get(), xcb_get_image(connection_->get(), XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, x, y, 1, 1, ~0u),
            nullptr));
        std::uint32_t value = 0;
        if (reply && xcb_get_image_data_length(reply.get()) > 0)
            std::memcpy(&value, xcb_get_image_data(reply.get()),
                        static_cast<std::size_t>(xcb_get_image_data_length(reply.get())));
        return reply && reply->depth == 24 ? value & 0xffffff : value;
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

    PrivateDesktop& desktop_;
    std::shared_ptr<x11::PaintedRegions> painted_ = std::make_shared<x11::PaintedRegions>();
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
    /// Shows the markers.
    std::unique_ptr<Scene> markers_;
    std::uint32_t markerPixels_[2] = {};
};

} // namespace nimbrale::test
