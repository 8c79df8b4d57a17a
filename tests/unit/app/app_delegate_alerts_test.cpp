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
    EXPECT_EQ(workspace().activations, 1);

    workspace().answerAlert(0);
    EXPECT_THAT(workspace().locations,
                ElementsAre("x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture"));
    EXPECT_EQ(workspace().terminations, 0);
    queue().advance(1s);
    EXPECT_EQ(workspace().alerts.size(), 1U) << "it stays running without a capture";
}

TEST_F(AppDelegateTest, PermissionAlertRestartsWhenTheLocationCannotBeOpened)
{
    capture().isPermitted = false;
    settings_.setHasRequestedScreenCaptureAccess(true);
    workspace().opensLocations = false;
    delegate_->applicationWillFinishLaunching();
    queue().advance(1s);
    capture().isPermitted = true;
    workspace().answerAlert(0);
    finishStart();
    EXPECT_TRUE(delegate_->editor());
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
    EXPECT_FALSE(delegate_->sharedScreen().isActive());

    workspace().answerAlert(0);
    ASSERT_TRUE(delegate_->isRestarting());
    capture().stream().completeStop();
    finishStart();
    EXPECT_TRUE(delegate_->editor());
    EXPECT_EQ(workspace().alerts.size(), 1U);
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
    EXPECT_FALSE(delegate_->isRestarting());
    EXPECT_EQ(capture().contentRequests, 1);
    EXPECT_EQ(capture().stream().stops, 0);
    EXPECT_THAT(capture().stream().configurationUpdates, IsEmpty());

    workspace().answerAlert(0);
    ASSERT_TRUE(delegate_->isRestarting());
    capture().stream().completeStop();
    finishStart();
    EXPECT_TRUE(delegate_->editor());
    EXPECT_EQ(delegate_->capture()->display()->displayID, otherDisplay) << "trying again looks at what there is now";
    EXPECT_EQ(delegate_->capture()->region().width, 500);

    platform_.screens().list.back().backingScaleFactor = 2;
    platform_.screens().notify();
    queue().advance(500ms);
    EXPECT_TRUE(delegate_->isRestarting()) << "with the alert answered, changes count again";
}

TEST_F(AppDelegateTest, CaptureAlertsAreNotStacked)
{
    delegate_->applicationWillFinishLaunching();
    for (std::size_t failures = 1; failures <= 3; ++failures) {
        finishStart(fail(ErrorCode::captureFailedToStart, "The server said no."));
        EXPECT_EQ(workspace().alerts.size(), failures);
        EXPECT_EQ(workspace().pendingAnswers.size(), 1U) << "one alert at a time";
        platform_.screens().list.front().frame.width -= 100;
        platform_.screens().notify();
        queue().advance(2s);
        EXPECT_EQ(capture().stream().stops, 0) << "a restart that fails too would show its alert over this one";

        workspace().answerAlert(0);
        capture().stream().completeStop();
    }
    finishStart();
    EXPECT_TRUE(delegate_->editor());
    EXPECT_THAT(workspace().pendingAnswers, IsEmpty());
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

} // namespace
} // namespace nimbrale
