// One stream's turns, with what happens between a picture's requests and the moment at which the server does them.

#include "platform/desktop/qt_main_queue.h"
#include "platform/x11/capture/capture_session.h"
#include "tests/desktop/x11_capture_fixture.h"
#include "tests/support/x_reply.h"

#include <atomic>
#include <cstring>
#include <mutex>

namespace nimbrale::test {
namespace {

constexpr QRect region(100, 80, 400, 300);
constexpr QRect panelPlace(220, 170, 120, 90);
const QColor ownColor(255, 0, 255);
constexpr Milliseconds patience{5000};

class X11CaptureSessionTest : public X11CaptureTest {
protected:
    void SetUp() override
    {
        startDesktop({.compositor = PrivateDesktop::Compositor::picom});
        captured.reset();
        scene->add("content", {.geometry = {0, 0, 1280, 700}, .seed = 5});
        connection = std::move(*x11::Connection::open(desktop->displayName()));
        other = std::move(*x11::Connection::open(desktop->displayName()));
        tracker = std::make_unique<x11::DesktopTracker>(*connection, nullptr, painted);
        const x11::DisplayPlace display{1, {0, 0, 1280, 720}};
        places.learn({display});
        session = std::make_unique<x11::CaptureSession>(
            queue, [] {}, [] {});
        session->configure({.source = {region.x(), region.y(), region.width(), region.height()},
                            .display = display,
                            .width = region.width(),
                            .height = region.height(),
                            .interval = std::chrono::milliseconds(1),
                            .showsCursor = false,
                            .queueDepth = 2});
        session->setFilter({{getpid()}, false});
        session->output->open(frameQueue, [this](const CaptureSample& sample) {
            const std::lock_guard lock(mutex);
            last = sample.surface;
            ++pictures;
        });
        session->start(*connection, *tracker, places, [](xcb_pixmap_t) {});
    }

    void TearDown() override
    {
        session->output->close();
        session->stop();
        last.reset();
        session.reset();
        tracker.reset();
        X11CaptureTest::TearDown();
    }

    /// Waits for a turn that draws. What it asks of the server has not been sent then.
    [[nodiscard]] bool drawNext()
    {
        return waitUntil(
            [this] {
                const auto now = x11::FramePacer::Clock::now();
                tracker->handleEvents();
                tracker->classifyNewWindows();
                tracker->poll(now);
                if (!session->timing(now).isDue())
                    return false;
                tracker->collect();
                return session->takeTurn(now);
            },
            patience);
    }

    void handOver()
    {
        connection->synchronize();
        tracker->handleEvents();
        session->handOver();
    }

    /// A panel as the application's are: it tells what it paints before the server hears of it.
    void showPanel()
    {
        const xcb_window_t window = other->newId();
        painted->set(window, x11::PixelRegion(0, 0, panelPlace.width(), panelPlace.height()));
        const std::uint32_t values[] = {ownColor.rgb() & RGB_MASK, 1};
        xcb_create_window(other->get(), XCB_COPY_FROM_PARENT, window, other->root(), std::int16_t(panelPlace.x()),
                          std::int16_t(panelPlace.y()), std::uint16_t(panelPlace.width()),
                          std::uint16_t(panelPlace.height()), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(other->get(), window);
        other->synchronize();
    }

    /// What the picture delivered last has where the panel is.
    [[nodiscard]] QColor colorBelowPanel()
    {
        const std::lock_guard lock(mutex);
        const QPoint middle = panelPlace.center() - region.topLeft();
        const Reply<xcb_get_image_reply_t> reply(xcb_get_image_reply(
            other->get(),
            xcb_get_image(other->get(), XCB_IMAGE_FORMAT_Z_PIXMAP, static_cast<const x11::X11Surface&>(*last).pixmap(),
                          std::int16_t(middle.x()), std::int16_t(middle.y()), 1, 1, ~0U),
            nullptr));
        std::uint32_t pixel = 0;
        if (reply)
            std::memcpy(&pixel, xcb_get_image_data(reply.get()), sizeof pixel);
        return QColor::fromRgb(pixel & RGB_MASK);
    }

    QtMainQueue queue;
    SerialQueue frameQueue{"Nimbrale.frames"};
    std::shared_ptr<x11::PaintedRegions> painted = std::make_shared<x11::PaintedRegions>();
    std::unique_ptr<x11::Connection> connection;
    std::unique_ptr<x11::Connection> other;
    std::unique_ptr<x11::DesktopTracker> tracker;
    x11::DisplayPlaces places;
    std::unique_ptr<x11::CaptureSession> session;
    std::mutex mutex;
    std::shared_ptr<const Surface> last;
    std::atomic<int> pictures = 0;
};

TEST_F(X11CaptureSessionTest, APanelThatComesBeforeThePictureIsCopiedIsNotInIt)
{
    ASSERT_TRUE(drawNext());
    handOver();
    ASSERT_TRUE(waitUntil([&] { return pictures == 1; }, patience));
    scene->repaint("content", 6);
    ASSERT_TRUE(drawNext());
    showPanel();
    ASSERT_TRUE(desktop->waitForPixel(panelPlace.center().x(), panelPlace.center().y(), ownColor))
        << "the control: the screen shows it before it is copied";
    handOver();
    sleepFor(Milliseconds{100});
    EXPECT_EQ(pictures, 1) << "it is dropped";

    ASSERT_TRUE(drawNext());
    handOver();
    ASSERT_TRUE(waitUntil([&] { return pictures == 2; }, patience));
    EXPECT_NE(colorBelowPanel(), ownColor);
}

} // namespace
} // namespace nimbrale::test
