// Other clients that unmap, move, reparent or destroy the windows of the real application: it notices and puts them
// back.

#include "tests/faults/other_clients_fixture.h"
#include "tests/support/window_touches.h"

#include <functional>
#include <string>

namespace nimbrale::test {
namespace {

class TouchedWindowsTest : public OtherClientsTest, public testing::WithParamInterface<WindowTouch> {
protected:
    /// Does it with the server held, so that the damage is seen before the application can do anything about it.
    void touch(xcb_window_t window, const std::function<bool()>& isDamaged)
    {
        ASSERT_NE(window, XCB_NONE);
        xcb_grab_server(desktop->connection());
        GetParam().apply(desktop->connection(), window);
        desktop->synchronize();
        EXPECT_TRUE(isDamaged()) << keepImage(desktop->screenshot(), "touched");
        xcb_ungrab_server(desktop->connection());
        desktop->synchronize();
    }
};

INSTANTIATE_TEST_SUITE_P(Touches, TouchedWindowsTest, testing::ValuesIn(window_touches::all()),
                         [](const auto& touched) { return touched.param.name; });

TEST_P(TouchedWindowsTest, TheFrameIsPutBack)
{
    touch(frameWindow(), [&] { return !showsFrameAround(region, Milliseconds{1}); });
    expectEverythingWorks();
}

TEST_P(TouchedWindowsTest, TheSharedWindowIsPutBack)
{
    touch(ownWindowOf(region.size()), [&] { return !isFramedPictureShared(region); });
    expectEverythingWorks();
}

// As xkill does it to a window that was clicked.
TEST_F(OtherClientsTest, AKilledConnectionEndsItWithAMessageAndLeavesTheDesktopAsItWas)
{
    const xcb_window_t frame = frameWindow();
    ASSERT_NE(frame, XCB_NONE);
    ASSERT_NE(desktop->screenSize(), QSize(1280, 720)) << "the screen has grown";
    xcb_kill_client(desktop->connection(), frame);
    desktop->synchronize();
    EXPECT_EQ(application->process().waitForEnd(Milliseconds{5000}), 1);
    const std::string output = application->process().output();
    EXPECT_NE(output.find("The connection to the X server is lost"), std::string::npos) << output;
    EXPECT_TRUE(
        waitUntil([&] { return !desktop->monitorNamed("Nimbrale") && desktop->screenSize() == QSize(1280, 720); },
                  Milliseconds{5000}));
    EXPECT_FALSE(showsFrameAround(region, Milliseconds{1}));
}

TEST_F(OtherClientsTest, ARivalThatKeepsUnmappingTheFrameNeitherBlocksNorOutlastsIt)
{
    const xcb_window_t frame = frameWindow();
    ASSERT_NE(frame, XCB_NONE);
    int seen = 0;
    for (int round = 0; round < 200; ++round) {
        xcb_unmap_window(desktop->connection(), frame);
        desktop->synchronize();
        seen += showsFrameAround(region, Milliseconds{10}) ? 1 : 0;
    }
    EXPECT_GE(seen, 5) << "it was put back in between";
    EXPECT_LE(seen, 60) << "but not without limit";
    expectEverythingWorks();
}

} // namespace
} // namespace nimbrale::test
