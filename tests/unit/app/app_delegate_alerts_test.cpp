#include "app/capture_failure.h"
#include "share/virtual_display.h"
#include "tests/fakes/log_capture.h"
#include "tests/unit/app/app_delegate_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(AppDelegateTest, FirstLaunchWithoutPermissionShowsOnlyTheSystemsPrompt)
{
    capture().isPermitted = false;
    delegate_->applicationWillFinishLaunching();
    queue().advance(1s);
    EXPECT_EQ(capture().accessRequests, 1);
    EXPECT_EQ(capture().contentRequests, 0);
    EXPECT_TRUE(settings_.hasRequestedScreenCaptureAccess());
    EXPECT_THAT(workspace().alerts, IsEmpty());
    EXPECT_FALSE(delegate_->editor());
}

TEST_F(AppDelegateTest, NextLaunchWithoutPermissionShowsThePermissionAlert)
{
    capture().isPermitted = false;
    settings_.setHasRequestedScreenCaptureAccess(true);
    delegate_->applicationWillFinishLaunching();
    queue().advance(1s);
    EXPECT_EQ(capture().accessRequests, 0);
    EXPECT_THAT(workspace().alerts,
                ElementsAre(Alert{AlertStyle::warning,
                                  "Screen Recording permission needed",
                                  "Nimbrale needs permission to record your screen. Turn it on in System Settings → "
                                  "Privacy & Security → Screen & System Audio Recording, then quit and reopen the app.",
                                  {"Open System Settings", "Quit"}}));

    workspace().answerAlert(0);
    EXPECT_THAT(workspace().locations,
                ElementsAre("x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture"));
    EXPECT_EQ(workspace().terminations, 0);
    queue().advance(1s);
    EXPECT_EQ(workspace().alerts.size(), 1U) << "it stays running without a capture";
}

TEST_F(AppDelegateTest, PermissionAlertIsNotShownAgainWhereNothingOpensTheLocation)
{
    capture().isPermitted = false;
    settings_.setHasRequestedScreenCaptureAccess(true);
    workspace().opensLocations = false;
    const LogCapture log;
    delegate_->applicationWillFinishLaunching();
    queue().advance(1s);
    workspace().answerAlert(0);
    queue().advance(10s);
    EXPECT_EQ(workspace().alerts.size(), 1U);
    EXPECT_EQ(workspace().terminations, 0) << "it stays running";
    const LogCapture::Line nothingOpens{QtInfoMsg, "Nimbrale.capture",
                                        "Nothing on this desktop opens the settings for screen capture"};
    EXPECT_THAT(log.lines(), ElementsAre(nothingOpens));
    EXPECT_FALSE(delegate_->editor());
}

TEST_F(AppDelegateTest, StartingTheApplicationAgainTriesACaptureThatWasPermittedMeanwhile)
{
    capture().isPermitted = false;
    settings_.setHasRequestedScreenCaptureAccess(true);
    delegate_->applicationWillFinishLaunching();
    queue().advance(1s);
    delegate_->applicationWasReopened(std::nullopt);
    queue().advance(1s);
    EXPECT_EQ(workspace().alerts.size(), 1U) << "the open alert is the user's to answer";
    workspace().answerAlert(0);

    delegate_->applicationWasReopened(std::nullopt);
    queue().advance(1s);
    EXPECT_EQ(workspace().alerts.size(), 2U) << "still not permitted: there is a way to quit again";
    workspace().answerAlert(0);
    capture().isPermitted = true;
    delegate_->applicationWasReopened(std::nullopt);
    finishStart();
    EXPECT_TRUE(delegate_->editor());
    delegate_->applicationWasReopened(std::nullopt);
    EXPECT_FALSE(isRestarting());
}

TEST_F(AppDelegateTest, PermissionAlertQuits)
{
    capture().isPermitted = false;
    settings_.setHasRequestedScreenCaptureAccess(true);
    delegate_->applicationWillFinishLaunching();
    queue().advance(1s);
    workspace().answerAlert(1);
    EXPECT_EQ(workspace().terminations, 1);
    EXPECT_THAT(workspace().locations, IsEmpty());
}

TEST_F(AppDelegateTest, FailedCaptureShowsAnAlertAndTryAgainRestarts)
{
    delegate_->applicationWillFinishLaunching();
    finishStart(fail(ErrorCode::captureFailedToStart, "The server said no."));
    EXPECT_THAT(
        workspace().alerts,
        ElementsAre(
            Alert{AlertStyle::warning, "Screen capture couldn't start", "The server said no.", {"Try Again", "Quit"}}));
    EXPECT_FALSE(delegate_->editor());
    EXPECT_TRUE(platform_.panels().created.empty()) << "neither a frame nor a shared screen";
    queue().advance(5s);
    EXPECT_EQ(streams(), 1U) << "nothing is tried before the answer";

    workspace().answerAlert(0);
    ASSERT_TRUE(isRestarting());
    EXPECT_EQ(capture().contentRequests, 1) << "the old stream has to stop first";
    capture().stream().completeStop();
    finishStart();
    EXPECT_TRUE(delegate_->editor());
    EXPECT_EQ(streams(), 2U);
    EXPECT_EQ(workspace().alerts.size(), 1U);
    EXPECT_THAT(workspace().locations, IsEmpty());
    EXPECT_EQ(workspace().terminations, 0);
}

