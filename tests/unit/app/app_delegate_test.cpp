#include "tests/fakes/folder_events.h"
#include "tests/unit/app/app_delegate_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;

TEST_F(AppDelegateTest, LaunchBuildsTheWholeChain)
{
    delegate_->applicationWillFinishLaunching();
    EXPECT_EQ(capture().contentRequests, 1);
    EXPECT_FALSE(delegate_->editor());
    EXPECT_FALSE(delegate_->sharedScreen().isActive());

    finishStart();
    EXPECT_TRUE(delegate_->editor());
    EXPECT_TRUE(delegate_->sharedScreen().isActive());
    EXPECT_EQ(delegate_->capture()->region(), (Rect{0, 1, 800, 600}));
    EXPECT_THAT(workspace().alerts, IsEmpty());
    EXPECT_EQ(platform_.virtualDisplays().device().appliedSettings.at(0).modes.at(0),
              (VirtualDisplayMode{800, 600, 60}));
}

TEST_F(AppDelegateTest, WithoutVirtualDisplayTheMirrorWindowIsShown)
{
    platform_.virtualDisplays().createResult = fail(ErrorCode::unsupported, "no");
    launch();
    EXPECT_EQ(delegate_->sharedScreen().windowKind(), SharedScreen::WindowKind::mirror);
}

TEST_F(AppDelegateTest, FiveSettingsAssignedInOneGoRestartOnce100MillisecondsAfterTheLast)
{
    launch();
    settings_.setLeft(10);
    settings_.setTop(20);
    queue().advance(60ms);
    settings_.setWidth(300);
    settings_.setHeight(200);
    settings_.setDisplayID(otherDisplay);
    queue().advance(99ms);
    EXPECT_FALSE(isRestarting());
    EXPECT_EQ(capture().stream().stops, 0);

    queue().advance(1ms);
    EXPECT_TRUE(isRestarting());
    EXPECT_FALSE(delegate_->editor());
    EXPECT_FALSE(delegate_->sharedScreen().isActive());
    EXPECT_EQ(capture().stream().stops, 1);
    EXPECT_EQ(capture().contentRequests, 1) << "the next start waits for the stop";

    capture().stream().completeStop();
    EXPECT_FALSE(isRestarting());
    finishStart();
    settle();
    EXPECT_EQ(streams(), 2U);
    EXPECT_EQ(delegate_->capture()->display()->displayID, otherDisplay);
    EXPECT_EQ(delegate_->capture()->region(), (Rect{10, 21, 300, 200}));
    EXPECT_EQ(capture().stream().stops, 0);
}

TEST_F(AppDelegateTest, FrameRateAloneNeitherRestartsNorMovesTheFrame)
{
    launch();
    RegionOverlayWindow& frame = delegate_->editor()->overlay();
    // Not where the capture is, so that putting it there would be seen.
    const Rect elsewhere{300, 300, 800, 600};
    frame.setRegionFrame(elsewhere);
    const std::size_t sizes = platform_.virtualDisplays().device().appliedSettings.size();
    settings_.setFramerate(15);
    settle();
    EXPECT_FALSE(isRestarting());
    EXPECT_EQ(streams(), 1U);
    EXPECT_EQ(capture().stream().stops, 0);
    ASSERT_EQ(capture().stream().configurationUpdates.size(), 1U);
    EXPECT_EQ(capture().stream().configurationUpdates.front().minimumFrameInterval, (FrameInterval{1, 15}));
    EXPECT_EQ(frame.regionFrame(), elsewhere);
    EXPECT_EQ(platform_.virtualDisplays().device().appliedSettings.size(), sizes);
}

TEST_F(AppDelegateTest, NotificationSharingAloneDoesNotRestart)
{
    launch();
    settings_.setShareNotifications(false);
    settle();
    EXPECT_FALSE(isRestarting());
    EXPECT_EQ(capture().contentRequests, 2);
    answerContent();
    EXPECT_EQ(capture().stream().filterUpdates.size(), 1U);
    EXPECT_TRUE(capture().stream().configurationUpdates.empty());
}

TEST_F(AppDelegateTest, ChangedSizeMovesFrameAndSharedScreen)
{
    launch();
    settings_.setWidth(500);
    settings_.setLeft(40);
    settle();
    EXPECT_EQ(capture().stream().configurationUpdates.size(), 1U);
    EXPECT_EQ(delegate_->editor()->overlay().regionFrame(), (Rect{40, 479, 500, 600}));
    EXPECT_EQ(platform_.virtualDisplays().device().appliedSettings.back().modes.at(0),
              (VirtualDisplayMode{500, 600, 60}));
}

TEST_F(AppDelegateTest, CloseButtonQuits)
{
    launch();
    delegate_->editor()->onClose();
    EXPECT_EQ(workspace().terminations, 1);
}

