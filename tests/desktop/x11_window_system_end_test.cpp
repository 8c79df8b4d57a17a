// What is left of a capture when its window system goes.

#include "tests/desktop/shared_screen_fixture.h"

#include <thread>

namespace nimbrale::test {
namespace {

class X11WindowSystemEndTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop = requireDesktop({});
        host = std::make_unique<SharedScreenHost>(*desktop);
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<SharedScreenHost> host;
};

TEST_F(X11WindowSystemEndTest, aCaptureThatIsStillStoppingIsReleasedOnTheMainThread)
{
    ASSERT_TRUE(host->start({100, 80, 400, 300}));
    host->screen.reset();
    std::thread::id releasedOn;
    std::shared_ptr<void> witness(nullptr, [&releasedOn](void*) { releasedOn = std::this_thread::get_id(); });
    // The capture thread waits for the answer of a server that answers another client only, and stops after that.
    xcb_connection_t* const other = desktop->connection();
    xcb_grab_server(other);
    // Of a new window there is something to ask, once the capture has heard of it.
    const xcb_window_t window = xcb_generate_id(other);
    xcb_create_window(other, XCB_COPY_FROM_PARENT, window, desktop->screen().root, 0, 0, 10, 10, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_map_window(other, window);
    desktop->synchronize();
    sleepFor(Milliseconds{50});
    host->platform->screenCapture().shareableContent([](const Result<ShareableContent>&) {});
    host->capture->stop([witness = std::move(witness)] {});
    host->capture.reset();
    host->queue.dropPending();
    EXPECT_EQ(releasedOn, std::thread::id()) << "it is still stopping";
    xcb_ungrab_server(other);
    desktop->synchronize();
    host->platform.reset();
    host.reset();
    EXPECT_EQ(releasedOn, std::this_thread::get_id());
}

TEST_F(X11WindowSystemEndTest, aStreamMayGoAfterIt)
{
    SerialQueue queue("Nimbrale.frames");
    ScreenCapture& capture = host->platform->screenCapture();
    const std::unique_ptr<CaptureStream> stream = capture.makeStream(
        {host->platform->screens().mainDisplay(), {}},
        {.sourceRect = Rect{100, 80, 400, 300}, .width = 400, .height = 300, .minimumFrameInterval = {1, 60}},
        [](const Error&) {});
    ASSERT_TRUE(stream->addOutput(OutputType::screen, queue, [](const CaptureSample&) {}));
    bool isStarted = false;
    stream->start([&isStarted](const Result<void>& result) { isStarted = result.has_value(); });
    ASSERT_TRUE(DisplaysHost::pumpUntil([&isStarted] { return isStarted; }));
    host->platform.reset();
}

} // namespace
} // namespace nimbrale::test
