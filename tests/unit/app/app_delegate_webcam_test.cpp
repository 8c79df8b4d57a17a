// When the webcam is in the frame, and that it follows the frame.

#include "tests/fakes/offscreen_application.h"
#include "tests/unit/app/app_delegate_fixture.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace nimbrale {
namespace {

class AppDelegateWebcamTest : public AppDelegateTest {
protected:
    AppDelegateWebcamTest()
    {
        startOffscreenApplication();
        platform_.cameras().list = {{"front", "Front camera"}};
        // The shared picture is in a window then, which is there at once.
        platform_.virtualDisplays().createResult = fail(ErrorCode::unsupported, "no");
    }

    void grantAccess()
    {
        while (!platform_.cameras().questions.empty())
            platform_.cameras().answerAccess(true);
    }
    void launchWithWebcam()
    {
        settings_.setWebcamEnabled(true);
        launch();
        grantAccess();
        ASSERT_TRUE(delegate_->webcam()->isShown());
    }
    [[nodiscard]] FakePanel& panelTitled(const std::string& title)
    {
        const auto& living = platform_.panels().living;
        const auto found =
            std::ranges::find_if(living, [&](const FakePanel* panel) { return panel->options.title == title; });
        if (found == living.end())
            throw std::runtime_error("no panel " + title);
        return **found;
    }
    /// Whether the shared picture has the webcam in it.
    [[nodiscard]] bool isShared()
    {
        const auto& living = platform_.panels().living;
        const auto shared = std::ranges::find_if(
            living, [](const FakePanel* panel) { return panel->options.style == PanelStyle::mirrorWindow; });
        if (shared == living.end())
            throw std::runtime_error("nothing is shared");
        return (*shared)->rootLayer().sublayersInOrder().size() == 2;
    }
};

TEST_F(AppDelegateWebcamTest, OffItIsNowhereAndNoCameraIsUsed)
{
    launch();
    settle();
    EXPECT_FALSE(delegate_->webcam()->isShown());
    EXPECT_FALSE(isShared());
    EXPECT_TRUE(platform_.cameras().questions.empty());
}

TEST_F(AppDelegateWebcamTest, EnabledItIsInTheFrameAndInTheShare)
{
    launchWithWebcam();
    EXPECT_TRUE(isShared());
    EXPECT_EQ(platform_.cameras().openCount(), 1U);
}

TEST_F(AppDelegateWebcamTest, IsTurnedOnAndOffWithoutTouchingTheCapture)
{
    launch();
    const std::size_t streamsBefore = streams();
    settings_.setWebcamEnabled(true);
    EXPECT_FALSE(delegate_->webcam()->isShown()) << "settings are followed a moment later";
    settle();
    grantAccess();
    EXPECT_TRUE(delegate_->webcam()->isShown());
    EXPECT_TRUE(isShared());
    settings_.setWebcamEnabled(false);
    settle();
    EXPECT_FALSE(delegate_->webcam()->isShown());
    EXPECT_FALSE(isShared());
    EXPECT_EQ(platform_.cameras().openCount(), 0U);
    EXPECT_EQ(streams(), streamsBefore);
    EXPECT_FALSE(isRestarting());
}

TEST_F(AppDelegateWebcamTest, ItsCloseButtonTurnsItOff)
{
    launchWithWebcam();
    FakePanel& panel = panelTitled("Nimbrale webcam");
    const Rect close = WebcamControlsLayout(panel.frame().size()).rect(WebcamControl::close);
    const Point place{panel.frame().x + close.midX(), panel.frame().y + close.midY()};
    panel.press(place);
    panel.release(place);
    settle();
    EXPECT_FALSE(settings_.webcamEnabled());
    EXPECT_FALSE(delegate_->webcam()->isShown());
}

TEST_F(AppDelegateWebcamTest, ItsSettingsButtonOpensItsTab)
{
    launchWithWebcam();
    FakePanel& panel = panelTitled("Nimbrale webcam");
    const Rect button = WebcamControlsLayout(panel.frame().size()).rect(WebcamControl::settings);
    const Point place{panel.frame().x + button.midX(), panel.frame().y + button.midY()};
    panel.press(place);
    panel.release(place);
    EXPECT_EQ(settings_.settingsTab(), AppSettings::SettingsTab::webcam);
    EXPECT_EQ(settingsWindowCauses_.size(), 1U);
}

TEST_F(AppDelegateWebcamTest, FollowsTheFrameWhileItIsDragged)
{
    launchWithWebcam();
    FakePanel& frame = panelTitled("Nimbrale");
    const Rect before = panelTitled("Nimbrale webcam").frame();
    const RegionOverlayLayout& layout = delegate_->editor()->overlay().view().layout();
    const Point handle{frame.frame().x + layout.handle().midX(), frame.frame().y + layout.handle().midY()};
    settings_.setSnappingEnabled(false);
    frame.press(handle);
    platform_.screens().mouse = {handle.x + 100, handle.y - 50};
    frame.dragTo(platform_.screens().mouse);
    EXPECT_EQ(panelTitled("Nimbrale webcam").frame(), before.movedBy(100, -50));
    frame.release(platform_.screens().mouse);
}

TEST_F(AppDelegateWebcamTest, FollowsARegionTypedInSettings)
{
    launchWithWebcam();
    const Rect before = panelTitled("Nimbrale webcam").frame();
    settings_.setLeft(120);
    settle();
    EXPECT_EQ(panelTitled("Nimbrale webcam").frame(), before.movedBy(120, 0));
}

TEST_F(AppDelegateWebcamTest, ARestartOfTheChainBringsItBack)
{
    launchWithWebcam();
    settings_.setDisplayID(otherDisplay);
    settle();
    EXPECT_FALSE(delegate_->webcam());
    EXPECT_EQ(platform_.cameras().openCount(), 0U);
    capture().stream().completeStop();
    finishStart();
    grantAccess();
    ASSERT_TRUE(delegate_->webcam()->isShown());
    EXPECT_GE(panelTitled("Nimbrale webcam").frame().x, 1920) << "on the other display";
    EXPECT_EQ(platform_.cameras().openCount(), 1U);
}

TEST_F(AppDelegateWebcamTest, WhileTheSessionIsLockedTheCameraIsOff)
{
    launchWithWebcam();
    platform_.sessionLock().report("test", true);
    EXPECT_EQ(platform_.cameras().openCount(), 0U);
    EXPECT_FALSE(delegate_->webcam()->isShown());
    settings_.setWebcamMirrored(false);
    settle();
    EXPECT_EQ(platform_.cameras().openCount(), 0U) << "settings that change meanwhile";
}

TEST_F(AppDelegateWebcamTest, UnlockingBringsItBack)
{
    launchWithWebcam();
    platform_.sessionLock().report("test", true);
    capture().stream().completeStop();
    platform_.sessionLock().report("test", false);
    finishStart();
    grantAccess();
    EXPECT_TRUE(delegate_->webcam()->isShown());
    EXPECT_EQ(platform_.cameras().openCount(), 1U);
}

TEST_F(AppDelegateWebcamTest, UnlockingBringsItBackAlsoWhereTheDisplaysHadStoppedTheCaptureBefore)
{
    launchWithWebcam();
    platform_.screens().list.front().frame.width = 1280;
    platform_.screens().notify();
    capture().stream().completeStop();
    ASSERT_FALSE(delegate_->capture()->hasStream());
    platform_.sessionLock().report("test", true);
    ASSERT_FALSE(delegate_->webcam()->isShown());
    platform_.sessionLock().report("test", false);
    grantAccess();
    EXPECT_TRUE(delegate_->webcam()->isShown());
    EXPECT_EQ(platform_.cameras().openCount(), 1U);
}

} // namespace
} // namespace nimbrale