TEST_F(AppDelegateTest, CloseButtonAsksFirstWhetherItMayQuit)
{
    launch();
    workspace().termination().onShouldTerminate = [] { return TerminateReply::later; };
    delegate_->editor()->onClose();
    delegate_->editor()->onClose();
    EXPECT_EQ(workspace().terminations, 0);
    EXPECT_TRUE(delegate_->editor()) << "everything goes on meanwhile";
    workspace().termination().reply(false);
    EXPECT_EQ(workspace().terminations, 0);
    EXPECT_FALSE(workspace().isTerminating());

    workspace().termination().onShouldTerminate = [] { return TerminateReply::now; };
    delegate_->editor()->onClose();
    EXPECT_EQ(workspace().terminations, 1);
}

TEST_F(AppDelegateTest, IsTheOneThatIsAskedWhetherTheApplicationMayQuit)
{
    EXPECT_FALSE(workspace().termination().onShouldTerminate);
    launch();
    ASSERT_TRUE(workspace().termination().onShouldTerminate);
    EXPECT_EQ(workspace().termination().onShouldTerminate(), delegate_->applicationShouldTerminate());
    EXPECT_EQ(delegate_->applicationShouldTerminate(), TerminateReply::now);
    delegate_.reset();
    EXPECT_EQ(workspace().termination().onShouldTerminate(), TerminateReply::now) << "nobody is left to ask";
}

TEST_F(AppDelegateTest, SettingsButtonOpensTheGeneralTabForTheClick)
{
    settings_.setSettingsTab(AppSettings::SettingsTab::recording);
    launch();
    platform_.panels().lastClick = 4711;
    delegate_->editor()->onOpenSettings();
    EXPECT_EQ(settings_.settingsTab(), AppSettings::SettingsTab::general);
    EXPECT_THAT(settingsWindowCauses_, ElementsAre(Optional(4711U)));
}

TEST_F(AppDelegateTest, OpenSettingsKeepsTheLastTab)
{
    settings_.setSettingsTab(AppSettings::SettingsTab::recording);
    platform_.panels().lastClick = 4711;
    delegate_->openSettings();
    delegate_->openSettings(12);
    EXPECT_EQ(settings_.settingsTab(), AppSettings::SettingsTab::recording);
    EXPECT_THAT(settingsWindowCauses_, ElementsAre(std::nullopt, Optional(12U))) << "an old click is not the cause";
}

TEST_F(AppDelegateTest, StartingTheApplicationAgainOpensSettingsAndNothingElse)
{
    launch();
    delegate_->applicationWasReopened(12);
    EXPECT_THAT(settingsWindowCauses_, ElementsAre(Optional(12U)));
    EXPECT_FALSE(isRestarting());
    EXPECT_EQ(capture().contentRequests, 1);
}

TEST_F(AppDelegateTest, EndOfADragStoresTheRegionAndResizesTheVirtualDisplay)
{
    launch();
    delegate_->capture()->setRegion({100, 101, 640, 480});
    delegate_->editor()->onRegionChange({100, 101, 640, 480});
    delegate_->editor()->onRegionChangeEnded();
    EXPECT_EQ(settings_.left(), 100);
    EXPECT_EQ(settings_.top(), 100);
    EXPECT_EQ(settings_.width(), 640);
    EXPECT_EQ(settings_.height(), 480);
    EXPECT_EQ(platform_.virtualDisplays().device().appliedSettings.back().modes.at(0),
              (VirtualDisplayMode{640, 480, 60}));
    settle();
    EXPECT_FALSE(isRestarting());
}

TEST_F(AppDelegateTest, EndOfADragResizesTheMirrorWindow)
{
    platform_.virtualDisplays().createResult = fail(ErrorCode::unsupported, "no");
    launch();
    FakePanel& mirror = *platform_.panels().living.at(0);
    ASSERT_EQ(mirror.options.style, PanelStyle::mirrorWindow);
    ASSERT_EQ(mirror.frame(), (Rect{0, 479, 800, 600}));
    delegate_->capture()->setRegion({100, 101, 640, 480});
    delegate_->editor()->onRegionChange({100, 101, 640, 480});
    delegate_->editor()->onRegionChangeEnded();
    EXPECT_EQ(mirror.frame(), (Rect{100, 499, 640, 480}));
    EXPECT_THAT(mirror.title, HasSubstr("640×480")) << "the size in the title follows the end of the drag";
}

