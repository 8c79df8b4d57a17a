// What the far side sees while the frame is dragged and resized with a real pointer, and what is stored afterwards.

#include "tests/support/meeting.h"

#include <X11/keysym.h>
#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

constexpr Milliseconds afterRelease{1500};

/// On the server of virtual desktops and on that of real ones.
class FrameDrag : public testing::TestWithParam<PrivateDesktop::Server> {
protected:
    void begin(const QRect& region, bool snaps = false)
    {
        Meeting::Options options{.application = {.region = region, .snaps = snaps},
                                 .call = {.window = {1240, 600, 320, 240}}};
        options.desktop.server = GetParam();
        meeting_ = requireMeeting(options);
    }

    /// The stored region, the virtual display, the track and its content, all within the time after a release.
    void expectToHaveSettledOn(const QRect& region)
    {
        const auto start = std::chrono::steady_clock::now();
        const auto left = [&] {
            return std::max(Milliseconds{1}, afterRelease - std::chrono::duration_cast<Milliseconds>(
                                                                std::chrono::steady_clock::now() - start));
        };
        EXPECT_TRUE(waitUntil([&] { return meeting_->application().storedRegion() == region; }, left()))
            << "stored is " << describe(meeting_->application().storedRegion()) << " instead of " << describe(region);
        EXPECT_TRUE(meeting_->application().waitForVirtualDisplay(region.size(), left()));
        EXPECT_TRUE(meeting_->call().waitForTrackSize(Meeting::sharedPart(region).size(), left()));
        EXPECT_TRUE(meeting_->showsContentOf(region));
    }

    static std::string describe(const QRect& rectangle)
    {
        return std::to_string(rectangle.width()) + "x" + std::to_string(rectangle.height()) + "+" +
               std::to_string(rectangle.x()) + "+" + std::to_string(rectangle.y());
    }

    std::unique_ptr<Meeting> meeting_;
};

TEST_P(FrameDrag, TheFarSideFollowsDuringAMove)
{
    const QRect region(200, 150, 500, 350);
    begin(region);
    PrivateDesktop& desktop = meeting_->desktop();
    const QPoint handle = Application::handleOf(region);
    desktop.movePointer(handle);
    desktop.pressButton();
    for (int step = 1; step <= 4; ++step) {
        const QPoint moved(step * 60, step * 25);
        desktop.movePointer(handle + moved);
        EXPECT_TRUE(meeting_->trackShowsContentOf(region.translated(moved), Milliseconds{1000})) << "step " << step;
    }
    desktop.releaseButton();
    desktop.movePointer({20, 20});
    expectToHaveSettledOn(region.translated(240, 100));
}

TEST_P(FrameDrag, AResizeIsFollowedByTheSameTrack)
{
    const QRect region(200, 150, 500, 350);
    begin(region);
    const QPoint button = Application::resizeButtonOf(region);
    meeting_->desktop().drag(button, button + QPoint(121, 83));
    meeting_->desktop().movePointer({20, 20});
    expectToHaveSettledOn({200, 150, 621, 433});
    EXPECT_TRUE(meeting_->call().state().isLive);
}

TEST_P(FrameDrag, SnapsToHalvesAndSuperLetsItGo)
{
    const QRect region(207, 150, 500, 350);
    begin(region, true);
    meeting_->dragFrame(region, {5, 150});
    meeting_->desktop().movePointer({900, 20});
    expectToHaveSettledOn({0, 150, 500, 350});

    meeting_->desktop().pressKey(XK_Super_L);
    meeting_->dragFrame({0, 150, 500, 350}, {5, 160});
    meeting_->desktop().releaseKey(XK_Super_L);
    meeting_->desktop().movePointer({900, 20});
    expectToHaveSettledOn({5, 160, 500, 350});
}

TEST_P(FrameDrag, SuperSnapsWhereSnappingIsOff)
{
    const QRect region(207, 150, 500, 350);
    begin(region);
    meeting_->desktop().pressKey(XK_Super_L);
    meeting_->dragFrame(region, {5, 150});
    meeting_->desktop().releaseKey(XK_Super_L);
    meeting_->desktop().movePointer({900, 20});
    expectToHaveSettledOn({0, 150, 500, 350});
}

TEST_P(FrameDrag, GuidesAreShownWhileSnapped)
{
    const QRect region(207, 150, 500, 350);
    begin(region, true);
    PrivateDesktop& desktop = meeting_->desktop();
    // The middle of the display: 800. Of a dashed line something less than every row is drawn.
    const auto isGuideShown = [&desktop] {
        const QRgb orange = QColor::fromRgbF(1.0F, 0.62F, 0.04F).rgb();
        const QImage column = desktop.screenshot({799, 600, 3, 290});
        int dashes = 0;
        for (int y = 0; y < column.height(); ++y) {
            for (int x = 0; x < column.width(); ++x)
                dashes += column.pixel(x, y) == orange;
        }
        return dashes > 100 && dashes < 290;
    };
    const QPoint handle = Application::handleOf(region);
    desktop.movePointer(handle);
    desktop.pressButton();
    desktop.movePointer(handle + QPoint(30, 0));
    EXPECT_TRUE(meeting_->trackShowsContentOf(region.translated(30, 0), Milliseconds{1000}));
    EXPECT_FALSE(isGuideShown()) << "nothing is snapped yet";
    // The middle of the region comes near the middle of the display.
    desktop.movePointer(handle + QPoint(553 - region.x(), 0));
    EXPECT_TRUE(waitUntil(isGuideShown, Milliseconds{1000}))
        << "kept as " << keepImage(desktop.screenshot(), "desktop");
    desktop.releaseButton();
    EXPECT_TRUE(waitUntil([&] { return !isGuideShown(); }, Milliseconds{1000}));
    desktop.movePointer({20, 20});
    const QRect settled(550, 150, 500, 350);
    meeting_->placeMovement(settled.center());
    expectToHaveSettledOn(settled);
}

TEST_P(FrameDrag, TheCloseButtonEndsTheApplicationAndTheDisplayGoesWithTheShare)
{
    const QRect region(200, 150, 500, 350);
    begin(region);
    ASSERT_TRUE(meeting_->desktop().monitorNamed("Nimbrale"));
    meeting_->desktop().click(Application::closeButtonOf(region));
    EXPECT_EQ(meeting_->application().process().waitForEnd(Milliseconds{5000}), 0);
    EXPECT_TRUE(meeting_->desktop().monitorNamed("Nimbrale")) << "the browser still shares it";
    meeting_->call().browser().terminate();
    EXPECT_TRUE(waitUntil([&] { return !meeting_->desktop().monitorNamed("Nimbrale"); }, Milliseconds{3000}));
    EXPECT_TRUE(waitUntil([&] { return meeting_->desktop().screenSize() == QSize(1600, 900); }, Milliseconds{3000}));
}

INSTANTIATE_TEST_SUITE_P(Servers, FrameDrag,
                         testing::Values(PrivateDesktop::Server::xvnc, PrivateDesktop::Server::xorgDummy),
                         [](const auto& server) {
                             return server.param == PrivateDesktop::Server::xvnc ? "Xvnc" : "XorgDummy";
                         });

} // namespace

} // namespace nimbrale::test
