// What has the capture start anew, and that it does so once.

#include "tests/unit/app/app_delegate_fixture.h"

#include <gmock/gmock.h>

#include <chrono>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;

TEST_F(AppDelegateTest, UnplugOfTheFramesDisplayRestartsFromTheStoredDisplay)
{
    settings_.setDisplayID(otherDisplay);
    launch();
    ASSERT_EQ(delegate_->capture()->display()->displayID, otherDisplay);

    platform_.screens().remove(otherDisplay);
    platform_.screens().notify();
    queue().advance(500ms);
    EXPECT_TRUE(isRestarting());
    capture().stream().completeStop();
    finishStart();
    EXPECT_EQ(delegate_->capture()->display()->displayID, mainDisplay);
    EXPECT_EQ(settings_.displayID(), otherDisplay);
}

TEST_F(AppDelegateTest, AnotherDisplayInItsPlaceRestarts)
{
    launch();
    const Rect place = platform_.screens().list.front().frame;
    platform_.screens().remove(mainDisplay);
    platform_.screens().main = otherDisplay;
    platform_.screens().list.front().frame = place;
    platform_.screens().notify();
    queue().advance(500ms);
    EXPECT_TRUE(isRestarting());
}

TEST_F(AppDelegateTest, ChangedScaleRestarts)
{
    launch();
    platform_.screens().list.front().backingScaleFactor = 2;
    platform_.screens().notify();
    queue().advance(500ms);
    EXPECT_TRUE(isRestarting());
}

TEST_F(AppDelegateTest, ChangedFrameRestarts)
{
    launch();
    platform_.screens().list.front().frame.width = 1280;
    platform_.screens().notify();
    queue().advance(500ms);
    EXPECT_TRUE(isRestarting());
}

TEST_F(AppDelegateTest, CaptureStopsAtTheNewsOfAChangedDisplayAndStartsAfterTheCheck)
{
    platform_.virtualDisplays().createResult = fail(ErrorCode::unsupported, "no");
    launch();
    FakePanel& mirror = *platform_.panels().living.at(0);
    capture().stream().deliverPicture(800, 600);
    queue().runPosted();
    const std::shared_ptr<const Surface> last = pictureOn(mirror);
    ASSERT_TRUE(last);

    // The neighbour slides under the frame.
    platform_.screens().list.front().frame.width = 640;
    platform_.screens().notify();
    EXPECT_EQ(capture().stream().stops, 1) << "at once";
    EXPECT_FALSE(isRestarting());
    EXPECT_TRUE(delegate_->editor());
    capture().stream().deliverPicture(800, 600);
    queue().advance(499ms);
    EXPECT_EQ(pictureOn(mirror), last) << "what still comes is not shown";
    queue().advance(1ms);
    EXPECT_TRUE(isRestarting());
    EXPECT_EQ(capture().contentRequests, 1) << "the old stream has not stopped yet";
    capture().stream().completeStop();
    EXPECT_EQ(capture().contentRequests, 2);
    finishStart();
    EXPECT_EQ(streams(), 2U);
    EXPECT_TRUE(delegate_->editor());
}

TEST_F(AppDelegateTest, CaptureThatWasStoppedAtTheNewsStartsAgainThoughTheDisplayIsAsBefore)
{
    launch();
    const Screen before = platform_.screens().list.front();
    platform_.screens().list.front().frame.width = 640;
    platform_.screens().notify();
    ASSERT_EQ(capture().stream().stops, 1);
    capture().stream().completeStop();
    queue().advance(100ms);
    platform_.screens().list.front() = before;
    platform_.screens().notify();
    queue().advance(499ms);
    EXPECT_EQ(capture().contentRequests, 1) << "half a second after the last news";
    queue().advance(1ms);
    finishStart();
    EXPECT_EQ(streams(), 2U);
    EXPECT_TRUE(delegate_->editor());
    EXPECT_TRUE(delegate_->capture()->hasStream());
}

TEST_F(AppDelegateTest, NewsOfOtherDisplaysDoesNotStopTheCapture)
{
    launch();
    platform_.screens().list.back().frame.width = 640;
    platform_.screens().notify();
    platform_.screens().remove(otherDisplay);
    platform_.screens().notify();
    queue().advance(1s);
    EXPECT_EQ(capture().stream().stops, 0);
    EXPECT_EQ(streams(), 1U);
}