TEST_F(AppDelegateTest, ChangedSizeResizesTheMirrorWindow)
{
    platform_.virtualDisplays().createResult = fail(ErrorCode::unsupported, "no");
    launch();
    FakePanel& mirror = *platform_.panels().living.at(0);
    ASSERT_EQ(mirror.options.style, PanelStyle::mirrorWindow);
    settings_.setWidth(500);
    settings_.setLeft(40);
    settle();
    EXPECT_EQ(mirror.frame(), (Rect{40, 479, 500, 600}));
    EXPECT_THAT(mirror.title, HasSubstr("500×600"));
}

TEST_F(AppDelegateTest, MoveToAnotherDisplayStoresAllFiveAndRestartsThere)
{
    platform_.screens().list.back().visibleFrame = {1920, 0, 1600, 860};
    settings_.setTop(5);
    launch();
    const Screen& other = platform_.screens().list.back();
    int assignments = 0;
    const Subscription counting = settings_.observeChanges([&assignments] { ++assignments; });
    FolderEvents events(directory_.path().toStdString());
    ASSERT_TRUE(events.isWatching());
    delegate_->editor()->onMoveToDisplay(otherDisplay, DisplayGeometry::of(other), {99.9, 140, 700, 500});
    EXPECT_EQ(events.take("Nimbrale.conf").replacements, 1) << "all five with one write";
    EXPECT_EQ(settings_.left(), 99);
    EXPECT_EQ(settings_.top(), 100) << "counted from below the other display's menu bar";
    EXPECT_EQ(settings_.width(), 700);
    EXPECT_EQ(settings_.height(), 500);
    EXPECT_EQ(settings_.displayID(), otherDisplay);
    EXPECT_EQ(assignments, 5);
    queue().runPosted();
    queue().advance(99ms);
    EXPECT_FALSE(isRestarting()) << "the settings' change restarts, not the move itself";
    queue().advance(1ms);
    ASSERT_TRUE(isRestarting());
    capture().stream().completeStop();
    finishStart();
    queue().advance(1s);
    EXPECT_EQ(streams(), 2U) << "once";
    EXPECT_EQ(delegate_->capture()->display()->displayID, otherDisplay);
    EXPECT_EQ(delegate_->capture()->region(), (Rect{99, 140, 700, 500}));
}

TEST_F(AppDelegateTest, MoveToTheStoredDisplayThatCameBackRestarts)
{
    settings_.setDisplayID(otherDisplay);
    const Screen other = platform_.screens().list.back();
    platform_.screens().remove(otherDisplay);
    launch();
    ASSERT_EQ(delegate_->capture()->display()->displayID, mainDisplay);
    platform_.screens().list.push_back(other);

    delegate_->editor()->onMoveToDisplay(otherDisplay, DisplayGeometry::of(other), {50, 51, 700, 500});
    EXPECT_TRUE(delegate_->editor()) << "it is still in its own call";
    queue().runPosted();
    ASSERT_TRUE(isRestarting());
    capture().stream().completeStop();
    finishStart();
    settle();
    EXPECT_EQ(delegate_->capture()->display()->displayID, otherDisplay);
    EXPECT_EQ(streams(), 2U);
}

TEST_F(AppDelegateTest, FramesReachTheSharedScreen)
{
    platform_.virtualDisplays().createResult = fail(ErrorCode::unsupported, "no");
    launch();
    Layer& root = platform_.panels().living.at(0)->rootLayer();
    capture().stream().deliverPicture(800, 600);
    queue().runPosted();
    ASSERT_FALSE(root.sublayersInOrder().empty());
    EXPECT_TRUE(root.sublayersInOrder().front()->contents());
}

TEST_F(AppDelegateTest, NothingHappensAfterItIsGone)
{
    launch();
    settings_.setDisplayID(otherDisplay);
    platform_.screens().notify();
    delegate_.reset();
    queue().advance(2s);
    EXPECT_EQ(capture().contentRequests, 1);
    EXPECT_FALSE(platform_.virtualDisplays().device().isAlive);
    EXPECT_FALSE(capture().stream().isAlive);
}

TEST_F(AppDelegateTest, TheFrameGoesWithItThoughTheEditorIsHeld)
{
    launch();
    const std::shared_ptr<RegionEditor> held = delegate_->editor();
    const FakePanel& frame = platform_.panels().last();
    ASSERT_EQ(frame.order, FakePanel::Order::front);
    delegate_.reset();
    EXPECT_EQ(frame.order, FakePanel::Order::out);
}

TEST_F(AppDelegateTest, SettingsBeforeTheCaptureHasStartedDoNothing)
{
    delegate_->applicationWillFinishLaunching();
    settings_.setDisplayID(otherDisplay);
    settle();
    EXPECT_FALSE(isRestarting());
    EXPECT_EQ(capture().contentRequests, 1);
    finishStart();
    EXPECT_EQ(delegate_->capture()->display()->displayID, otherDisplay);
}

} // namespace
} // namespace nimbrale
