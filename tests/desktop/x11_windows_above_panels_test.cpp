// Windows that panels are to be behind, under window managers that composite: they are seen whole, and only while they
// are seen do panels leave anything out.

#include "tests/desktop/panel_test.h"
#include "tests/support/image_compare.h"
#include "tests/support/window_requests.h"

#include <functional>
#include <memory>

namespace nimbrale::test {
namespace {

using WindowManager = PrivateDesktop::WindowManager;

/// A window manager that draws by software on a busy machine takes seconds for a change of the workspace.
constexpr Milliseconds patience{10000};

class X11WindowsAbovePanelsTest : public X11PanelTest, public testing::WithParamInterface<WindowManager> {
protected:
    void SetUp() override
    {
        startScene({.windowManager = GetParam(), .compositor = PrivateDesktop::Compositor::windowManagersOwn});
        scene->add("settings", {.geometry = {50, 60, 400, 300}, .seed = 0, .overrideRedirect = false});
        panel = showFrame();
        ASSERT_TRUE(host->pumpUntil([&] { return yellowInside() > 1000; }, patience))
            << "the control: the panel lies over the window";
        all = yellowIn(desktop->screenshot());
        above = host->panels->keepBelow(scene->identifier("settings"));
        ASSERT_TRUE(host->pumpUntil([&] { return yellowInside() == 0; }, patience));
        ASSERT_EQ(yellowBeside(), 0) << "all of the panel is behind it";
    }

    void TearDown() override
    {
        above.reset();
        panel.reset();
        X11PanelTest::TearDown();
    }

    /// How much yellow is on the screen, inside of the window and beside it.
    [[nodiscard]] int yellowInside() const
    {
        return yellowIn(desktop->screenshot(desktop->windowTitled("settings").value_or(QRect())));
    }
    [[nodiscard]] int yellowBeside() const { return yellowIn(desktop->screenshot()) - yellowInside(); }

    /// Waits until the window is seen whole, with that much of the panel beside it.
    void expectBeside(const std::function<bool(int)>& isEnough)
    {
        EXPECT_TRUE(host->pumpUntil([&] { return isEnough(yellowBeside()) && yellowInside() == 0; }, patience))
            << yellowBeside() << " beside, " << yellowInside() << " inside; kept as "
            << keepImage(desktop->screenshot(), "screen");
    }
    void expectPanelWhole()
    {
        EXPECT_TRUE(host->pumpUntil([&] { return yellowIn(desktop->screenshot()) == all; }, patience))
            << yellowIn(desktop->screenshot()) << " of " << all << "; kept as "
            << keepImage(desktop->screenshot(), "screen");
    }

    static int yellowIn(const QImage& image)
    {
        int count = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x)
                count += image.pixelColor(x, y) == yellow;
        }
        return count;
    }

    std::unique_ptr<Panel> panel;
    Subscription above;
    /// The yellow of the panel with nothing above it.
    int all = 0;
};

TEST_P(X11WindowsAbovePanelsTest, OneIsSeenWholeWhereverItMovesAndHoweverItGrows)
{
    scene->move("settings", {200, 170});
    expectBeside([](int beside) { return beside > 1000; });
    const int beside = yellowBeside();
    scene->resize("settings", {40, 30});
    expectBeside([&](int now) { return now > beside; });
    scene->resize("settings", {400, 300});
    expectBeside([&](int now) { return now == beside; });
    panel->setFrame(host->onScreen({panelPlace.x + 40, panelPlace.y, panelPlace.width, panelPlace.height}));
    expectBeside([&](int now) { return now > 0 && now != beside; });

    above.reset();
    expectPanelWhole();
}

TEST_P(X11WindowsAbovePanelsTest, OneThatIsMinimizedLeavesNoHole)
{
    const WindowRequests requests(*desktop);
    requests.minimize(scene->identifier("settings"));
    expectPanelWhole();
    requests.activate(scene->identifier("settings"), desktop->serverTime());
    expectBeside([](int beside) { return beside == 0; });
}

class X11WorkspacesAbovePanelsTest : public X11WindowsAbovePanelsTest {};

TEST_P(X11WorkspacesAbovePanelsTest, OneThatIsOnAnotherWorkspaceLeavesNoHole)
{
    const WindowRequests requests(*desktop);
    requests.setWorkspaceCount(2);
    requests.moveToWorkspace(scene->identifier("settings"), 1);
    expectPanelWhole();
    requests.switchToWorkspace(1);
    expectBeside([](int beside) { return beside == 0; });
    requests.switchToWorkspace(0);
    expectPanelWhole();
}

TEST_P(X11WindowsAbovePanelsTest, OneThatIsClosedLeavesNoHole)
{
    scene->unmap("settings");
    expectPanelWhole();
    scene->map("settings");
    ASSERT_TRUE(host->pumpUntil([&] { return desktop->windowTitled("settings").has_value(); }));
    expectBeside([](int beside) { return beside == 0; });
    scene->remove("settings");
    expectPanelWhole();
}

INSTANTIATE_TEST_SUITE_P(, X11WindowsAbovePanelsTest,
                         testing::Values(WindowManager::kwin, WindowManager::mutter, WindowManager::muffin,
                                         WindowManager::xfwm4, WindowManager::marco),
                         [](const auto& manager) { return PrivateDesktop::managerName(manager.param); });

// Not muffin: without its shell it has one workspace.
INSTANTIATE_TEST_SUITE_P(, X11WorkspacesAbovePanelsTest,
                         testing::Values(WindowManager::kwin, WindowManager::mutter, WindowManager::xfwm4,
                                         WindowManager::marco),
                         [](const auto& manager) { return PrivateDesktop::managerName(manager.param); });

} // namespace
} // namespace nimbrale::test