TEST_F(AppDelegateTest, ChangesBehindAnOpenCaptureAlertRestartNothing)
{
    delegate_->applicationWillFinishLaunching();
    finishStart(fail(ErrorCode::captureFailedToStart, "The server said no."));
    ASSERT_TRUE(delegate_->capture()->geometry());

    platform_.screens().list.front().backingScaleFactor = 2;
    platform_.screens().notify();
    settings_.setDisplayID(otherDisplay);
    settings_.setWidth(500);
    queue().advance(2s);
    EXPECT_FALSE(isRestarting());
    EXPECT_EQ(capture().contentRequests, 1);
    EXPECT_EQ(capture().stream().stops, 0);
    EXPECT_THAT(capture().stream().configurationUpdates, IsEmpty());

    workspace().answerAlert(0);
    ASSERT_TRUE(isRestarting());
    capture().stream().completeStop();
    finishStart();
    EXPECT_TRUE(delegate_->editor());
    EXPECT_EQ(delegate_->capture()->display()->displayID, otherDisplay) << "trying again looks at what there is now";
    EXPECT_EQ(delegate_->capture()->region().width, 500);

    platform_.screens().list.back().backingScaleFactor = 2;
    platform_.screens().notify();
    queue().advance(500ms);
    EXPECT_TRUE(isRestarting()) << "with the alert answered, changes count again";
}

TEST_F(AppDelegateTest, CaptureAlertsAreNotStacked)
{
    delegate_->applicationWillFinishLaunching();
    for (std::size_t failures = 1; failures <= 3; ++failures) {
        finishStart(fail(ErrorCode::captureFailedToStart, "The server said no."));
        EXPECT_EQ(workspace().alerts.size(), failures);
        EXPECT_EQ(workspace().openAlerts.size(), 1U) << "one alert at a time";
        platform_.screens().list.front().frame.width -= 100;
        platform_.screens().notify();
        queue().advance(2s);
        EXPECT_EQ(capture().stream().stops, 0) << "a restart that fails too would show its alert over this one";

        workspace().answerAlert(0);
        capture().stream().completeStop();
    }
    finishStart();
    EXPECT_TRUE(delegate_->editor());
    EXPECT_THAT(workspace().openAlerts, IsEmpty());
}

TEST_F(AppDelegateTest, FailedQuestionForContentShowsAnAlertAndQuitEnds)
{
    delegate_->applicationWillFinishLaunching();
    capture().answerContent(fail(ErrorCode::captureNoDisplayList, "No displays."));
    ASSERT_EQ(workspace().alerts.size(), 1U);
    EXPECT_EQ(workspace().alerts.front().informativeText, "No displays.");
    workspace().answerAlert(1);
    EXPECT_EQ(workspace().terminations, 1);
    EXPECT_EQ(streams(), 0U);
}

TEST(CaptureFailureTest, AnAnswerClosesItsQuestion)
{
    FakePlatform platform;
    platform.screens().list = {makeScreen(mainDisplay, {0, 0, 1920, 1080})};
    platform.workspace().termination().onShouldTerminate = [] { return TerminateReply::cancel; };
    for (const ErrorCode code : {ErrorCode::captureDeclined, ErrorCode::captureFailedToStart}) {
        for (const int button : {0, 1}) {
            CaptureFailure failure(platform);
            EXPECT_FALSE(failure.isOpen());
            failure.tell({code, "The server said no."});
            EXPECT_TRUE(failure.isOpen());
            platform.workspace().answerAlert(button);
            EXPECT_FALSE(failure.isOpen()) << button;
        }
    }
}

TEST_F(AppDelegateTest, LimitationsAreToldOncePerRun)
{
    capture().limits = {"The pointer is missing.", "Menus are shared."};
    launch();
    ASSERT_EQ(workspace().alerts.size(), 1U);
    EXPECT_EQ(workspace().alerts.front().style, AlertStyle::informational);
    EXPECT_EQ(workspace().alerts.front().informativeText, "The pointer is missing.\nMenus are shared.");
    workspace().answerAlert(0);

    platform_.screens().list.front().backingScaleFactor = 2;
    delegate_->checkCapturedDisplay();
    capture().stream().completeStop();
    finishStart();
    EXPECT_TRUE(delegate_->editor());
    EXPECT_EQ(workspace().alerts.size(), 1U);
}

TEST_F(AppDelegateTest, NotificationsThatCannotBeLeftOutAreToldWhereThatIsWanted)
{
    capture().limitsWithoutNotifications = {"Banners are shared."};
    settings_.setShareNotifications(false);
    launch();
    ASSERT_EQ(workspace().alerts.size(), 1U);
    EXPECT_EQ(workspace().alerts.front().informativeText, "Banners are shared.");
}