TEST_F(AppDelegateTest, ChangedMenuBarAloneDoesNotRestart)
{
    launch();
    RegionOverlayWindow& frame = delegate_->editor()->overlay();
    frame.setRegionFrame({300, 300, 800, 600});
    platform_.screens().list.front().visibleFrame = {0, 0, 1920, 1050};
    platform_.screens().notify();
    queue().advance(500ms);
    EXPECT_FALSE(isRestarting());
    EXPECT_EQ(capture().stream().stops, 0);
    EXPECT_EQ(frame.regionFrame(), (Rect{0, 479, 800, 600})) << "it is put back to where the capture is";
}

TEST_F(AppDelegateTest, ThreeNotificationsWithinHalfASecondCauseOneCheckHalfASecondAfterTheLast)
{
    launch();
    platform_.screens().remove(mainDisplay);
    platform_.screens().notify();
    queue().advance(200ms);
    platform_.screens().notify();
    queue().advance(200ms);
    platform_.screens().notify();
    queue().advance(499ms);
    EXPECT_FALSE(isRestarting());
    queue().advance(1ms);
    EXPECT_TRUE(isRestarting());

    capture().stream().completeStop();
    platform_.screens().main = otherDisplay;
    finishStart();
    queue().advance(2s);
    EXPECT_EQ(streams(), 2U);
    EXPECT_FALSE(isRestarting());
}

TEST_F(AppDelegateTest, SecondRestartDuringARestartIsIgnored)
{
    launch();
    platform_.screens().list.front().backingScaleFactor = 2;
    delegate_->checkCapturedDisplay();
    ASSERT_TRUE(isRestarting());
    delegate_->checkCapturedDisplay();
    settings_.setDisplayID(otherDisplay);
    settle();
    EXPECT_EQ(capture().stream().stops, 1);

    capture().stream().completeStop();
    EXPECT_EQ(capture().contentRequests, 2);
    finishStart();
    settle();
    EXPECT_EQ(streams(), 2U);
    EXPECT_EQ(delegate_->capture()->display()->displayID, otherDisplay) << "the restart reads the newest settings";
}

TEST_F(AppDelegateTest, AMoveThatAsksForARestartDuringOneIsIgnored)
{
    settings_.setDisplayID(otherDisplay);
    const Screen other = platform_.screens().list.back();
    platform_.screens().remove(otherDisplay);
    launch();
    platform_.screens().list.push_back(other);
    // It asks for a restart as soon as the queue gets to it, and until then another one begins.
    delegate_->editor()->onMoveToDisplay(otherDisplay, DisplayGeometry::of(other), {50, 51, 700, 500});
    platform_.screens().list.front().backingScaleFactor = 2;
    delegate_->checkCapturedDisplay();
    ASSERT_TRUE(isRestarting());
    queue().runPosted();
    EXPECT_TRUE(isRestarting()) << "the second one does not end the first";
    EXPECT_EQ(capture().contentRequests, 1) << "nothing starts before the old capture has stopped";

    capture().stream().completeStop();
    finishStart();
    settle();
    EXPECT_EQ(streams(), 2U);
    EXPECT_EQ(delegate_->capture()->display()->displayID, otherDisplay);
}

TEST_F(AppDelegateTest, ContentThatComesAfterARestartStartsOnlyTheNewCapture)
{
    delegate_->applicationWillFinishLaunching();
    const ScreenCapture::ContentCompletion late = capture().pendingContent.front();
    finishStart();
    const std::shared_ptr<RegionCapture> replaced = delegate_->capture();
    platform_.screens().list.front().backingScaleFactor = 2;
    delegate_->checkCapturedDisplay();
    capture().stream().completeStop();
    ASSERT_EQ(capture().pendingContent.size(), 1U);
    ASSERT_NE(delegate_->capture(), replaced);

    late(content());
    EXPECT_EQ(streams(), 1U) << "an answer to the replaced capture starts nothing, even while that one lives";
    EXPECT_FALSE(replaced->hasStream());
    finishStart();
    EXPECT_EQ(streams(), 2U);
    EXPECT_TRUE(delegate_->capture()->hasStream());
}

TEST_F(AppDelegateTest, ARestartTakesAwayAFrameWhoseEditorIsHeldAndHearsItNoMore)
{
    launch();
    const std::shared_ptr<RegionEditor> held = delegate_->editor();
    const FakePanel& frame = platform_.panels().last();
    ASSERT_EQ(frame.order, FakePanel::Order::front);
    platform_.screens().list.front().backingScaleFactor = 2;
    delegate_->checkCapturedDisplay();
    ASSERT_TRUE(isRestarting());
    EXPECT_EQ(frame.order, FakePanel::Order::out);
    const std::size_t sizes = platform_.virtualDisplays().device().appliedSettings.size();
    held->onRegionChangeEnded();
    EXPECT_EQ(platform_.virtualDisplays().device().appliedSettings.size(), sizes);
}

} // namespace
} // namespace nimbrale
