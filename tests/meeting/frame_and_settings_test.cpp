// The real application under the pointer and the keyboard, without a call: the frame, the Settings window, the end.

#include "tests/meeting/framed_desktop.h"
#include "tests/support/image_compare.h"
#include "tests/support/scene.h"
#include "tests/support/session_manager.h"

#include <array>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::test {

namespace {

constexpr std::uint32_t upKey = 0xff52;

class FrameAndSettings : public FramedDesktop, public testing::Test {
protected:
    void SetUp() override
    {
        start(PrivateDesktop::WindowManager::openbox);
        ASSERT_TRUE(showsFrameAround(region));
    }

    /// The border just left of the region and just right of it, half way down.
    [[nodiscard]] bool showsFrameAround(const QRect& area) const
    {
        const int middle = area.y() + area.height() / 2;
        return desktop_->waitForPixel(area.x() - 2, middle, frameYellow, Milliseconds{3000}) &&
               desktop_->waitForPixel(area.x() + area.width() + 2, middle, frameYellow, Milliseconds{3000});
    }

    [[nodiscard]] bool isLeftClean() const
    {
        return !desktop_->monitorNamed("Nimbrale") && desktop_->screenSize() == QSize(1600, 900);
    }

    void warpPointer(QPoint place)
    {
        xcb_warp_pointer(desktop_->connection(), XCB_NONE, desktop_->screen().root, 0, 0, 0, 0,
                         static_cast<std::int16_t>(place.x()), static_cast<std::int16_t>(place.y()));
        desktop_->synchronize();
    }
};

TEST_F(FrameAndSettings, ThePointerThatAProgramSetsOnTheHandleIsNoticed)
{
    const QPoint border(region.x() - 2, region.y() + 100);
    ASSERT_EQ(desktop_->pixel(border.x(), border.y()).rgb(), frameYellow.rgb());
    // Long enough for the frame to take the pointer as resting.
    sleepFor(Milliseconds{500});
    warpPointer(Application::handleOf(region));
    EXPECT_TRUE(waitUntil([&] { return desktop_->pixel(border.x(), border.y()).rgb() != frameYellow.rgb(); },
                          Milliseconds{1000}));
    sleepFor(Milliseconds{500});
    warpPointer({1500, 850});
    EXPECT_TRUE(desktop_->waitForPixel(border.x(), border.y(), frameYellow, Milliseconds{1000}));
}

TEST_F(FrameAndSettings, AWidthTypedInSettingsMovesTheFrameAndTheDisplay)
{
    desktop_->click(Application::settingsButtonOf(region));
    ASSERT_TRUE(waitUntil([&] { return desktop_->windowTitled("Settings").has_value(); }, Milliseconds{3000}));
    // The window manager gives the focus when it has placed the window.
    sleepFor(Milliseconds{300});
    typeWidth("620");
    const QRect wider(region.topLeft(), QSize(620, region.height()));
    EXPECT_TRUE(application_->waitForVirtualDisplay(wider.size())) << keepImage(desktop_->screenshot(), "desktop");
    // The window may lie over the frame's right edge; its upper one is longer than before.
    EXPECT_TRUE(desktop_->waitForPixel(wider.right() - 40, wider.top() - 2, frameYellow, Milliseconds{3000}))
        << keepImage(desktop_->screenshot(), "desktop");
    EXPECT_EQ(application_->storedRegion(), wider);
}

TEST_F(FrameAndSettings, UpInSettingsStepsTheFrameAndTheDisplay)
{
    desktop_->click(Application::settingsButtonOf(region));
    ASSERT_TRUE(waitUntil([&] { return desktop_->windowTitled("Nimbrale Settings").has_value(); }, Milliseconds{3000}));
    // The window manager gives the focus when it has placed the window.
    sleepFor(Milliseconds{300});
    goToField("h");
    QRect higher = region;
    for (int step = 0; step < 3; ++step) {
        // The next press waits, since those of one moment count as one key held down.
        higher.setHeight(higher.height() + 1);
        strike(upKey);
        ASSERT_TRUE(waitUntil([&] { return application_->storedRegion() == higher; }, Milliseconds{3000}))
            << keepImage(desktop_->screenshot(), "desktop");
    }
    EXPECT_TRUE(application_->waitForVirtualDisplay(higher.size())) << keepImage(desktop_->screenshot(), "desktop");
}

TEST_F(FrameAndSettings, SettingsIsInFrontOfTheFrameWhileItIsKeyAndBehindItOtherwise)
{
    const auto scene = requireScene(*desktop_);
    scene->add("editor", {.geometry = {1100, 600, 300, 200}, .seed = 5, .overrideRedirect = false});
    desktop_->click(Application::settingsButtonOf(region));
    ASSERT_TRUE(waitUntil([&] { return desktop_->windowTitled("Settings").has_value(); }, Milliseconds{3000}));
    // By its title bar, over the frame's left border.
    const QRect opened = *desktop_->windowTitled("Settings");
    const QPoint titleBar(opened.center().x(), opened.y() - 8);
    const QPoint target(region.x() + 40, region.y() + 120);
    desktop_->drag(titleBar, titleBar + target - opened.center());
    QRect settings;
    const QPoint border(region.x() - 2, region.y() + 120);
    ASSERT_TRUE(waitUntil(
        [&] {
            settings = desktop_->windowTitled("Settings").value_or(QRect());
            return settings.contains(border);
        },
        Milliseconds{3000}))
        << keepImage(desktop_->screenshot(), "desktop");
    const auto isFrameInFront = [&] { return desktop_->pixel(border.x(), border.y()) == frameYellow; };
    EXPECT_TRUE(waitUntil([&] { return !isFrameInFront(); }, Milliseconds{3000}))
        << keepImage(desktop_->screenshot(), "desktop");

    desktop_->click({1250, 700});
    ASSERT_TRUE(waitUntil([&] { return scene->focused() == "editor"; }, Milliseconds{3000}));
    EXPECT_TRUE(waitUntil(isFrameInFront, Milliseconds{3000})) << keepImage(desktop_->screenshot(), "desktop");

    desktop_->click({settings.center().x(), settings.y() - 8});
    EXPECT_TRUE(waitUntil([&] { return !isFrameInFront(); }, Milliseconds{3000}))
        << keepImage(desktop_->screenshot(), "desktop");
    EXPECT_EQ(application_->quit(), 0);
}

TEST_F(FrameAndSettings, TheEndOfTheSessionEndsItInOrder)
{
    ASSERT_EQ(application_->quit(), 0);
    application_.reset();
    std::string reason;
    const auto session = SessionManager::start(*desktop_, reason);
    ASSERT_TRUE(session) << reason;
    application_ = Application::startAgain(*desktop_, reason, session->environment());
    ASSERT_TRUE(application_) << reason;
    ASSERT_EQ(session->next(), "registered");
    ASSERT_TRUE(application_->waitForVirtualDisplay(region.size()));

    session->shutDown();
    ASSERT_EQ(session->next(), "saved");
    EXPECT_TRUE(application_->process().isRunning()) << "it runs until it is told to quit";
    session->die();
    EXPECT_EQ(application_->process().waitForEnd(Milliseconds{5000}), 0) << application_->process().output();
    EXPECT_TRUE(isLeftClean());
}

TEST_F(FrameAndSettings, EverySignalThatEndsItLeavesTheDesktopAsItWas)
{
    const std::vector<std::vector<int>> ways{{SIGTERM}, {SIGINT}, {SIGHUP}, {SIGINT, SIGINT}, {SIGTERM, SIGHUP}};
    for (const std::vector<int>& signals : ways) {
        SCOPED_TRACE(testing::PrintToString(signals));
        for (const int number : signals) {
            application_->process().signal(number);
            // The second one comes while the first is still being obeyed.
            sleepFor(Milliseconds{20});
        }
        EXPECT_EQ(application_->process().waitForEnd(Milliseconds{5000}), 0);
        EXPECT_TRUE(isLeftClean());
        std::string reason;
        application_ = Application::startAgain(*desktop_, reason);
        ASSERT_TRUE(application_) << reason;
        ASSERT_TRUE(application_->waitForVirtualDisplay(region.size()));
    }
}

} // namespace

} // namespace nimbrale::test