TEST_F(AppDelegateTest, NotificationsThatCannotBeLeftOutAreToldOnceWhenThatIsChosenLater)
{
    capture().limitsWithoutNotifications = {"Banners are shared."};
    launch();
    EXPECT_THAT(workspace().alerts, IsEmpty());
    for (int round = 0; round < 2; ++round) {
        settings_.setShareNotifications(false);
        settle();
        EXPECT_EQ(workspace().alerts.size(), 1U);
        settings_.setShareNotifications(true);
        settle();
    }
}

TEST_F(AppDelegateTest, WithoutAVirtualDisplayTheWindowToShareIsToldOncePerRun)
{
    platform_.virtualDisplays().createResult = fail(ErrorCode::unsupported, "There is none.");
    settings_.setWidth(500);
    settings_.setHeight(400);
    launch();
    ASSERT_EQ(workspace().notifications.size(), 1U);
    EXPECT_THAT(workspace().notifications.front().text, testing::HasSubstr("“🎯 Share this · Screen area 500×400”"));
    EXPECT_THAT(workspace().alerts, IsEmpty());

    platform_.screens().list.front().backingScaleFactor = 2;
    delegate_->checkCapturedDisplay();
    capture().stream().completeStop();
    finishStart();
    EXPECT_EQ(workspace().notifications.size(), 1U);
}

TEST_F(AppDelegateTest, TheWindowToShareIsToldWhenTheVirtualDisplayIsLost)
{
    launch();
    EXPECT_THAT(workspace().notifications, IsEmpty());
    platform_.virtualDisplays().device().becomeUnusable({ErrorCode::unsupported, "It was taken away."});
    queue().advance(1s);
    EXPECT_EQ(workspace().notifications.size(), 1U);
}

TEST_F(AppDelegateTest, AWindowThatWasReturnedFromTheVirtualDisplayIsTold)
{
    launch();
    platform_.virtualDisplays().device().handle->onWindowReturned();
    queue().advance(1s);
    EXPECT_EQ(workspace().notifications.size(), 1U);
}

TEST_F(AppDelegateTest, AlertsAreKeptOffTheSharedDisplay)
{
    delegate_->applicationWillFinishLaunching();
    EXPECT_EQ(workspace().displayWithoutAlerts, VirtualDisplay::name());
}

TEST_F(AppDelegateTest, WithoutAnyDisplayOfTheUsersTheNextOneIsWaitedFor)
{
    launch();
    const std::vector<Screen> displays = platform_.screens().list;
    // What is left is the display that others see.
    platform_.screens().list = {makeScreen(platform_.virtualDisplays().device().displayID, {1920, 0, 800, 600})};
    platform_.screens().notify();
    queue().advance(500ms);
    capture().stream().completeStop();
    answerContent();
    EXPECT_THAT(workspace().alerts, IsEmpty()) << "nobody could read it";
    queue().advance(10s);
    EXPECT_EQ(workspace().terminations, 0);

    platform_.screens().list.insert(platform_.screens().list.begin(), displays.front());
    platform_.screens().notify();
    queue().advance(499ms);
    EXPECT_TRUE(capture().pendingContent.empty());
    queue().advance(1ms);
    finishStart();
    EXPECT_TRUE(delegate_->editor());
    EXPECT_THAT(workspace().alerts, IsEmpty());
}

TEST_F(AppDelegateTest, ADisplayThatComesAnswersTheCaptureAlert)
{
    const Screen other = platform_.screens().list.back();
    platform_.screens().remove(otherDisplay);
    delegate_->applicationWillFinishLaunching();
    finishStart(fail(ErrorCode::captureFailedToStart, "The server said no."));
    ASSERT_EQ(workspace().openAlerts.size(), 1U);

    platform_.screens().list.push_back(other);
    platform_.screens().notify();
    queue().advance(499ms);
    EXPECT_EQ(workspace().openAlerts.size(), 1U);
    queue().advance(1ms);
    EXPECT_THAT(workspace().openAlerts, IsEmpty()) << "it closes by itself";
    capture().stream().completeStop();
    finishStart();
    EXPECT_TRUE(delegate_->editor());
    EXPECT_EQ(workspace().alerts.size(), 1U);
}

TEST_F(AppDelegateTest, ADisplayThatWentAndCameBackAnswersTheCaptureAlert)
{
    delegate_->applicationWillFinishLaunching();
    finishStart(fail(ErrorCode::captureFailedToStart, "The server said no."));
    const Screen other = platform_.screens().list.back();
    platform_.screens().remove(otherDisplay);
    platform_.screens().notify();
    queue().advance(2s);
    EXPECT_EQ(workspace().openAlerts.size(), 1U) << "a display that goes is no answer";
    platform_.screens().list.push_back(other);
    platform_.screens().notify();
    queue().advance(500ms);
    EXPECT_THAT(workspace().openAlerts, IsEmpty());
    EXPECT_TRUE(isRestarting());
}

} // namespace
} // namespace nimbrale
