// Where the screen cannot grow there is no virtual display: the browser shares the mirror window, found by its title.

#include "tests/support/meeting.h"

#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

TEST(MirrorWindow, IsSharedByItsTitleAndFollowsAResize)
{
    const QRect region(200, 150, 500, 350);
    // Xvfb's screen is never bigger than at its start.
    const auto meeting = requireMeeting({.desktop = {.server = PrivateDesktop::Server::xvfb,
                                                     .width = 1600,
                                                     .height = 900,
                                                     .windowManager = PrivateDesktop::WindowManager::openbox},
                                         .application = {.region = region},
                                         .call = {.source = "Share this", .window = {1240, 600, 320, 240}}});
    EXPECT_FALSE(meeting->desktop().monitorNamed("Nimbrale"));
    EXPECT_TRUE(meeting->desktop().windowTitled("Share this · Screen area 500×350"));
    EXPECT_EQ(meeting->call().state().surface, "window");
    meeting->desktop().movePointer({20, 20});
    EXPECT_TRUE(meeting->showsContentOf(region)) << "the alert that says which window to share is not in it";
    // It stands in the middle of the display, behind the browser that came later.
    meeting->desktop().click({800, 440});
    EXPECT_TRUE(waitUntil([&] { return meeting->desktop().activeWindowTitle() == "Nimbrale"; }, Milliseconds{3000}));
    constexpr std::uint32_t returnKey = 0xff0d;
    meeting->desktop().pressKey(returnKey);
    meeting->desktop().releaseKey(returnKey);
    EXPECT_TRUE(waitUntil([&] { return meeting->desktop().activeWindowTitle() != "Nimbrale"; }, Milliseconds{3000}));

    const QPoint button = Application::resizeButtonOf(region);
    meeting->desktop().drag(button, button + QPoint(100, 60));
    meeting->desktop().movePointer({20, 20});
    EXPECT_TRUE(meeting->call().waitForTrackSize({600, 410}, Milliseconds{3000}));
    EXPECT_TRUE(meeting->desktop().windowTitled("Share this · Screen area 600×410"));
    EXPECT_TRUE(meeting->showsContentOf({200, 150, 600, 410}));
}

} // namespace

} // namespace nimbrale::test
