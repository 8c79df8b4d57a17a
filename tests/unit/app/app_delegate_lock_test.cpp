// The session's lock: nothing is captured while it holds, a card stands for the picture, and all goes on afterwards.

#include "tests/unit/app/app_delegate_fixture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <memory>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::SizeIs;

class AppDelegateLockTest : public AppDelegateTest {
protected:
    void setLocked(bool isLocked) { platform_.sessionLock().report("locker", isLocked); }
    /// What the virtual display is shared by, in its place.
    void launchWithMirror()
    {
        platform_.virtualDisplays().createResult = fail(ErrorCode::unsupported, "no");
        launch();
    }
    [[nodiscard]] FakePanel& mirror() { return *platform_.panels().living.at(0); }
    void showPicture()
    {
        capture().stream().deliverPicture(800, 600);
        queue().runPosted();
    }
    /// The card lies over all else that the panel shows.
    [[nodiscard]] static bool showsCard(FakePanel& panel)
    {
        panel.rootLayer().layoutIfNeeded();
        const std::vector<Layer*> layers = panel.rootLayer().sublayersInOrder();
        const Layer& front = *layers.at(layers.size() - 1);
        return front.painter() && front.frame() == panel.rootLayer().bounds() &&
               front.backgroundColor() == Color{0, 0, 0, 1};
    }
};

TEST_F(AppDelegateLockTest, TheLockStopsTheCaptureAndShowsTheCardAtOnce)
{
    launchWithMirror();
    showPicture();
    ASSERT_TRUE(pictureOn(mirror()));
    ASSERT_FALSE(showsCard(mirror()));
    setLocked(true);
    EXPECT_EQ(capture().stream().stops, 1);
    EXPECT_EQ(pictureOn(mirror()), nullptr);
    EXPECT_TRUE(showsCard(mirror()));
}

TEST_F(AppDelegateLockTest, APictureThatIsOnItsWayWhenTheLockComesIsNotShown)
{
    launchWithMirror();
    capture().stream().deliverPicture(800, 600);
    setLocked(true);
    queue().advance(1s);
    EXPECT_EQ(pictureOn(mirror()), nullptr);
    EXPECT_TRUE(showsCard(mirror()));
}

TEST_F(AppDelegateLockTest, UnlockingStartsANewCaptureAndTheCardStaysUntilItsFirstPicture)
{
    launchWithMirror();
    FakePanel* const shared = &mirror();
    showPicture();
    setLocked(true);
    capture().stream().completeStop();
    queue().advance(10s);
    EXPECT_EQ(streams(), 1U);

    setLocked(false);
    EXPECT_TRUE(showsCard(mirror()));
    finishStart();
    EXPECT_EQ(streams(), 2U);
    EXPECT_TRUE(delegate_->editor());
    EXPECT_TRUE(showsCard(mirror())) << "a picture of before is out of date";
    EXPECT_EQ(pictureOn(mirror()), nullptr);
    showPicture();
    EXPECT_FALSE(showsCard(mirror()));
    EXPECT_TRUE(pictureOn(mirror()));
    EXPECT_EQ(&mirror(), shared) << "who shares the window goes on doing so";
}

TEST_F(AppDelegateLockTest, UnlockingWhileTheCaptureStillStopsStartsOneAfterwards)
{
    launch();
    setLocked(true);
    setLocked(false);
    EXPECT_EQ(capture().contentRequests, 1);
    capture().stream().completeStop();
    finishStart();
    EXPECT_EQ(streams(), 2U);
    EXPECT_TRUE(delegate_->capture()->hasStream());
}

TEST_F(AppDelegateLockTest, NothingStartsWhileTheCaptureStillStopsHoweverOftenTheSessionIsUnlocked)
{
    launch();
    const Screen other = platform_.screens().list.back();
    // The other display is the one in the settings already, so that the frame's move asks for a restart by itself.
    settings_.setDisplayID(otherDisplay);
    settle();
    capture().stream().completeStop();
    finishStart();
    setLocked(true);
    delegate_->editor()->onMoveToDisplay(otherDisplay, DisplayGeometry::of(other), {50, 51, 700, 500});
    setLocked(false);
    ASSERT_TRUE(isRestarting());
    setLocked(true);
    queue().runPosted();
    setLocked(false);
    EXPECT_EQ(capture().contentRequests, 2) << "the capture before has not stopped yet";
    capture().stream().completeStop();
    finishStart();
    EXPECT_EQ(streams(), 3U);
    EXPECT_TRUE(delegate_->editor());
}

