// Displays come and go, other programs resize the screen, the application is killed: the share goes on, and
// nothing is left after it.

#include "tests/support/meeting.h"
#include "tests/support/screen_size_watch.h"

#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

const QRect firstDisplay(0, 0, 1600, 900);
const QRect secondDisplay(1600, 0, 1024, 768);

/// On the server of virtual desktops and on that of real ones.
class Displays : public testing::TestWithParam<PrivateDesktop::Server> {
protected:
    void begin(bool withSecondDisplay)
    {
        Meeting::Options options{.application = {.region = region_}, .call = {.window = {40, 600, 320, 240}}};
        options.desktop.server = GetParam();
        if (withSecondDisplay)
            options.secondDisplay = secondDisplay;
        meeting_ = requireMeeting(options);
    }

    bool isLeftClean()
    {
        PrivateDesktop& desktop = meeting_->desktop();
        return !desktop.monitorNamed("Nimbrale") && desktop.screenSize() == firstDisplay.size();
    }

    const QRect region_{1000, 200, 500, 350};
    std::unique_ptr<Meeting> meeting_;
};

TEST_P(Displays, AFrameDraggedOntoTheSecondDisplayIsSharedFromThere)
{
    begin(true);
    const QRect onSecond(1600 + 210, 230, 500, 350);
    meeting_->placeMovement(onSecond.center());
    meeting_->dragFrame(region_, onSecond.topLeft(), 40);
    meeting_->desktop().movePointer({20, 20});
    EXPECT_TRUE(waitUntil([&] { return meeting_->application().storedRegion() == onSecond.translated(-1600, 0); },
                          Milliseconds{2000}));
    EXPECT_TRUE(
        waitUntil([&] { return meeting_->application().storedValue("settingsDisplayID") != "0"; }, Milliseconds{1000}));
    EXPECT_TRUE(meeting_->showsContentOf(onSecond));

    // The display goes, and the frame takes the same place on the one that is left.
    const QRect onFirst = onSecond.translated(-1600, 0);
    const std::string output = meeting_->desktop().outputName(1);
    meeting_->desktop().unplug(output);
    meeting_->placeMovement(onFirst.center());
    EXPECT_TRUE(meeting_->displayShowsContentOf(onFirst, Milliseconds{5000}));
    EXPECT_TRUE(meeting_->showsContentOf(onFirst, Milliseconds{5000}));
    EXPECT_TRUE(meeting_->call().state().isLive);

    // It comes back to where the virtual display is by now, which makes room for it and goes on.
    meeting_->desktop().plug(output, secondDisplay);
    const bool hasMadeRoom = waitUntil(
        [&] {
            const auto display = meeting_->desktop().monitorNamed("Nimbrale");
            return display && !display->geometry.intersects(secondDisplay) &&
                   !display->geometry.intersects(firstDisplay);
        },
        Milliseconds{3000});
    EXPECT_TRUE(hasMadeRoom);
    EXPECT_TRUE(meeting_->showsContentOf(onFirst, Milliseconds{3000}));
    meeting_->placeMovement(onSecond.center());
    meeting_->dragFrame(onFirst, onSecond.topLeft(), 40);
    meeting_->desktop().movePointer({20, 20});
    EXPECT_TRUE(meeting_->showsContentOf(onSecond, Milliseconds{8000}));
}

TEST_P(Displays, AnotherProgramShrinksTheScreenAndTheShareRecovers)
{
    begin(false);
    const QSize grown = meeting_->desktop().screenSize();
    ASSERT_NE(grown, firstDisplay.size());
    ScreenSizeWatch sizes(meeting_->desktop());
    meeting_->desktop().run("xrandr", {"--output", meeting_->desktop().outputName(0), "--primary"});
    ASSERT_TRUE(sizes.hasSeen(firstDisplay.size())) << "the screen was not shrunk, so this shows nothing";
    const auto shrunk = std::chrono::steady_clock::now();
    EXPECT_TRUE(waitUntil([&] { return meeting_->desktop().screenSize() == grown; }, Milliseconds{1000}));
    EXPECT_TRUE(meeting_->call().waitForChangesReceived(3, Milliseconds{1000}));
    EXPECT_LT(std::chrono::steady_clock::now() - shrunk, std::chrono::seconds{1});
    EXPECT_TRUE(meeting_->trackShowsContentOf(region_, Milliseconds{1000}));
    // The codec takes its time to come back to the exact picture.
    EXPECT_TRUE(meeting_->showsContentOf(region_));
}

TEST_P(Displays, ADisplayPutToTheLeftMovesTheShareAlong)
{
    begin(true);
    PrivateDesktop& desktop = meeting_->desktop();
    desktop.run("xrandr", {"--output", desktop.outputName(0), "--primary", "--pos", "1024x0", "--output",
                           desktop.outputName(1), "--pos", "0x0"});
    const QRect moved = region_.translated(1024, 0);
    meeting_->placeMovement(moved.center());
    EXPECT_TRUE(meeting_->displayShowsContentOf(moved, Milliseconds{5000}));
    EXPECT_TRUE(meeting_->showsContentOf(moved, Milliseconds{5000}));
}

TEST_P(Displays, NothingIsLeftAfterQuittingWhenTheShareHasEndedToo)
{
    begin(false);
    EXPECT_EQ(meeting_->application().quit(), 0) << meeting_->application().process().output();
    EXPECT_FALSE(isLeftClean()) << "the share had ended, so this shows nothing";
    meeting_->call().browser().terminate();
    EXPECT_TRUE(waitUntil([&] { return isLeftClean(); }, Milliseconds{4000}));
}

TEST_P(Displays, NothingIsLeftAtOnceAfterQuittingWithoutAShare)
{
    begin(false);
    meeting_->call().browser().terminate();
    EXPECT_EQ(meeting_->application().quit(), 0) << meeting_->application().process().output();
    EXPECT_TRUE(isLeftClean());
}

TEST_P(Displays, AStartAfterAKillSharesAgain)
{
    begin(false);
    meeting_->application().process().signal(SIGKILL);
    ASSERT_TRUE(meeting_->application().process().waitForEnd(Milliseconds{3000}));
    EXPECT_FALSE(isLeftClean()) << "nothing outlived the kill, so this shows nothing";

    std::string reason;
    ASSERT_TRUE(meeting_->restartApplication(reason)) << reason;
    ASSERT_TRUE(meeting_->application().waitForVirtualDisplay(region_.size()));
    EXPECT_TRUE(meeting_->showsContentOf(region_, Milliseconds{8000}));
    meeting_->call().browser().terminate();
    EXPECT_EQ(meeting_->application().quit(), 0);
    EXPECT_TRUE(isLeftClean());
}

INSTANTIATE_TEST_SUITE_P(Servers, Displays,
                         testing::Values(PrivateDesktop::Server::xvnc, PrivateDesktop::Server::xorgDummy),
                         [](const auto& server) {
                             return server.param == PrivateDesktop::Server::xvnc ? "Xvnc" : "XorgDummy";
                         });

} // namespace

} // namespace nimbrale::test
