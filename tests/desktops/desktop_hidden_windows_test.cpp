// Windows that the user does not see on a real desktop, because they are minimized, on another workspace or covered:
// not one pixel of them is shared while the user switches between other windows and workspaces.

#include "tests/desktops/captured_session.h"
#include "tests/desktops/desktop_test.h"
#include "tests/support/image_compare.h"

#include <algorithm>

namespace nimbrale::test {
namespace {

const QColor secretColor(250, 10, 130);
const QColor ownColor(255, 0, 255);
constexpr QRect region(80, 60, 700, 500);
constexpr QRect ownPlace(600, 420, 120, 80);
constexpr QRect secretPlace(260, 180, 300, 200);
constexpr int samplesToLookThrough = 500;
constexpr int samplesBetweenSwitches = 12;

class DesktopHiddenWindows : public DesktopTest {
protected:
    void SetUp() override
    {
        DesktopTest::SetUp();
        if (HasFatalFailure() || IsSkipped())
            return;
        ASSERT_GE(requests().workspaceCount(), 3U);
        captured_ = std::make_unique<CapturedSession>(desktop(), region, ownPlace, ownColor);
        ASSERT_TRUE(captured_->start());
        addColoredWindow("secret", secretPlace, secretColor);
        ASSERT_TRUE(pumpUntil([&] { return pixelsOf(secretColor, captured_->image()) > 50000; }))
            << "the control: a window that the user sees is shared; kept as "
            << keepImage(captured_->image(), "captured") << " and " << keepImage(desktop().screenshot(), "screen");
    }

    void TearDown() override
    {
        if (captured_)
            requests().switchToWorkspace(0);
        captured_.reset();
        DesktopTest::TearDown();
    }

    /// From when the screen does not show the secret any more.
    void expectNotOnePixelWhileSwitching()
    {
        // One that the user looks at, which also brings the pictures; it is on every workspace.
        addWindow("seen", {120, 420, 220, 100}, 3);
        requests().showOnAllWorkspaces(scene->identifier("seen"));
        ASSERT_TRUE(pumpUntil([&] { return pixelsOf(secretColor, desktop().screenshot(region)) == 0; }))
            << "the screen itself goes on to show it: " << keepImage(desktop().screenshot(), "screen");
        ASSERT_TRUE(session().waitUntilStill()) << "the desktop is not done with hiding it";
        EXPECT_TRUE(pumpUntil([&] { return pixelsOf(secretColor, captured_->image()) == 0; })) << "it stays shared";

        int samples = 0;
        int leaks = 0;
        int onScreen = 0;
        int seenFrames = captured_->frames();
        const auto look = [&] {
            if (captured_->frames() == seenFrames)
                return;
            seenFrames = captured_->frames();
            ++samples;
            const QImage picture = captured_->image();
            const QImage screen = desktop().screenshot(region);
            if (pixelsOf(secretColor, screen) > 0 && onScreen++ == 0)
                keepImage(screen, "screen");
            if (pixelsOf(secretColor, picture) > 0 && leaks++ == 0)
                keepImage(picture, "leak");
        };
        for (int step = 0; samples < samplesToLookThrough; ++step) {
            scene->repaint("seen", static_cast<std::uint32_t>(100 + step));
            if (step % samplesBetweenSwitches == 0)
                requests().switchToWorkspace(static_cast<std::uint32_t>(step / samplesBetweenSwitches % 2));
            const int before = samples;
            ASSERT_TRUE(pumpUntil([&] {
                look();
                return samples > before;
            })) << "no picture comes any more after "
                << samples;
        }
        const std::string figure = std::to_string(leaks) + " of " + std::to_string(samples) +
                                   " pictures show it, the screen itself " + std::to_string(onScreen) + " times";
        report(testing::UnitTest::GetInstance()->current_test_info()->name() + (": " + figure));
        EXPECT_EQ(onScreen, 0) << "the desktop itself shows it; " << figure;
        EXPECT_EQ(leaks, 0) << figure;
    }

    std::unique_ptr<CapturedSession> captured_;
};

TEST_P(DesktopHiddenWindows, AMinimizedWindowIsInNoPicture)
{
    requests().minimize(scene->identifier("secret"));
    expectNotOnePixelWhileSwitching();
}

TEST_P(DesktopHiddenWindows, AWindowOfAnotherWorkspaceIsInNoPicture)
{
    requests().moveToWorkspace(scene->identifier("secret"), 2);
    expectNotOnePixelWhileSwitching();
}

TEST_P(DesktopHiddenWindows, ACoveredWindowIsInNoPicture)
{
    addWindow("cover", secretPlace.adjusted(-60, -60, 60, 60), 4);
    requests().keepAbove(scene->identifier("cover"));
    expectNotOnePixelWhileSwitching();
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopHiddenWindows, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopHiddenWindows, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopHiddenWindows, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopHiddenWindows, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopHiddenWindows, testing::Values(DesktopKind::cinnamon));

} // namespace
} // namespace nimbrale::test