TEST_F(AppDelegateLockTest, AnotherLockBeforeTheNewCaptureHasStartedKeepsTheCard)
{
    launchWithMirror();
    showPicture();
    setLocked(true);
    capture().stream().completeStop();
    setLocked(false);
    answerContent();
    setLocked(true);
    EXPECT_EQ(capture().stream().stops, 1) << "of the second stream";
    capture().stream().completeStop();
    queue().advance(10s);
    EXPECT_EQ(streams(), 2U);
    EXPECT_TRUE(showsCard(mirror()));
    setLocked(false);
    finishStart();
    showPicture();
    EXPECT_FALSE(showsCard(mirror()));
}

TEST_F(AppDelegateLockTest, InALockedSessionTheCaptureStartsWhenThatIsUnlocked)
{
    setLocked(true);
    delegate_->applicationWillFinishLaunching();
    queue().advance(10s);
    EXPECT_EQ(capture().contentRequests, 0);
    setLocked(false);
    finishStart();
    EXPECT_TRUE(delegate_->editor());
}

TEST_F(AppDelegateLockTest, ALockThatComesWhileTheCaptureIsPreparedKeepsItFromStarting)
{
    delegate_->applicationWillFinishLaunching();
    setLocked(true);
    answerContent();
    EXPECT_EQ(streams(), 0U);
    setLocked(false);
    finishStart();
    EXPECT_EQ(streams(), 1U);
    EXPECT_TRUE(delegate_->editor());
}

TEST_F(AppDelegateLockTest, ALockThatComesDuringARestartHoldsItBack)
{
    launch();
    settings_.setDisplayID(otherDisplay);
    settle();
    ASSERT_TRUE(isRestarting());
    setLocked(true);
    capture().stream().completeStop();
    EXPECT_EQ(capture().contentRequests, 1);
    setLocked(false);
    finishStart();
    EXPECT_EQ(delegate_->capture()->display()->displayID, otherDisplay);
}

TEST_F(AppDelegateLockTest, DisplaysThatChangeWhileLockedStartNothingBeforeTheEnd)
{
    launch();
    setLocked(true);
    capture().stream().completeStop();
    platform_.screens().list.front().frame.width = 1280;
    platform_.screens().notify();
    queue().advance(10s);
    EXPECT_EQ(capture().contentRequests, 1);
    setLocked(false);
    finishStart();
    EXPECT_EQ(delegate_->capture()->geometry()->screenFrame.width, 1280);
}

TEST_F(AppDelegateLockTest, ADragUnderWayEndsWhileLockedAndItsRegionIsShared)
{
    launchWithMirror();
    delegate_->capture()->setRegion({100, 101, 640, 480});
    delegate_->editor()->onRegionChange({100, 101, 640, 480});
    setLocked(true);
    capture().stream().completeStop();
    delegate_->capture()->setRegion({200, 201, 500, 400});
    delegate_->editor()->onRegionChange({200, 201, 500, 400});
    EXPECT_TRUE(showsCard(mirror()));
    delegate_->editor()->onRegionChangeEnded();
    EXPECT_TRUE(showsCard(mirror()));
    setLocked(false);
    finishStart();
    EXPECT_EQ(capture().stream().configuration.sourceRect, (Rect{200, 201, 500, 400}));
    EXPECT_EQ(mirror().frame().size(), (Size{500, 400}));
}

TEST_F(AppDelegateLockTest, ACaptureThatFailsAfterwardsTakesTheCardAway)
{
    launchWithMirror();
    setLocked(true);
    capture().stream().completeStop();
    setLocked(false);
    answerContent();
    capture().stream().completeStart(fail(ErrorCode::permanent, "no"));
    EXPECT_THAT(platform_.panels().living, SizeIs(0)) << "the session is not locked any more";
    EXPECT_THAT(workspace().openAlerts, SizeIs(1));
}

TEST_F(AppDelegateLockTest, BehindAQuestionAboutAFailedCaptureNothingStarts)
{
    delegate_->applicationWillFinishLaunching();
    answerContent();
    capture().stream().completeStart(fail(ErrorCode::permanent, "no"));
    ASSERT_THAT(workspace().openAlerts, SizeIs(1));
    const int streamsBefore = static_cast<int>(streams());
    setLocked(true);
    setLocked(false);
    queue().advance(1s);
    EXPECT_EQ(capture().contentRequests, 1);
    EXPECT_EQ(static_cast<int>(streams()), streamsBefore);
}

} // namespace
} // namespace nimbrale
