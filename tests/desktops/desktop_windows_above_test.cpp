// Windows of the application that the frame is to be behind: they are seen whole, and are in no picture.

#include "tests/desktops/marked_application.h"

#include <fstream>
#include <optional>

namespace nimbrale::test {
namespace {

class DesktopWindowsAbove : public MarkedApplication {
protected:
    static constexpr std::uint32_t returnKey = 0xff0d;

    /// Recordings cannot be made, which an alert says.
    void prepareSession() override
    {
        std::ofstream(desktop().configFolder() / "user-dirs.dirs") << "XDG_VIDEOS_DIR=\"/proc/nimbrale\"\n";
    }

    void SetUp() override
    {
        MarkedApplication::SetUp();
        if (HasFatalFailure() || IsSkipped())
            return;
        ASSERT_TRUE(waitForShare()) << said();
        desktop().movePointer(pointerRest);
        ASSERT_TRUE(session().waitUntilStill());
        frameAlone_ = desktop().screenshot();
        shared_ = sharedPicture(desktop());
    }

    [[nodiscard]] static QRect place() { return desktop().activeWindowPlace().value_or(QRect()); }

    /// Waits for a window that the application opens and that becomes the active one.
    void waitForWindow(const std::string& title)
    {
        ASSERT_TRUE(waitUntil([&] { return desktop().activeWindowTitle() == title; }, Milliseconds{8000}))
            << "kept as " << keepImage(desktop().screenshot(), "screen");
        ASSERT_TRUE(session().waitUntilStill());
    }

    void dragTitleBarBy(QPoint distance)
    {
        const QRect before = place();
        const QPoint onTheTitleBar = before.topLeft() + QPoint(before.width() / 2, -14);
        desktop().drag(onTheTitleBar, onTheTitleBar + distance);
        desktop().movePointer(pointerRest);
        ASSERT_TRUE(waitUntil([&] { return place() != before; }, Milliseconds{3000})) << "the control: it was dragged";
        ASSERT_TRUE(session().waitUntilStill());
    }

    void expectSeenWhole()
    {
        ASSERT_GT(pixelsOf(markerColor, frameAlone_.copy(place())), 200) << "the control: the frame was there";
        EXPECT_TRUE(
            waitUntil([] { return pixelsOf(markerColor, desktop().screenshot(place())) == 0; }, Milliseconds{3000}))
            << "kept as " << keepImage(desktop().screenshot(), "screen");
        EXPECT_GT(pixelsOf(markerColor, desktop().screenshot()), 200) << "the control: the frame is shown beside it";
    }

    void expectNothingOfItIsShared()
    {
        ASSERT_TRUE(place().contains(content));
        ASSERT_NE(desktop().screenshot(content), frameAlone_.copy(content)) << "the control: the screen shows it there";
        const QRect inRegion = content.translated(-region.topLeft());
        const QImage now = sharedPicture(desktop());
        EXPECT_TRUE(imagesMatch(now.copy(inRegion), shared_.copy(inRegion)))
            << "with the window at " << place().x() << ", " << place().y() << ", " << place().width() << " × "
            << place().height() << ", and all that is shared kept as " << keepImage(now, "shared");
    }

    /// What a window of the scene paints below, without its frame, which tells whether it is the active one.
    static constexpr QRect content{540, 330, 120, 60};
    /// The screen and what is shared without the window.
    QImage frameAlone_;
    QImage shared_;
};

TEST_P(DesktopWindowsAbove, SettingsIsSeenWholeWhereverItIsDragged)
{
    desktop().click(Application::settingsButtonOf(region));
    desktop().movePointer(pointerRest);
    ASSERT_NO_FATAL_FAILURE(waitForWindow("Nimbrale Settings"));
    ASSERT_NO_FATAL_FAILURE(dragTitleBarBy(QPoint(430, 180) - place().topLeft()));
    expectSeenWhole();
    expectNothingOfItIsShared();
    ASSERT_NO_FATAL_FAILURE(dragTitleBarBy({-70, 30}));
    expectSeenWhole();
}

TEST_P(DesktopWindowsAbove, AnAlertIsSeenWhole)
{
    desktop().click(Application::recordButtonOf(region));
    desktop().movePointer(pointerRest);
    ASSERT_NO_FATAL_FAILURE(waitForWindow("Nimbrale"));
    expectSeenWhole();
    expectNothingOfItIsShared();

    desktop().pressKey(returnKey);
    desktop().releaseKey(returnKey);
    EXPECT_TRUE(
        waitUntil([&] { return pixelsOf(markerColor, desktop().screenshot()) == pixelsOf(markerColor, frameAlone_); },
                  Milliseconds{5000}))
        << "the frame is whole again";
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopWindowsAbove, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopWindowsAbove, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopWindowsAbove, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopWindowsAbove, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopWindowsAbove, testing::Values(DesktopKind::cinnamon));

} // namespace
} // namespace nimbrale::test
