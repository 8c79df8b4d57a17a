#pragma once

#include "platform/desktop/qt_main_queue.h"
#include "platform/x11/displays/display_scale.h"
#include "platform/x11/x11_window_system.h"
#include "tests/desktop/captured_stream.h"
#include "tests/fakes/fake_microphones.h"
#include "tests/support/private_desktop.h"

#include <QColor>
#include <QImage>
#include <QRect>

#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>

namespace nimbrale::test {

/// The toolkit's factor in this process as the application sets it at its start, until this object goes.
class ToolkitFactor {
public:
    explicit ToolkitFactor(const PrivateDesktop& desktop)
    {
        qputenv("DISPLAY", QByteArray::fromStdString(desktop.displayName()));
        qunsetenv("QT_SCALE_FACTOR");
        x11::scaleToolkitAsDesktop();
    }
    ~ToolkitFactor() { qunsetenv("QT_SCALE_FACTOR"); }
    ToolkitFactor(const ToolkitFactor&) = delete;
    ToolkitFactor& operator=(const ToolkitFactor&) = delete;
};

/// What the application does on a desktop, hosted by the test process: the platform, one own panel that lies over the
/// screen, and a capture that leaves the panel out. In pixels of the root window.
class CapturedSession {
public:
    CapturedSession(PrivateDesktop& desktop, const QRect& region, const QRect& ownPanel, const QColor& ownColor)
        : region_(region), factor_(desktop)
    {
        platform_ = std::move(*x11::createX11WindowSystem(queue_, systemAudio_, desktop.displayName()));
        reader_ = std::move(*x11::Connection::open(desktop.displayName()));
        showPanel(ownPanel, ownColor);
        stream_ = std::make_unique<CapturedStream>(platform_->screenCapture(), queue_, *reader_);
    }

    ~CapturedSession()
    {
        stream_->destroy();
        // What the stream still has on its way finds this object.
        static_cast<void>(pumpUntil([] { return false; }, Milliseconds{50}));
    }
    CapturedSession(const CapturedSession&) = delete;
    CapturedSession& operator=(const CapturedSession&) = delete;

    [[nodiscard]] bool start()
    {
        ContentFilter filter;
        filter.displayID = platform_->screens().mainDisplay();
        filter.excludedApplications = {{getpid(), {}}};
        StreamConfiguration configuration;
        configuration.sourceRect = inPoints(region_);
        configuration.width = region_.width();
        configuration.height = region_.height();
        configuration.minimumFrameInterval = {1, 60};
        configuration.showsCursor = false;
        return stream_->start(filter, configuration) && pumpUntil([&] { return stream_->frames() > 0; });
    }

    /// The picture delivered last.
    [[nodiscard]] QImage image() const { return stream_->image(); }
    [[nodiscard]] int frames() const { return stream_->frames(); }
    [[nodiscard]] const QRect& region() const { return region_; }

    /// Pixels per point, as the application takes them.
    [[nodiscard]] double scale() const { return platform_->screens().screens().front().backingScaleFactor; }

private:
    /// Region coordinates.
    [[nodiscard]] Rect inPoints(const QRect& place) const
    {
        return {place.x() / scale(), place.y() / scale(), place.width() / scale(), place.height() / scale()};
    }

    [[nodiscard]] Rect onScreen(const QRect& place) const
    {
        Rect points = inPoints(place);
        points.y = platform_->screens().screens().front().frame.height - points.y - points.height;
        return points;
    }

    void showPanel(const QRect& place, const QColor& color)
    {
        PanelOptions options;
        options.frame = onScreen(place);
        options.title = "Own panel";
        panel_ = platform_->panels().create(options);
        panel_->rootLayer().setBackgroundColor(Color{color.redF(), color.greenF(), color.blueF(), 1});
        panel_->orderFront();
        static_cast<void>(pumpUntil([] { return false; }, Milliseconds{50}));
    }

    QRect region_;
    ToolkitFactor factor_;
    // Before the platform, so that they go after it.
    QtMainQueue queue_;
    FakeSystemAudio systemAudio_;
    std::unique_ptr<WindowSystem> platform_;
    std::unique_ptr<x11::Connection> reader_;
    std::unique_ptr<Panel> panel_;
    std::unique_ptr<CapturedStream> stream_;
};

/// How many pixels of a picture have exactly this color.
[[nodiscard]] inline int pixelsOf(const QColor& color, const QImage& image)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        const auto* const line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x)
            count += (line[x] & RGB_MASK) == (color.rgb() & RGB_MASK);
    }
    return count;
}

} // namespace nimbrale::test
